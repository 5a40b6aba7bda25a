#include "platform/AuditLog.h"

#include <algorithm>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include "platform/linux/log/LogClient.h"
#include "platform/linux/log/LogText.h"
#include "platform/linux/processes/ProcessIdentity.h"
#include "platform/linux/processes/UserDatabase.h"
#include "platform/linux/transport/CurrentPeer.h"

namespace corvane {

namespace {

// Random, made for these entries: what finds all of them in the journal.
constexpr const char* messageID = "17e91f8b9aed42e595b17c1fb4f7d4ab";

// Of a request that may be megabytes, what one line and one entry show.
constexpr std::size_t mostArguments = 16;
constexpr std::size_t longestArgument = 256;

const char* nameOf(AuditOutcome outcome) {
  switch (outcome) {
    case AuditOutcome::Done:
      return "done";
    case AuditOutcome::Failed:
      return "failed";
    case AuditOutcome::Refused:
      return "refused";
    case AuditOutcome::Dismissed:
      return "dismissed";
    case AuditOutcome::Cancelled:
      return "cancelled";
  }
  return "unknown";
}

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

// A value on one line, in quotes that nothing inside can close.
std::string quoted(const Value& value) {
  const std::string* string = value.string();
  std::string text = string != nullptr ? *string : value.className();
  if (const Number* number = value.number()) text = std::to_string(number->longLongValue());
  const bool isCut = text.size() > longestArgument;
  if (isCut) {
    text.resize(longestArgument);
    // Not in the middle of a character.
    while (!text.empty() && (text.back() & 0xc0) == 0x80) text.pop_back();
    if (!text.empty() && (text.back() & 0x80) != 0) text.pop_back();
  }
  std::string escaped;
  for (const char character : text) {
    if (character == '\'' || character == '\\') escaped += '\\';
    escaped += character;
  }
  return "'" + singleLine(escaped) + (isCut ? "…'" : "'");
}

std::vector<std::string> shownArguments(const AuditEntry& entry) {
  std::vector<std::string> shown;
  if (!entry.arguments) return shown;
  const std::size_t count = std::min(entry.arguments->size(), mostArguments);
  for (std::size_t i = 0; i < count; ++i) shown.push_back(quoted((*entry.arguments)[i]));
  return shown;
}

}  // namespace

void logAuditEntry(aslclient client, const AuditEntry& entry) {
  if (client == nullptr) return;
  const Peer* peer = currentPeer();
  const Peer nobody{-1, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  const Peer& asking = peer != nullptr ? *peer : nobody;
  const auto user = userWithID(asking.uid);
  const std::string userName = user ? singleLine(user->name) : std::string();
  const std::string program = programOf(asking);
  const std::vector<std::string> arguments = shownArguments(entry);
  const std::size_t argumentCount = entry.arguments ? entry.arguments->size() : 0;

  const std::string pid = std::to_string(asking.pid);
  const std::string uid = std::to_string(asking.uid);
  std::string text = (userName.empty() ? "uid " + uid : userName + " (uid " + uid + ")") +
                     " with " + (program.empty() ? "a program" : program) + " (pid " + pid +
                     "): " + entry.operation;
  for (const std::string& argument : arguments) text += ' ' + argument;
  if (argumentCount > arguments.size()) {
    text += " and " + std::to_string(argumentCount - arguments.size()) + " more";
  }
  text += std::string(": ") + nameOf(entry.outcome);
  if (entry.error) {
    text +=
        " (" + singleLine(entry.error->domain()) + " " + std::to_string(entry.error->code()) + ")";
  }

  switch (client->sink) {
    case LogSink::Journal: {
      auto fields = journalFields(*client, LOG_AUTHPRIV, LogPriorityNotice, text);
      const auto add = [&fields](const char* name, const std::string& value) {
        if (!value.empty()) fields.push_back(std::string(name) + "=" + value);
      };
      add("MESSAGE_ID", messageID);
      add("OPERATION", entry.operation);
      add("RIGHT", entry.right);
      add("OUTCOME", nameOf(entry.outcome));
      if (entry.error) {
        add("ERROR_DOMAIN", entry.error->domain());
        add("ERROR_CODE", std::to_string(entry.error->code()));
      }
      add("CLIENT_PID", pid);
      add("CLIENT_UID", uid);
      add("CLIENT_USER", userName);
      add("CLIENT_PROGRAM", program);
      if (entry.arguments) add("ARGUMENT_COUNT", std::to_string(argumentCount));
      for (const std::string& argument : arguments) add("ARGUMENT", argument);
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
