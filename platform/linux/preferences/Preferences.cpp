#include "platform/Preferences.h"

#include <algorithm>
#include <cerrno>
#include <tuple>
#include <utility>
#include <vector>

#include "foundation/POSIXError.h"
#include "foundation/PropertyList.h"
#include "platform/StandardLog.h"
#include "platform/linux/log/LogText.h"
#include "platform/linux/preferences/PreferencesFile.h"
#include "platform/linux/preferences/PreferencesPlace.h"

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

/// The preferences in `content`, none if there is no file; or why it cannot be read.
std::variant<PropertyList, Error> preferencesIn(const std::optional<Data>& content) {
  if (!content) return PropertyList{Dictionary(), PropertyListFormat::XML};
  std::variant<PropertyList, Error> list = readPropertyList(*content);
  const auto* read = std::get_if<PropertyList>(&list);
  if (read != nullptr && read->root.dictionary() == nullptr) {
    return Error(NSCocoaErrorDomain, NSPropertyListReadCorruptError,
                 Dictionary{{std::string(NSLocalizedDescriptionKey), "There is no dictionary."}});
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

/// Makes the changes in the file of `place`; what went wrong is an error.
std::optional<std::string> write(const std::vector<Change>& changes,
                                 const PreferencesPlace& place) {
  const auto isSet = [](const Change& change) { return change.value.has_value(); };
  const bool mayCreate = std::any_of(changes.begin(), changes.end(), isSet);
  std::optional<std::string> problem;
  const int failure = changePreferencesFile(
      place, mayCreate, [&](const std::optional<Data>& content) -> std::optional<Data> {
        const auto fail = [&problem](const Error& error) {
          problem = error.localizedDescription();
          return std::nullopt;
        };
        auto list = preferencesIn(content);
        if (const Error* error = std::get_if<Error>(&list)) return fail(*error);
        auto& [root, format] = std::get<PropertyList>(list);
        if (!apply(changes, *root.as<Dictionary>())) return std::nullopt;
        auto written = writePropertyList(root, format == PropertyListFormat::Binary
                                                   ? PropertyListFormat::Binary
                                                   : PropertyListFormat::XML);
        if (const Error* error = std::get_if<Error>(&written)) return fail(*error);
        return std::move(std::get<Data>(written));
      });
  if (failure != 0) return posixDescription(posixCodeFromHost(failure));
  return problem;
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
  std::optional<std::string> problem;
  if (const auto place = placeOfPreferences(application, user, host); !place) {
    problem = "There is no such domain.";
  } else if (!changes.empty()) {
    problem = write(changes, *place);
  }
  if (problem) {
    NSLog("Preferences of '%s' for user '%s' and host '%s' were not written: %s\n",
          singleLine(application).c_str(), singleLine(user).c_str(), singleLine(host).c_str(),
          singleLine(*problem).c_str());
  }
  return !problem;
}

std::optional<Value> CFPreferencesCopyValue(const std::string& key, const std::string& application,
                                            const std::string& user, const std::string& host) {
  const auto place = placeOfPreferences(application, user, host);
  if (!place) return std::nullopt;
  const PreferencesContent content = readPreferencesFile(*place);
  const auto* data = std::get_if<std::optional<Data>>(&content);
  if (data == nullptr) return std::nullopt;
  const auto list = preferencesIn(*data);
  const auto* preferences = std::get_if<PropertyList>(&list);
  if (preferences == nullptr) return std::nullopt;
  const Value* value = preferences->root.dictionary()->find(key);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

}  // namespace corvane
