#include "platform/Preferences.h"

#include <algorithm>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/POSIXError.h"
#include "foundation/PropertyList.h"
#include "platform/StandardLog.h"
#include "platform/linux/preferences/PreferencesFile.h"
#include "platform/linux/preferences/PreferencesPlace.h"
#include "platform/posix/LogText.h"

namespace corvane {

namespace {

struct Change {
  std::string key;
  std::optional<Value> value;
};

/// The pending changes of one domain.
struct Pending {
  std::tuple<std::string, std::string, std::string> domain;
  std::vector<Change> changes;
};

thread_local std::vector<Pending> pendingDomains;

/// The changes of the domain, which are pending no more.
std::vector<Change> takePending(const std::tuple<std::string, std::string, std::string>& domain) {
  const auto pending = std::find_if(pendingDomains.begin(), pendingDomains.end(),
                                    [&](const Pending& p) { return p.domain == domain; });
  if (pending == pendingDomains.end()) return {};
  std::vector<Change> changes = std::move(pending->changes);
  pendingDomains.erase(pending);
  return changes;
}

/// The preferences in `content`, none if there is no file. What is read has a dictionary.
Result<PropertyList> preferencesIn(const PreferencesContent& content) {
  if (!content) return PropertyList{Dictionary(), PropertyListFormat::XML};
  Result<PropertyList> list = readPropertyList(*content);
  if (list && list->root.dictionary() == nullptr) {
    return Error(NSCocoaErrorDomain, NSPropertyListReadCorruptError,
                 Dictionary{{NSLocalizedDescriptionKey, "There is no dictionary."}});
  }
  return list;
}

/// Makes the changes; false if they change nothing.
bool apply(const std::vector<Change>& changes, Dictionary& preferences) {
  bool isChanged = false;
  for (const auto& [key, value] : changes) {
    if (!value) {
      isChanged |= preferences.remove(key);
    } else if (const Value* old = preferences.find(key); old == nullptr || *old != *value) {
      preferences.set(key, *value);
      isChanged = true;
    }
  }
  return isChanged;
}

/// The content after the changes; nothing if they change nothing.
Result<PreferencesContent> changed(const PreferencesContent& old,
                                   const std::vector<Change>& changes) {
  Result<PropertyList> list = preferencesIn(old);
  if (!list) return list.error();
  auto& [root, format] = *list;
  if (!apply(changes, *root.as<Dictionary>())) return std::nullopt;
  Result<Data> written =
      writePropertyList(root, format == PropertyListFormat::Binary ? PropertyListFormat::Binary
                                                                   : PropertyListFormat::XML);
  if (!written) return written.error();
  return *std::move(written);
}

const char* textOf(PreferencesDomainFault fault) {
  switch (fault) {
    case PreferencesDomainFault::ApplicationIdentifier:
      return "No file can be named after this application.";
    case PreferencesDomainFault::ApplicationTooLong:
      return "The name of the application is too long.";
    case PreferencesDomainFault::User:
      return "There is no such user.";
    case PreferencesDomainFault::Host:
      break;
  }
  return "Of another host no preferences are kept here.";
}

/// Makes the changes in the file of the domain.
Result<void> write(const std::vector<Change>& changes,
                   const std::variant<PreferencesPlace, PreferencesDomainFault>& domain) {
  if (const auto* fault = std::get_if<PreferencesDomainFault>(&domain)) {
    return posixError(POSIXErrorCode::NoEntry, {{NSLocalizedDescriptionKey, textOf(*fault)}});
  }
  if (changes.empty()) return {};
  const auto isSet = [](const Change& change) { return change.value.has_value(); };
  const bool mayCreate = std::any_of(changes.begin(), changes.end(), isSet);
  return changePreferencesFile(
      std::get<PreferencesPlace>(domain), mayCreate,
      [&changes](const PreferencesContent& old) { return changed(old, changes); });
}

}  // namespace

void CFPreferencesSetValue(const std::string& key, std::optional<Value> value,
                           const std::string& application, const std::string& user,
                           const std::string& host) {
  const std::tuple domain(application, user, host);
  auto pending = std::find_if(pendingDomains.begin(), pendingDomains.end(),
                              [&](const Pending& p) { return p.domain == domain; });
  if (pending == pendingDomains.end()) {
    pending = pendingDomains.insert(pending, Pending{domain, {}});
  }
  pending->changes.push_back({key, std::move(value)});
}

bool CFPreferencesSynchronize(const std::string& application, const std::string& user,
                              const std::string& host) {
  const std::vector<Change> changes = takePending({application, user, host});
  const Result<void> written = write(changes, placeOfPreferences(application, user, host));
  if (!written) {
    NSLog("Preferences of '%s' for user '%s' and host '%s' were not written: %s\n",
          singleLine(application).c_str(), singleLine(user).c_str(), singleLine(host).c_str(),
          singleLine(written.error().localizedDescription()).c_str());
  }
  return bool(written);
}

std::optional<PreferencesDomainFault> faultOfPreferencesDomain(const std::string& application,
                                                               const std::string& user,
                                                               const std::string& host) {
  const auto domain = placeOfPreferences(application, user, host);
  const auto* fault = std::get_if<PreferencesDomainFault>(&domain);
  return fault != nullptr ? std::optional(*fault) : std::nullopt;
}

std::optional<Value> CFPreferencesCopyValue(const std::string& key, const std::string& application,
                                            const std::string& user, const std::string& host) {
  const auto domain = placeOfPreferences(application, user, host);
  const auto* place = std::get_if<PreferencesPlace>(&domain);
  if (place == nullptr) return std::nullopt;
  const Result<PreferencesContent> content = readPreferencesFile(*place);
  if (!content) return std::nullopt;
  const Result<PropertyList> preferences = preferencesIn(*content);
  if (!preferences) return std::nullopt;
  const Value* value = preferences->root.dictionary()->find(key);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

}  // namespace corvane
