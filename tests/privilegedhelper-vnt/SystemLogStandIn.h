#ifndef CORVANE_TESTS_PRIVILEGEDHELPER_VNT_SYSTEMLOGSTANDIN_H
#define CORVANE_TESTS_PRIVILEGEDHELPER_VNT_SYSTEMLOGSTANDIN_H

#include <string>
#include <utility>
#include <vector>

namespace corvane {

/// In the place of the system's log: keeps what is logged, with its priority.
struct SystemLogStandIn {
  static std::vector<std::pair<int, std::string>> messages;
};

}  // namespace corvane

#endif
