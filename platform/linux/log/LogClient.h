#ifndef CORVANE_PLATFORM_LINUX_LOG_LOGCLIENT_H
#define CORVANE_PLATFORM_LINUX_LOG_LOGCLIENT_H

#include <span>
#include <string>
#include <vector>

#include "platform/SystemLog.h"

namespace corvane {

/// Where messages go: the journal, syslog where there is none, and standard error where there is
/// neither.
enum class LogSink { Journal, Syslog, StandardError };

struct LogClient {
  std::string ident;
  /// Of `syslog.h`, with its shift.
  int facility;
  LogSink sink;
};

/// Hands one message to the journal, given as "NAME=value" fields; false if it is not taken.
bool sendToJournal(std::span<std::string> fields);

/// The fields that every message has.
std::vector<std::string> journalFields(const LogClient& client, int facility, int priority,
                                       const std::string& text);

}  // namespace corvane

#endif
