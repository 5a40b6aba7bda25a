#include "platform/AuditLog.h"

#include <algorithm>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include "platform/linux/log/LogClient.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "platform/linux/processes/UserDatabase.h"
#include "platform/linux/transport/CurrentPeer.h"
#include "platform/posix/AuditText.h"
#include "platform/posix/LogText.h"

namespace corvane {

namespace {

// Random, made for these entries: what finds all of them in the journal.
constexpr const char* messageID = "17e91f8b9aed42e595b17c1fb4f7d4ab";

// The file that a process runs; empty once it has ended.
std::string programOf(const Peer& peer) {
  std::string target(4096, '\0');
  const std::string link = "/proc/" + std::to_string(peer.pid) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
  // The number may be another process's by now.
  if (length <= 0 || peer.process == nullptr || !peer.process->isRunning()) return {};
  target.resize(static_cast<std::size_t>(length));
  return singleLine(target);
}

}  // namespace

void logAuditEntry(aslclient client, const AuditEntry& entry) {
  if (client == nullptr) return;
  const Peer* peer = currentPeer();
  const Peer nobody{-1, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  const Peer& asking = peer != nullptr ? *peer : nobody;
  const auto user = userWithID(asking.uid);
  const AuditedClient described{asking.pid, asking.uid,
                                user ? singleLine(user->name) : std::string(), programOf(asking)};
  const std::string text = auditText(described, entry);

  switch (client->sink) {
    case LogSink::Journal: {
      auto fields = journalFields(*client, LOG_AUTHPRIV, LogPriorityNotice, text);
      const auto add = [&fields](const char* name, const std::string& value) {
        if (!value.empty()) fields.push_back(std::string(name) + "=" + value);
      };
      add("MESSAGE_ID", messageID);
      add("OPERATION", entry.operation);
      add("RIGHT", entry.right);
      add("OUTCOME", auditName(entry.outcome));
      if (entry.error) {
        add("ERROR_DOMAIN", entry.error->domain());
        add("ERROR_CODE", std::to_string(entry.error->code()));
      }
      add("CLIENT_PID", std::to_string(described.pid));
      add("CLIENT_UID", std::to_string(described.uid));
      add("CLIENT_USER", described.userName);
      add("CLIENT_PROGRAM", described.program);
      if (entry.arguments) add("ARGUMENT_COUNT", std::to_string(entry.arguments->size()));
      for (const std::string& argument : auditedArguments(entry)) add("ARGUMENT", argument);
      if (sendToJournal(fields)) return;
      break;
    }
    case LogSink::Syslog:
      ::syslog(LOG_AUTHPRIV | LogPriorityNotice, "%s", text.c_str());
      return;
    case LogSink::StandardError:
      break;
  }
  writeToStandardError("<" + std::to_string(LogPriorityNotice) + "> " + client->ident +
                       " audit: " + text + "\n");
}

}  // namespace corvane
