#include <memory>
#include <utility>

#include <gtest/gtest.h>

#include "foundation/NoDestructor.h"

namespace corvane {
namespace {

/// Counts how often it was destroyed.
class Mortal {
 public:
  explicit Mortal(int& deaths, std::unique_ptr<int> age) : _deaths(deaths), _age(std::move(age)) {}
  Mortal(const Mortal&) = delete;
  Mortal& operator=(const Mortal&) = delete;
  ~Mortal() { ++_deaths; }

  int age() const { return *_age; }
  void release() { _age.reset(); }

 private:
  int& _deaths;
  std::unique_ptr<int> _age;
};

TEST(NoDestructorTest, HoldsWhatItIsMadeOfAndNeverDestroysIt) {
  int deaths = 0;
  {
    NoDestructor<Mortal> immortal(deaths, std::make_unique<int>(7));
    EXPECT_EQ(immortal->age(), 7);
    EXPECT_EQ((*immortal).age(), 7);
    immortal->release();
  }
  EXPECT_EQ(deaths, 0);
}

}  // namespace
}  // namespace corvane
