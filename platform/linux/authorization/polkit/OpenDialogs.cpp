#include "platform/linux/authorization/polkit/OpenDialogs.h"

#include "platform/linux/transport/SubordinateUsers.h"

namespace corvane {

OpenDialogs::Place::Place(OpenDialogs& dialogs, uid_t user)
    : _dialogs(dialogs), _owner(ownerOfSubordinateUser(user)), _isTaken(dialogs.take(_owner)) {}

OpenDialogs::Place::~Place() {
  if (_isTaken) _dialogs.giveBack(_owner);
}

bool OpenDialogs::take(uid_t owner) {
  const std::lock_guard guard(_lock);
  int& open = _open[owner];
  if (owner != 0 && open == mostOfOneUser) return false;
  ++open;
  return true;
}

void OpenDialogs::giveBack(uid_t owner) {
  const std::lock_guard guard(_lock);
  const auto open = _open.find(owner);
  if (--open->second == 0) _open.erase(open);
}

}  // namespace corvane
