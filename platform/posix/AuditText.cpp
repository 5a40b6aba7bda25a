#include "platform/posix/AuditText.h"

#include <algorithm>

#include "platform/posix/LogText.h"

namespace corvane {

namespace {

// Of a request that may be megabytes, what one line and one entry show.
constexpr std::size_t mostArguments = 16;
constexpr std::size_t longestArgument = 256;

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

}  // namespace

const char* auditName(AuditOutcome outcome) {
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

std::vector<std::string> auditedArguments(const AuditEntry& entry) {
  std::vector<std::string> shown;
  if (!entry.arguments) return shown;
  const std::size_t count = std::min(entry.arguments->size(), mostArguments);
  for (std::size_t i = 0; i < count; ++i) shown.push_back(quoted((*entry.arguments)[i]));
  return shown;
}

std::string auditText(const AuditedClient& client, const AuditEntry& entry) {
  const std::string userName = singleLine(client.userName);
  const std::string program = singleLine(client.program);
  const std::string uid = std::to_string(client.uid);
  std::string text = (userName.empty() ? "uid " + uid : userName + " (uid " + uid + ")") +
                     " with " + (program.empty() ? "a program" : program) + " (pid " +
                     std::to_string(client.pid) + "): " + entry.operation;
  const std::vector<std::string> arguments = auditedArguments(entry);
  for (const std::string& argument : arguments) text += ' ' + argument;
  const std::size_t argumentCount = entry.arguments ? entry.arguments->size() : 0;
  if (argumentCount > arguments.size()) {
    text += " and " + std::to_string(argumentCount - arguments.size()) + " more";
  }
  text += std::string(": ") + auditName(entry.outcome);
  if (entry.error) {
    text +=
        " (" + singleLine(entry.error->domain()) + " " + std::to_string(entry.error->code()) + ")";
  }
  return text;
}

}  // namespace corvane
