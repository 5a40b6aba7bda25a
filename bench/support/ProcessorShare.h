#ifndef CORVANE_BENCH_SUPPORT_PROCESSORSHARE_H
#define CORVANE_BENCH_SUPPORT_PROCESSORSHARE_H

#include <string>

namespace corvane::bench {

/// Processes that have one share of the processor together, however many they are, as under systemd
/// a service has one and all that a user runs: a control group. Needs root. Failures throw.
class ProcessorShare {
 public:
  /// The name is for whoever looks.
  explicit ProcessorShare(const std::string& name);
  ProcessorShare(const ProcessorShare&) = delete;
  ProcessorShare& operator=(const ProcessorShare&) = delete;
  /// Its processes have ended by then.
  ~ProcessorShare();

  /// While it is there, this process has that share, and what it starts has it for good.
  class Taken {
   public:
    explicit Taken(const ProcessorShare& share);
    Taken(const Taken&) = delete;
    Taken& operator=(const Taken&) = delete;
    ~Taken();

   private:
    std::string _before;
  };

 private:
  std::string _group;
};

}  // namespace corvane::bench

#endif
