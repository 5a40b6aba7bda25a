#ifndef CORVANE_TESTS_EMULATOR_FRAMEWORKS_RUNTIME_H
#define CORVANE_TESTS_EMULATOR_FRAMEWORKS_RUNTIME_H

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/macos/frameworks/Foundation.h"

// What the emulator has, and what these stand-ins for the system's frameworks know of each other.
// They are built for macOS and run in the emulator, beside the programs.
extern "C" {
Class object_getClass(id object);
const char* class_getName(Class kind);
BOOL class_respondsToSelector(Class kind, SEL selector);
const char* sel_getName(SEL selector);
BOOL emulator_is_kind_of(Class kind, Class ancestor);
/// The types of a method of a protocol; null if it has none by that name.
const char* emulator_types_in_protocol(const void* protocol, const char* selector);
}

@interface NSString (Emulator)
- (std::string_view)emulatorText;
@end

namespace emulator {

NSString* text(std::string_view content);
std::string content(NSString* text);
[[noreturn]] void raise(const char* name, const std::string& reason);

}  // namespace emulator

#endif
