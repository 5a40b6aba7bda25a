#ifndef CORVANE_TESTS_SUPPORT_LOGLINES_H
#define CORVANE_TESTS_SUPPORT_LOGLINES_H

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>

namespace corvane {

/// Matches what the standard log has written when that is these lines and no other: a system may
/// put date and process in front of each.
MATCHER_P(LogLinesAre, lines, "") {
  std::istringstream log(arg);
  std::string line;
  for (const std::string& text : std::vector<std::string>(lines)) {
    if (!std::getline(log, line) || !line.ends_with(text)) return false;
  }
  return !std::getline(log, line);
}
inline auto logLineIs(const std::string& text) {
  return LogLinesAre(std::vector<std::string>{text});
}

}  // namespace corvane

#endif
