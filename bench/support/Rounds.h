#ifndef CORVANE_BENCH_SUPPORT_ROUNDS_H
#define CORVANE_BENCH_SUPPORT_ROUNDS_H

#include <functional>
#include <string>
#include <vector>

namespace corvane::bench {

double median(std::vector<double> values);

/// Something to measure: `run` does it once and returns what it cost.
struct Contender {
  std::string name;
  std::function<double()> run;
};

/// A contender that calls `call` `calls` times and whose cost is the microseconds of one of them.
Contender perCall(std::string name, int calls, std::function<void()> call);

/// Runs both in turn, `rounds` times after a round that does not count, and prints both medians in
/// `unit` and the median of the ratios, round by round, with the ratio that is aimed at.
void compare(const Contender& ours, const Contender& rival, int rounds, const char* unit,
             double atMost);

/// The seconds that `action` takes.
double secondsFor(const std::function<void()>& action);

}  // namespace corvane::bench

#endif
