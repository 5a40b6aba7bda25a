#ifndef CORVANE_PLATFORM_SYSTEMLOG_H
#define CORVANE_PLATFORM_SYSTEMLOG_H

#include <cstdarg>
#include <cstdint>

namespace corvane {

/// A connection to the system's log.
struct LogClient;
/// A template of attributes that every message logged with it carries.
struct LogMessage;
using aslclient = LogClient*;
using aslmsg = LogMessage*;

/// Priorities, by the system log's numbers. The lower the number, the graver the message.
enum LogPriority : int {
  LogPriorityError = 3,
  LogPriorityNotice = 5,
  LogPriorityInformational = 6,
  LogPriorityDebug = 7,
};

inline constexpr std::uint32_t LogTypeMessage = 0;     ///< ASL_TYPE_MSG
inline constexpr const char* LogKeySender = "Sender";  ///< ASL_KEY_SENDER

// A system that has this log has these functions under these names in its libraries: no code of
// ours stands in between.
extern "C" {

/// Opens the log for messages of `ident` and `facility` ("Daemon"); null if it cannot be had. The
/// caller owns the handle and gives it to `asl_close`. `options` is 0.
aslclient asl_open(const char* ident, const char* facility, std::uint32_t options);
/// Makes an empty template of type LogTypeMessage; null on failure. Given back to `asl_free`.
aslmsg asl_new(std::uint32_t type);
/// Sets an attribute of the template; 0 on success.
int asl_set(aslmsg message, const char* key, const char* value);
/// Logs one printf-style message; 0 on success. Any thread. Null handles log nothing.
int asl_log(aslclient client, aslmsg message, int priority, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int asl_vlog(aslclient client, aslmsg message, int priority, const char* format, va_list arguments)
    __attribute__((format(printf, 4, 0)));
void asl_free(aslmsg message);
void asl_close(aslclient client);

}  // extern "C"

}  // namespace corvane

#endif
