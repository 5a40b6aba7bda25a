#include "tests/privilegedhelper-vnt/SystemLogStandIn.h"

#include <array>
#include <cstdarg>
#include <cstdio>

#include "platform/SystemLog.h"

namespace corvane {

std::vector<std::pair<int, std::string>> SystemLogStandIn::messages;

struct LogClient {};
struct LogMessage {};

aslclient asl_open(const char*, const char*, std::uint32_t) {
  return nullptr;
}
aslmsg asl_new(std::uint32_t) {
  return nullptr;
}
int asl_set(aslmsg, const char*, const char*) {
  return 0;
}

int asl_log(aslclient client, aslmsg message, int priority, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = asl_vlog(client, message, priority, format, arguments);
  va_end(arguments);
  return result;
}

int asl_vlog(aslclient, aslmsg, int priority, const char* format, va_list arguments) {
  std::array<char, 1024> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  SystemLogStandIn::messages.emplace_back(priority, text.data());
  return 0;
}

void asl_free(aslmsg) {}
void asl_close(aslclient) {}

}  // namespace corvane
