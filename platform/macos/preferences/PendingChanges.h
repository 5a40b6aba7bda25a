#ifndef CORVANE_PLATFORM_MACOS_PREFERENCES_PENDINGCHANGES_H
#define CORVANE_PLATFORM_MACOS_PREFERENCES_PENDINGCHANGES_H

#include <optional>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace corvane {

/// Whose preferences, by the texts of platform/Preferences.h.
struct PreferencesDomain {
  std::string application;
  std::string user;
  std::string host;
  bool operator==(const PreferencesDomain&) const = default;
};

struct PreferenceChange {
  std::string key;
  std::optional<Value> value;
};

/// Keeps a change that the calling thread has made, until the thread takes it.
void addPendingChange(const PreferencesDomain& domain, PreferenceChange change);
/// The thread's changes of the domain in their order, which are pending no more.
std::vector<PreferenceChange> takePendingChanges(const PreferencesDomain& domain);

}  // namespace corvane

#endif
