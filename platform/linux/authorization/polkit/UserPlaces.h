#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_USERPLACES_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_USERPLACES_H

#include <map>
#include <mutex>

#include <sys/types.h>

#include "platform/linux/transport/Accounts.h"

namespace corvane {

/// Places of which each user has so many: polkit, the bus and the agents do only so much at a time,
/// and one user is not to take what there is for all. Users of one account have its places
/// together. Root is not limited. Any thread.
class UserPlaces {
 public:
  explicit UserPlaces(int mostOfOneUser) : _mostOfOneUser(mostOfOneUser) {}

  /// One place, from when it is taken to its destruction.
  class Place {
   public:
    /// Takes it if the user has one left.
    Place(UserPlaces& places, uid_t user);
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place();

    bool isTaken() const { return _isTaken; }
    /// Tries again if it was not taken; whether it is now.
    bool take();

   private:
    UserPlaces& _places;
    const uid_t _account;
    bool _isTaken = false;
  };

 private:
  bool take(uid_t account);
  void giveBack(uid_t account);

  const int _mostOfOneUser;
  Accounts _accounts;
  std::mutex _lock;
  std::map<uid_t, int> _taken;
};

}  // namespace corvane

#endif
