#ifndef CORVANE_BENCH_SUPPORT_ISSUER_H
#define CORVANE_BENCH_SUPPORT_ISSUER_H

#include <string>

#include <sys/types.h>

namespace corvane::bench {

/// The issuer of authorizations, started in a folder, with the keys that a program started by
/// `SocketActivation` uses. Everybody may connect. Failures throw.
class Issuer {
 public:
  explicit Issuer(const std::string& folder);
  Issuer(const Issuer&) = delete;
  Issuer& operator=(const Issuer&) = delete;
  ~Issuer();

  const std::string& socketPath() const { return _socketPath; }

 private:
  std::string _socketPath;
  pid_t _process;
};

}  // namespace corvane::bench

#endif
