#ifndef CORVANE_BENCH_REMOVAL_TESTTREE_H
#define CORVANE_BENCH_REMOVAL_TESTTREE_H

#include <cstddef>
#include <string>

namespace corvane {

struct TreeShape {
  std::size_t folders = 0;
  std::size_t filesPerFolder = 0;
  /// Every how many files one is immutable; 0 for none.
  std::size_t protectedEvery = 0;
};

/// Makes a folder `path` with `shape.folders` folders of empty files, and waits until it is on the
/// disk. Throws std::system_error.
void makeTree(const std::string& path, const TreeShape& shape);

}  // namespace corvane

#endif
