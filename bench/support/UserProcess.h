#ifndef CORVANE_BENCH_SUPPORT_USERPROCESS_H
#define CORVANE_BENCH_SUPPORT_USERPROCESS_H

#include <functional>

#include <sys/types.h>

namespace corvane::bench {

/// A process of a user that does what it is given until this object goes, or it is done. Needs
/// root.
class UserProcess {
 public:
  using Action = std::function<void()>;

  /// `prepare` is run in the process, and makes what it does from then on; this waits until it has.
  UserProcess(uid_t user, const std::function<Action()>& prepare);
  UserProcess(UserProcess&& other) noexcept;
  UserProcess& operator=(UserProcess&&) = delete;
  ~UserProcess();

  pid_t number() const { return _number; }

 private:
  pid_t _number;
};

}  // namespace corvane::bench

#endif
