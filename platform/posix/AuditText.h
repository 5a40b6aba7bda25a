#ifndef CORVANE_PLATFORM_POSIX_AUDITTEXT_H
#define CORVANE_PLATFORM_POSIX_AUDITTEXT_H

#include <cstdint>
#include <string>
#include <vector>

#include "platform/AuditLog.h"

namespace corvane {

/// Who made a request, as far as the system tells.
struct AuditedClient {
  std::int32_t pid = -1;
  std::uint32_t uid = static_cast<std::uint32_t>(-1);
  std::string userName;  ///< empty for a number that has none
  std::string program;   ///< empty for one that has ended
};

/// How a request ended, in one word.
const char* auditName(AuditOutcome outcome);

/// The first arguments of the entry, each on one line and cut where it is long, in quotes that
/// nothing inside can close.
std::vector<std::string> auditedArguments(const AuditEntry& entry);

/// The whole entry on one line that everything shows as it is.
std::string auditText(const AuditedClient& client, const AuditEntry& entry);

}  // namespace corvane

#endif
