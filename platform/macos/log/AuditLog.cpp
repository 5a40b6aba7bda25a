#include "platform/AuditLog.h"

#include <array>

#include <libproc.h>
#include <pwd.h>

#include "platform/macos/transport/CurrentConnection.h"
#include "platform/posix/AuditText.h"
#include "platform/posix/LogText.h"

namespace corvane {

namespace {

std::string nameOfUser(uid_t uid) {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) != 0) return {};
  return found != nullptr ? found->pw_name : "";
}

std::string programOf(pid_t pid) {
  std::array<char, PROC_PIDPATHINFO_MAXSIZE> path{};
  const int length = ::proc_pidpath(pid, path.data(), path.size());
  return length > 0 ? std::string(path.data(), static_cast<std::size_t>(length)) : std::string();
}

}  // namespace

void logAuditEntry(aslclient client, const AuditEntry& entry) {
  if (client == nullptr) return;
  AuditedClient asking;
  if (const auto peer = currentPeer()) {
    asking = {peer->pid, peer->uid, nameOfUser(peer->uid), programOf(peer->pid)};
  }
  aslmsg message = asl_new(LogTypeMessage);
  const auto set = [message](const char* key, const std::string& value) {
    if (!value.empty()) asl_set(message, key, singleLine(value).c_str());
  };
  // Kept apart from the daemon's other messages, as those of other programs about authorization.
  set("Facility", "authpriv");
  set("Operation", entry.operation);
  set("Right", entry.right);
  set("Outcome", auditName(entry.outcome));
  if (entry.error) {
    set("ErrorDomain", entry.error->domain());
    set("ErrorCode", std::to_string(entry.error->code()));
  }
  set("ClientPID", std::to_string(asking.pid));
  set("ClientUID", std::to_string(asking.uid));
  set("ClientUser", asking.userName);
  set("ClientProgram", asking.program);
  asl_log(client, message, LogPriorityNotice, "%s", auditText(asking, entry).c_str());
  asl_free(message);
}

}  // namespace corvane
