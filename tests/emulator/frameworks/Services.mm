#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "tests/emulator/frameworks/Runtime.h"

extern "C" {

// What is logged here is one text as it is, which ends its line if it does not do so itself.
void NSLog(NSString* format, ...) {
  if (emulator::content(format) != "%@") std::abort();
  va_list arguments;
  va_start(arguments, format);
  std::string line = emulator::content(va_arg(arguments, NSString*));
  va_end(arguments);
  if (!line.ends_with('\n')) line += '\n';
  std::fputs(line.c_str(), stderr);
}

// The user's languages are those of the environment, in the system's own writing.
CFArrayRef CFLocaleCopyPreferredLanguages() {
  const auto variable = [](const char* name) {
    const char* const value = std::getenv(name);
    return std::string(value != nullptr ? value : "");
  };
  std::string locale;
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    if (locale.empty()) locale = variable(name);
  }
  NSMutableArray* const languages = [NSMutableArray array];
  std::string rest = locale.empty() || locale == "C" ? "" : variable("LANGUAGE") + ":" + locale;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    std::string language = rest.substr(0, std::min(end, rest.find('.')));
    std::replace(language.begin(), language.end(), '_', '-');
    rest.erase(0, end + 1);
    if (!language.empty()) [languages addObject:emulator::text(language)];
  }
  return (__bridge_retained CFArrayRef)languages;
}

}  // extern "C"

@implementation NSRunLoop
+ (NSRunLoop*)currentRunLoop {
  return [[NSRunLoop alloc] init];
}
- (void)run {
  for (;;) ::pause();
}
@end
