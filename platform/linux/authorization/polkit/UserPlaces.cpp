#include "platform/linux/authorization/polkit/UserPlaces.h"

namespace corvane {

UserPlaces::Place::Place(UserPlaces& places, uid_t user)
    : _places(places), _account(places._accounts.accountOf(user)) {
  take();
}

UserPlaces::Place::~Place() {
  if (_isTaken) _places.giveBack(_account);
}

bool UserPlaces::Place::take() {
  _isTaken = _isTaken || _places.take(_account);
  return _isTaken;
}

bool UserPlaces::take(uid_t account) {
  const std::lock_guard guard(_lock);
  int& taken = _taken[account];
  if (account != 0 && taken == _mostOfOneUser) return false;
  ++taken;
  return true;
}

void UserPlaces::giveBack(uid_t account) {
  const std::lock_guard guard(_lock);
  const auto taken = _taken.find(account);
  if (--taken->second == 0) _taken.erase(taken);
}

}  // namespace corvane
