#include "platform/StandardLog.h"

#include "platform/macos/values/ObjectValue.h"
#include "platform/posix/LogText.h"

namespace corvane {

void NSLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const std::string text = printfText(format, arguments);
  va_end(arguments);
  @autoreleasepool {
    // What a client sent may be no text.
    NSString* const object = objectFromText(text);
    ::NSLog(@"%@", object != nil ? object : objectFromText(singleLine(text)));
  }
}

}  // namespace corvane
