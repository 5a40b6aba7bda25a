#ifndef CORVANE_PLATFORM_POSIX_PROGRAM_H
#define CORVANE_PLATFORM_POSIX_PROGRAM_H

#include <cstdint>
#include <string>
#include <vector>

namespace corvane {

/// How a program ended, and what it wrote to either stream, without the last end of line. A program
/// that could not be run has the status -1 and tells why.
struct ProgramResult {
  std::int32_t status;
  std::string text;
};
ProgramResult runProgram(const std::string& path, std::vector<std::string> arguments);

}  // namespace corvane

#endif
