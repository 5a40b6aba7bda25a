#ifndef CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESPLACE_H
#define CORVANE_PLATFORM_LINUX_PREFERENCES_PREFERENCESPLACE_H

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include <sys/types.h>

#include "platform/Preferences.h"
#include "platform/linux/processes/UserDatabase.h"

namespace corvane {

/// Where the file of one preference domain is, and whose it is.
struct PreferencesPlace {
  /// A folder that exists; links on the way to it are followed.
  std::string anchor;
  /// The folders below it, one inside the other: made as needed, and never followed if links.
  std::vector<std::string> folders;
  std::string fileName;
  /// Who the file has to belong to.
  uid_t owner;
  /// Whose rights to take on for it; nothing to keep those of the process.
  std::optional<User> rights;
  mode_t folderMode;
  mode_t fileMode;
};

/// The place of a domain: /etc/xdg/preferences for any user, ~/.config/preferences for one, and in
/// there <application>.plist, or ByHost/<application>.<machine id>.plist for the current host; all
/// applications are ".GlobalPreferences". Else what keeps the domain from being one.
///
/// The environment variable CORVANE_PREFERENCES_ROOT, read once and ignored where privileges were
/// gained by starting the program, is put in front of all these paths;
/// what is for any user there belongs to the user of the process.
std::variant<PreferencesPlace, PreferencesDomainFault> placeOfPreferences(
    const std::string& application, const std::string& user, const std::string& host);

}  // namespace corvane

#endif
