#ifndef CORVANE_BENCH_SUPPORT_BYSTANDER_H
#define CORVANE_BENCH_SUPPORT_BYSTANDER_H

#include <functional>
#include <memory>

#include <sys/types.h>

#include "bench/support/UserProcess.h"

namespace corvane::bench {

/// What the calls of a bystander took, in milliseconds.
struct Latencies {
  double median;
  double percentile99;
  double longest;
  long calls;
  /// Those that threw.
  long failures;
};

/// A process of a user that makes a call again and again, with a pause between two, and notes how
/// long each takes.
class Bystander {
 public:
  using Call = UserProcess::Action;

  /// `prepare` is run once in the process and makes the call.
  Bystander(uid_t user, const std::function<Call()>& prepare);

  /// Those of the calls so far. One that is still waiting counts with what it has waited.
  Latencies latencies() const;

 private:
  struct Notes;
  struct Unmap {
    void operator()(Notes* notes) const;
  };

  std::unique_ptr<Notes, Unmap> _notes;
  UserProcess _process;
};

}  // namespace corvane::bench

#endif
