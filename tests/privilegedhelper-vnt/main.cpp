#include <gtest/gtest.h>

// The daemon's library has a main function of its own; this one comes first.
int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
