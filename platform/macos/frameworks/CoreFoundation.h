#ifndef CORVANE_PLATFORM_MACOS_FRAMEWORKS_COREFOUNDATION_H
#define CORVANE_PLATFORM_MACOS_FRAMEWORKS_COREFOUNDATION_H

// What is used of CoreFoundation. A build on the system takes the system's own header, and so sees
// whether these declarations are true.
#if __has_include(<CoreFoundation/CoreFoundation.h>)
#include <CoreFoundation/CoreFoundation.h>
#else

#include <MacTypes.h>

extern "C" {

using CFTypeRef = const void*;
using CFTypeID = unsigned long;
using CFStringRef = const struct __CFString*;
using CFArrayRef = const struct __CFArray*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFBundleRef = struct __CFBundle*;

void CFRelease(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeID CFBooleanGetTypeID(void);

extern const CFStringRef kCFPreferencesAnyApplication;
extern const CFStringRef kCFPreferencesAnyHost;
extern const CFStringRef kCFPreferencesCurrentHost;
extern const CFStringRef kCFPreferencesAnyUser;
extern const CFStringRef kCFPreferencesCurrentUser;

void CFPreferencesSetValue(CFStringRef key, CFTypeRef value, CFStringRef application,
                           CFStringRef user, CFStringRef host);
Boolean CFPreferencesSynchronize(CFStringRef application, CFStringRef user, CFStringRef host);
CFTypeRef CFPreferencesCopyValue(CFStringRef key, CFStringRef application, CFStringRef user,
                                 CFStringRef host);

CFArrayRef CFLocaleCopyPreferredLanguages(void);

}  // extern "C"

#endif
#endif
