#include "platform/SystemLog.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <syslog.h>
#include <unistd.h>

#include "platform/linux/log/LogClient.h"
#include "platform/posix/LogText.h"

namespace corvane {

namespace {

LogSink availableSink() {
  if (::access("/run/systemd/journal/socket", W_OK) == 0) return LogSink::Journal;
  if (::access("/dev/log", W_OK) == 0) return LogSink::Syslog;
  return LogSink::StandardError;
}

struct Facility {
  std::string_view name;
  int code;
};
// The facilities that programs of this system log to, by the names they open the log with.
constexpr Facility facilities[] = {{"Daemon", LOG_DAEMON}, {"User", LOG_USER}};

int facilityCode(std::string_view name) {
  const auto* facility = std::find_if(std::begin(facilities), std::end(facilities),
                                      [name](const Facility& f) { return f.name == name; });
  return facility == std::end(facilities) ? LOG_USER : facility->code;
}

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace

struct LogMessage {
  std::vector<std::pair<std::string, std::string>> attributes;
};

aslclient asl_open(const char* ident, const char* facility, std::uint32_t /*options*/) {
  auto* client = new LogClient{ident, facilityCode(facility), availableSink()};
  if (client->sink == LogSink::Syslog) ::openlog(client->ident.c_str(), LOG_PID, client->facility);
  return client;
}

aslmsg asl_new(std::uint32_t type) {
  return type == LogTypeMessage ? new LogMessage : nullptr;
}

int asl_set(aslmsg message, const char* key, const char* value) {
  if (message == nullptr || key == nullptr || value == nullptr) return -1;
  message->attributes.emplace_back(key, value);
  return 0;
}

int asl_log(aslclient client, aslmsg message, int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = asl_vlog(client, message, priority, format, arguments);
  va_end(arguments);
  return result;
}

int asl_vlog(aslclient client, aslmsg message, int priority, const char* format,
             va_list arguments) {
  if (client == nullptr) return -1;
  // What shows the journal hides a text with control characters: a client that sends some could
  // hide what it did.
  const std::string text = singleLine(printfText(format, arguments));

  switch (client->sink) {
    case LogSink::Journal: {
      auto fields = journalFields(*client, client->facility, priority, text);
      if (message != nullptr) {
        for (const auto& [key, value] : message->attributes) {
          fields.push_back(upperCase(key) + "=" + value);
        }
      }
      if (sendToJournal(fields)) return 0;
      break;
    }
    case LogSink::Syslog:
      ::syslog(client->facility | priority, "%s", text.c_str());
      return 0;
    case LogSink::StandardError:
      break;
  }
  // No log was found, or the journal that was found took nothing.
  writeToStandardError("<" + std::to_string(priority) + "> " + client->ident + ": " + text + "\n");
  return 0;
}

void asl_free(aslmsg message) {
  delete message;
}

void asl_close(aslclient client) {
  if (client != nullptr && client->sink == LogSink::Syslog) ::closelog();
  delete client;
}

}  // namespace corvane
