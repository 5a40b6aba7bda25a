#ifndef CORVANE_PLATFORM_PREFERENCES_H
#define CORVANE_PLATFORM_PREFERENCES_H

#include <optional>
#include <string>
#include <string_view>

#include "foundation/Value.h"

namespace corvane {

/// The domain of all applications, by the name people know it under.
inline constexpr std::string_view NSGlobalDomain = "NSGlobalDomain";

inline constexpr std::string_view kCFPreferencesAnyApplication = "kCFPreferencesAnyApplication";
inline constexpr std::string_view kCFPreferencesAnyUser = "kCFPreferencesAnyUser";
inline constexpr std::string_view kCFPreferencesCurrentUser = "kCFPreferencesCurrentUser";
inline constexpr std::string_view kCFPreferencesAnyHost = "kCFPreferencesAnyHost";
inline constexpr std::string_view kCFPreferencesCurrentHost = "kCFPreferencesCurrentHost";

/// Preferences are kept by domain: an application (its identifier, or any), a user (a name of the
/// user database, the user this process runs as, or any) and a host (this one by its name or as
/// the current one, or any). Each part is a text: one of the constants above says any or current,
/// every other one is a name. They come so from clients of whatever system; a side whose system has
/// constants of its own puts these in their place.
///
/// A change belongs to the thread that made it. It is pending until that thread synchronises the
/// domain: threads that work for different callers at the same time never write, lose or fail each
/// other's changes. Where the system keeps pending changes for all of a process, its side keeps
/// them by thread in front of it.

/// Makes `value` the pending value of `key`; no value removes the key. Touches no file.
void CFPreferencesSetValue(const std::string& key, std::optional<Value> value,
                           const std::string& application, const std::string& user,
                           const std::string& host);

/// Writes this thread's pending changes of the domain, all or none, and forgets them either way.
/// Other keys of the domain, and changes that other processes make at the same time, stay. True on
/// success, which is also when there was nothing to change. False, with the file as it was, for a
/// domain that does not exist, a file that is not a property list or not the user's, a key or value
/// that no file can hold, and whatever the file system refuses. An empty file holds no
/// preferences. How long it waits for others who write is bounded where the side can bound it.
///
/// A file that is there keeps its format, its permissions, group and access control list, and its
/// extended attributes. Where its group is not one that it can be given, the group it gets may do
/// no more than everybody.
///
/// Run by root it has in a user's folder the rights of that user, no more.
bool CFPreferencesSynchronize(const std::string& application, const std::string& user,
                              const std::string& host);

/// What keeps a domain from being one on this machine.
enum class PreferencesDomainFault {
  ApplicationIdentifier,  ///< no file can have its name
  ApplicationTooLong,
  User,  ///< there is none of this name
  Host,  ///< it is another machine, whose preferences are not kept here
};
std::optional<PreferencesDomainFault> faultOfPreferencesDomain(const std::string& application,
                                                               const std::string& user,
                                                               const std::string& host);

/// The value of `key` in the files of exactly this domain, pending changes left aside; nothing if
/// there is none or the domain cannot be read.
std::optional<Value> CFPreferencesCopyValue(const std::string& key, const std::string& application,
                                            const std::string& user, const std::string& host);

}  // namespace corvane

#endif
