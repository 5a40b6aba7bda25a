#include "platform/Preferences.h"

#include <mutex>

#include "foundation/NoDestructor.h"
#include "platform/macos/preferences/PendingChanges.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

// The system keeps pending changes for all of a process, and writes or forgets them by domain: what
// one thread hands over and has written, no other may come between.
std::mutex& systemLock() {
  static NoDestructor<std::mutex> lock;
  return *lock;
}

struct Constant {
  std::string_view text;
  CFStringRef object;
};

// One part of a domain; nil for a text that is none.
CFStringRef domainPart(const std::string& text, std::initializer_list<Constant> constants,
                       NSString* __strong& owner) {
  for (const Constant& constant : constants) {
    if (text == constant.text) return constant.object;
  }
  // The system takes no empty name for one.
  owner = text.empty() ? nil : objectFromText(text);
  return (__bridge CFStringRef)owner;
}

// A domain in the system's terms. The names are held for as long as this is.
struct SystemDomain {
  explicit SystemDomain(const PreferencesDomain& domain)
      : application(domainPart(domain.application,
                               {{kCFPreferencesAnyApplication, ::kCFPreferencesAnyApplication}},
                               names[0])),
        user(domainPart(domain.user,
                        {{kCFPreferencesAnyUser, ::kCFPreferencesAnyUser},
                         {kCFPreferencesCurrentUser, ::kCFPreferencesCurrentUser}},
                        names[1])),
        host(domainPart(domain.host,
                        {{kCFPreferencesAnyHost, ::kCFPreferencesAnyHost},
                         {kCFPreferencesCurrentHost, ::kCFPreferencesCurrentHost}},
                        names[2])) {}

  bool exists() const { return application != nullptr && user != nullptr && host != nullptr; }

  NSString* names[3] = {nil, nil, nil};
  CFStringRef application;
  CFStringRef user;
  CFStringRef host;
};

// A change as objects; nothing if the system could not hold it.
struct SystemChange {
  NSString* key;
  id value;
};
std::optional<std::vector<SystemChange>> systemChanges(
    const std::vector<PreferenceChange>& changes) {
  std::vector<SystemChange> result;
  for (const PreferenceChange& change : changes) {
    NSString* const key = objectFromText(change.key);
    const id value = change.value ? objectFromValue(*change.value) : nil;
    if (key == nil || (change.value && value == nil)) return std::nullopt;
    result.push_back({key, value});
  }
  return result;
}

}  // namespace

void CFPreferencesSetValue(const std::string& key, std::optional<Value> value,
                           const std::string& application, const std::string& user,
                           const std::string& host) {
  addPendingChange({application, user, host}, {key, std::move(value)});
}

bool CFPreferencesSynchronize(const std::string& application, const std::string& user,
                              const std::string& host) {
  const PreferencesDomain named{application, user, host};
  const std::vector<PreferenceChange> pending = takePendingChanges(named);
  return guarded([&] {
    const SystemDomain domain(named);
    const auto changes = systemChanges(pending);
    if (!domain.exists() || !changes) return false;
    const std::lock_guard lock(systemLock());
    for (const SystemChange& change : *changes) {
      ::CFPreferencesSetValue((__bridge CFStringRef)change.key, (__bridge CFTypeRef)change.value,
                              domain.application, domain.user, domain.host);
    }
    return ::CFPreferencesSynchronize(domain.application, domain.user, domain.host) != 0;
  });
}

std::optional<PreferencesDomainFault> faultOfPreferencesDomain(const std::string& application,
                                                               const std::string& user,
                                                               const std::string& host) {
  // What else there is to it, the system keeps to itself.
  return guarded([&]() -> std::optional<PreferencesDomainFault> {
    const SystemDomain domain({application, user, host});
    if (domain.application == nullptr) return PreferencesDomainFault::ApplicationIdentifier;
    if (domain.user == nullptr) return PreferencesDomainFault::User;
    if (domain.host == nullptr) return PreferencesDomainFault::Host;
    return std::nullopt;
  });
}

std::optional<Value> CFPreferencesCopyValue(const std::string& key, const std::string& application,
                                            const std::string& user, const std::string& host) {
  return guarded([&]() -> std::optional<Value> {
    const SystemDomain domain({application, user, host});
    NSString* const name = objectFromText(key);
    if (!domain.exists() || name == nil) return std::nullopt;
    const std::lock_guard lock(systemLock());
    const id value = (__bridge_transfer id)::CFPreferencesCopyValue(
        (__bridge CFStringRef)name, domain.application, domain.user, domain.host);
    return valueFromObject(value);
  });
}

}  // namespace corvane
