#include "platform/linux/transport/Registrations.h"

#include "platform/StandardLog.h"

namespace corvane {

bool Registrations::add(uid_t user, uid_t account, std::int32_t number) {
  const auto entry = _users.find(number);
  if (entry != _users.end() && entry->second.contains(user)) return true;
  const auto count = _counts.find(account);
  if (account != 0 && count != _counts.end() && count->second >= maximumOfAccount) return false;
  _users[number].emplace(user, account);
  ++_counts[account];
  return true;
}

bool Registrations::remove(uid_t user, std::int32_t number) {
  const auto entry = _users.find(number);
  if (entry == _users.end()) return true;
  Users& users = entry->second;
  if (user == 0) {
    for (const auto& [registered, account] : users) giveBack(account);
    _users.erase(entry);
    return true;
  }
  const auto own = users.find(user);
  if (own == users.end()) {
    noteForeign(user, number);
    return false;
  }
  giveBack(own->second);
  users.erase(own);
  // Another user has registered the same number, and that stays.
  if (!users.empty()) return false;
  _users.erase(entry);
  return true;
}

bool Registrations::wouldBeEmptyWithout(uid_t user, std::int32_t number) const {
  if (_users.size() != 1) return _users.empty();
  const auto& [only, users] = *_users.begin();
  return only == number && (user == 0 || (users.size() == 1 && users.contains(user)));
}

std::vector<std::int32_t> Registrations::numbers() const {
  std::vector<std::int32_t> numbers;
  for (const auto& [number, users] : _users) numbers.push_back(number);
  return numbers;
}

void Registrations::giveBack(uid_t account) {
  const auto count = _counts.find(account);
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
