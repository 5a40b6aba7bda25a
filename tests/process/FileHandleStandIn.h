#ifndef CORVANE_TESTS_PROCESS_FILEHANDLESTANDIN_H
#define CORVANE_TESTS_PROCESS_FILEHANDLESTANDIN_H

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace corvane::tests {

/// What happened to the handles of the process, for the handles of FileHandleStandIn.cpp.
struct HandleLog {
  std::vector<std::string> operations;  ///< "closeFile" or "releaseFileDescriptor", in order
  std::vector<ino_t> pipes;             ///< the pipe of the handle of each, by its number
  std::function<void()> beforeRead;     ///< may raise; called before every read
  std::function<void()> beforeRelease;  ///< may raise
};
HandleLog& handleLog();

}  // namespace corvane::tests

#endif
