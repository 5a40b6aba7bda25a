#include "platform/StandardLog.h"

#include "platform/posix/LogText.h"

namespace corvane {

void NSLog(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = printfText(format, arguments);
  va_end(arguments);
  if (!text.ends_with('\n')) text += '\n';
  writeToStandardError(text);
}

}  // namespace corvane
