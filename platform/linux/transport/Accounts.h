#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_ACCOUNTS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_ACCOUNTS_H

#include <mutex>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace corvane {

/// Whose share a user takes. An account that has been given a range of subordinate users can be any
/// of them (in a user namespace of its own), so all of them are one with it. Any thread.
class Accounts {
 public:
  /// Files of the formats of subuid(5) and passwd(5). Either may be missing.
  explicit Accounts(std::string subordinateUsersPath = "/etc/subuid",
                    std::string usersPath = "/etc/passwd");

  /// The account that `user` is charged to: the one that owns it as a subordinate user, else the
  /// user itself. Root, and what root owns, are themselves. An owner that the file of users does
  /// not know is stood for by the first user of its range. The ranges are read anew when their file
  /// has changed; no more of it is looked at than an administrator would ever write.
  uid_t accountOf(uid_t user);

 private:
  struct Range {
    uid_t first;
    uid_t last;
    uid_t account;
  };

  void readIfChanged();

  const std::string _subordinateUsersPath;
  const std::string _usersPath;
  std::mutex _mutex;
  struct stat _seen {};
  std::vector<Range> _ranges;
};

}  // namespace corvane

#endif
