#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_REGISTRATIONS_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_REGISTRATIONS_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include <sys/types.h>

namespace corvane {

/// Which users registered which numbers with the helper, so that nobody takes out what only others
/// put in, and one account does not fill the registry. Root is free of both. Used under the lock of
/// `Arrivals` for registrations.
class Registrations {
 public:
  /// How many numbers an account may have registered.
  static constexpr std::size_t maximumOfAccount = 128;

  /// Notes that the user registers the number, at the expense of the account. False if that has as
  /// many as it may have: then the registry is not told.
  bool add(uid_t user, uid_t account, std::int32_t number);
  /// Notes that the user unregisters the number, whether or not it had registered it. False if the
  /// registration of another user stands: then the registry is not told. The first time that a
  /// user tries this with a number that it had not registered is logged.
  bool remove(uid_t user, std::int32_t number);
  /// Whether nobody is registered any more once the user has unregistered the number.
  bool wouldBeEmptyWithout(uid_t user, std::int32_t number) const;
  std::vector<std::int32_t> numbers() const;

 private:
  using Users = std::map<uid_t, uid_t>;  ///< with their accounts

  void giveBack(uid_t account);
  void noteForeign(uid_t user, std::int32_t number);

  std::map<std::int32_t, Users> _users;
  std::map<uid_t, std::size_t> _counts;
  std::set<uid_t> _noted;
};

}  // namespace corvane

#endif
