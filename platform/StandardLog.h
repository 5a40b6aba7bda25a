#ifndef CORVANE_PLATFORM_STANDARDLOG_H
#define CORVANE_PLATFORM_STANDARDLOG_H

namespace corvane {

/// Writes one printf-style message to the process's standard log, which is its standard error. A
/// line feed that the text lacks at its end is added. Any thread; lines of threads do not mix.
void NSLog(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace corvane

#endif
