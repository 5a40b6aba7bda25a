#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/Authorization.h"
#include "platform/macos/authorization/SystemRights.h"

namespace corvane {

namespace {

// What is asked for, as a copy: who asked may be gone before the answer comes.
class ItemSet {
 public:
  explicit ItemSet(const AuthorizationItemSet* set) : _isThere(set != nullptr) {
    if (set == nullptr) return;
    _names.reserve(set->count);
    _values.reserve(set->count);
    for (std::uint32_t i = 0; i < set->count; ++i) {
      const AuthorizationItem& item = set->items[i];
      _names.emplace_back(item.name);
      _values.emplace_back(static_cast<const char*>(item.value),
                           item.value != nullptr ? item.valueLength : 0);
      _items.push_back({_names.back().c_str(), item.valueLength,
                        item.value != nullptr ? _values.back().data() : nullptr, item.flags});
    }
    _set = {static_cast<std::uint32_t>(_items.size()), _items.data()};
  }
  ItemSet(const ItemSet&) = delete;
  ItemSet& operator=(const ItemSet&) = delete;

  const AuthorizationItemSet* get() const { return _isThere ? &_set : nullptr; }

 private:
  bool _isThere;
  std::vector<std::string> _names;
  std::vector<std::string> _values;
  std::vector<AuthorizationItem> _items;
  AuthorizationItemSet _set{};
};

// One question to the system, shared by who asks it and who waits for the answer.
class Request {
 public:
  Request(AuthorizationRef authorization, const AuthorizationRights* rights,
          const AuthorizationEnvironment* environment, AuthorizationFlags flags)
      : _authorization(authorization), _rights(rights), _environment(environment), _flags(flags) {}
  Request(const Request&) = delete;
  Request& operator=(const Request&) = delete;
  ~Request() { AuthorizationFree(_authorization, kAuthorizationFlagDefaults); }

  void ask() {
    const OSStatus status =
        AuthorizationCopyRights(_authorization, _rights.get(), _environment.get(), _flags, nullptr);
    const std::lock_guard lock(_mutex);
    _status = status;
    _answered.notify_all();
  }

  OSStatus wait(const std::stop_token& stop) {
    const std::stop_callback wake(stop, [this] {
      const std::lock_guard lock(_mutex);
      _answered.notify_all();
    });
    std::unique_lock lock(_mutex);
    _answered.wait(lock, [&] { return _status || stop.stop_requested(); });
    return _status.value_or(errAuthorizationCanceled);
  }

 private:
  AuthorizationRef _authorization;
  ItemSet _rights;
  ItemSet _environment;
  AuthorizationFlags _flags;

  std::mutex _mutex;
  std::condition_variable _answered;
  std::optional<OSStatus> _status;
};

// Another reference to the same authorization, which is freed for itself.
OSStatus duplicate(AuthorizationRef authorization, AuthorizationRef* copy) {
  AuthorizationExternalForm form{};
  const OSStatus status = systemExternalForm(authorization, form.bytes);
  if (status != errAuthorizationSuccess) return status;
  return AuthorizationCreateFromExternalForm(&form, copy);
}

}  // namespace

// The system has no way to take a question back: its dialog stays until somebody answers it, and
// nothing comes of the answer.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights,
                                 const std::stop_token& stop) {
  const bool mayWait = (flags & kAuthorizationFlagInteractionAllowed) != 0;
  if (!stop.stop_possible() || !mayWait) {
    return AuthorizationCopyRights(authorization, rights, environment, flags, authorizedRights);
  }
  AuthorizationRef copy = nullptr;
  const OSStatus status = duplicate(authorization, &copy);
  if (status != errAuthorizationSuccess) return status;
  const auto request = std::make_shared<Request>(copy, rights, environment, flags);
  try {
    std::thread([request] { request->ask(); }).detach();
  } catch (const std::system_error&) {
    return errAuthorizationInternal;
  }
  return request->wait(stop);
}

bool AuthorizationCanShowDialog(AuthorizationRef /*authorization*/) {
  // The system does not tell in whose session it would show one.
  return true;
}

}  // namespace corvane
