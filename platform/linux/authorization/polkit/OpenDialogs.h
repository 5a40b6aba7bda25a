#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_OPENDIALOGS_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_OPENDIALOGS_H

#include <map>
#include <mutex>

#include <sys/types.h>

namespace corvane {

/// How many dialogs each user has open: polkit, the bus and the agents can have so many open at a
/// time, and one user's are not to take the places of all others. A subordinate user is the one
/// whose range it belongs to. Root is not limited. Any thread.
class OpenDialogs {
 public:
  static constexpr int mostOfOneUser = 4;

  /// One dialog's place, from its construction to its destruction.
  class Place {
   public:
    Place(OpenDialogs& dialogs, uid_t user);
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place();

    /// False if the user has as many dialogs open as one may have.
    bool isTaken() const { return _isTaken; }

   private:
    OpenDialogs& _dialogs;
    const uid_t _owner;
    const bool _isTaken;
  };

 private:
  bool take(uid_t owner);
  void giveBack(uid_t owner);

  std::mutex _lock;
  std::map<uid_t, int> _open;
};

}  // namespace corvane

#endif
