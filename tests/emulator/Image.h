#ifndef CORVANE_TESTS_EMULATOR_IMAGE_H
#define CORVANE_TESTS_EMULATOR_IMAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace emulator {

/// A program for macOS in the memory of this process, at the address that it was linked for, with
/// every symbol bound to what `symbolNamed` has for it. There is one, which is never unloaded.
class Image {
 public:
  struct Section {
    std::string segment;
    std::string name;
    std::uint64_t address;
    std::uint64_t size;
    std::uint32_t type;
  };

  /// Ends this process, saying why, if that is no program that can be run here.
  static void load(const std::string& path);
  static const Image& loaded();

  /// The header, at which the system has programs know themselves.
  const void* header() const;
  const std::vector<Section>& sections() const { return _sections; }
  /// The content of a section; empty if there is none.
  std::span<std::byte> content(const std::string& segment, const std::string& name) const;

  /// Runs the program: what comes before `main`, and that. Its status.
  static int run(int argc, char** argv, char** environment);

  /// What the program was run with.
  struct Arguments {
    int count = 0;
    char** texts = nullptr;
  };
  static Arguments& arguments();

 private:
  struct Segment {
    std::string name;
    std::uint64_t address;
    std::uint64_t size;
    std::uint32_t protection;
  };

  void readCommands(std::span<const std::byte> file);
  void map(std::span<const std::byte> file, std::size_t command);
  void bind(std::span<const std::byte> opcodes, bool isLazy) const;
  void protect() const;

  std::vector<Segment> _segments;
  std::vector<Section> _sections;
  std::uint64_t _entry = 0;
};

/// Ends this process with a message.
[[noreturn]] void fail(const std::string& message);

}  // namespace emulator

#endif
