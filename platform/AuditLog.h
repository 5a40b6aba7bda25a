#ifndef CORVANE_PLATFORM_AUDITLOG_H
#define CORVANE_PLATFORM_AUDITLOG_H

#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "platform/SystemLog.h"

namespace corvane {

/// How a request ended.
enum class AuditOutcome {
  Done,
  Failed,     ///< authorized, and ended with an error
  Refused,    ///< not authorized
  Dismissed,  ///< not authorized: the person who was asked closed the dialog
  Cancelled,  ///< stopped because somebody asked for that, in its dialog or later
};

/// What an administrator wants to know of a request afterwards, beside who made it.
struct AuditEntry {
  std::string operation;
  std::string right;
  AuditOutcome outcome = AuditOutcome::Done;
  std::optional<Error> error;
  /// Of an authorized request only, and without what is nobody else's business.
  std::optional<Array> arguments;
};

/// Writes one entry, at the priority of a notice, about the request whose message the calling
/// thread handles: who made it is the platform's to know. The arguments may be of any size and hold
/// anything; what is written of them is bounded and printable. A null client logs nothing. Any
/// thread.
void logAuditEntry(aslclient client, const AuditEntry& entry);

}  // namespace corvane

#endif
