#ifndef CORVANE_TESTS_PLATFORM_MACOS_LIVINGOBJECTS_H
#define CORVANE_TESTS_PLATFORM_MACOS_LIVINGOBJECTS_H

#include <array>
#include <cstddef>
#include <cstdint>

#include <gtest/gtest.h>

// The emulator's count of the system's objects. A use of one after its end ends the process.
extern "C" {
std::int64_t emulator_living_objects();
void emulator_describe_living_objects(char* text, std::size_t size);
}

namespace corvane {

/// A test that leaves no object of the system's behind.
class WithoutLeftovers : public testing::Test {
 protected:
  ~WithoutLeftovers() override {
    std::array<char, 1024> all{};
    emulator_describe_living_objects(all.data(), all.size());
    EXPECT_EQ(emulator_living_objects(), _before) << all.data();
  }

 private:
  std::int64_t _before = emulator_living_objects();
};

}  // namespace corvane

#endif
