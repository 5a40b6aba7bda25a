#ifndef CORVANE_PLATFORM_POSIX_LOGTEXT_H
#define CORVANE_PLATFORM_POSIX_LOGTEXT_H

#include <cstdarg>
#include <string>
#include <string_view>

namespace corvane {

/// The text of a printf format and its arguments, of any length.
std::string printfText(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

/// `text` on one line that everything shows as it is: the bytes of control characters, and those
/// that are not UTF-8, are written as \xNN.
std::string singleLine(std::string_view text);

/// Writes all of `text` to standard error in one write where the system allows it.
void writeToStandardError(std::string_view text);

}  // namespace corvane

#endif
