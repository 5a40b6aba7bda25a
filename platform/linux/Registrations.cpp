#include "platform/linux/Registrations.h"

#include "platform/StandardLog.h"

namespace corvane {

bool Registrations::add(uid_t user, std::int32_t number) {
  const auto entry = _users.find(number);
  if (entry != _users.end() && entry->second.contains(user)) return true;
  const auto count = _counts.find(user);
  if (user != 0 && count != _counts.end() && count->second >= maximumOfUser) return false;
  _users[number].insert(user);
  ++_counts[user];
  return true;
}

bool Registrations::remove(uid_t user, std::int32_t number) {
  const auto entry = _users.find(number);
  if (entry == _users.end()) return true;
  std::set<uid_t>& users = entry->second;
  if (user == 0) {
    for (const uid_t registered : users) forget(registered);
    _users.erase(entry);
    return true;
  }
  if (users.erase(user) == 0) {
    noteForeign(user, number);
    return false;
  }
  forget(user);
  // Whoever registers a number of another user and takes that back changes nothing for the other.
  if (!users.empty()) return false;
  _users.erase(entry);
  return true;
}

void Registrations::forget(uid_t user) {
  const auto count = _counts.find(user);
  if (--count->second == 0) _counts.erase(count);
}

void Registrations::noteForeign(uid_t user, std::int32_t number) {
  if (!_noted.insert(user).second) return;
  NSLog(
      "User %u asked to unregister client %d, which only other users registered. This and what "
      "follows of the kind from this user is ignored.\n",
      user, number);
}

}  // namespace corvane
