#ifndef CORVANE_PROCESS_PROGRAMRUN_H
#define CORVANE_PROCESS_PROGRAMRUN_H

#include <chrono>
#include <cstdint>
#include <stop_token>
#include <string>

#include "process/ZELTaskExecutor.h"

namespace corvane {

struct ProgramEnd {
  /// The program's end came after it had been asked to end.
  bool isInterrupted = false;
  /// The status that the executor tells, or -1 if it refused to start the program.
  std::int32_t status = -1;
};

/// What a program that is asked to end gets before it is killed.
inline constexpr std::chrono::seconds timeToEnd{10};

/// A PATH that leads to the system's own programs alone.
inline constexpr const char* safePath = "/usr/bin:/bin:/usr/sbin:/sbin";

/// Runs a program to its end. Once `stop` is requested the program is asked to end, and killed if
/// it still runs `timeToEnd` later. Raises what the executor raises.
ProgramEnd runProgram(ZELTaskExecutor& executor, const std::string& path,
                      const ZELTaskExecutor::Arguments& arguments, const std::stop_token& stop);

}  // namespace corvane

#endif
