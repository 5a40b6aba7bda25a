#ifndef CORVANE_TESTS_PROCESS_FILEHANDLESTANDIN_H
#define CORVANE_TESTS_PROCESS_FILEHANDLESTANDIN_H

#include <functional>
#include <string>
#include <vector>

namespace corvane::tests {

/// What happened to the handles of the process, for the handles of FileHandleStandIn.cpp.
struct HandleLog {
  std::vector<std::string> operations;  ///< "closeFile" or "releaseFileDescriptor", in order
  std::vector<std::string> pipes;       ///< the pipe of the handle of each, by its name in /proc
  std::function<void()> beforeRead;     ///< may raise; called before every read
  std::function<void()> beforeRelease;  ///< may raise
};
HandleLog& handleLog();

}  // namespace corvane::tests

#endif
