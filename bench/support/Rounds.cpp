#include "bench/support/Rounds.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <utility>

namespace corvane::bench {

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

Contender perCall(std::string name, int calls, std::function<void()> call) {
  return {std::move(name), [calls, call = std::move(call)] {
            return 1e6 / calls * secondsFor([&] {
                     for (int i = 0; i < calls; ++i) call();
                   });
          }};
}

void compare(const Contender& ours, const Contender& rival, int rounds, const char* unit,
             double atMost) {
  std::vector<double> oursCosts;
  std::vector<double> rivalCosts;
  std::vector<double> ratios;
  for (int round = 0; round <= rounds; ++round) {
    const double oursCost = ours.run();
    const double rivalCost = rival.run();
    if (round == 0) continue;
    oursCosts.push_back(oursCost);
    rivalCosts.push_back(rivalCost);
    ratios.push_back(oursCost / rivalCost);
  }
  std::printf("%-44s %10.2f %s\n", ours.name.c_str(), median(oursCosts), unit);
  std::printf("%-44s %10.2f %s\n", rival.name.c_str(), median(rivalCosts), unit);
  std::printf("%-44s %10.2f (at most %.2f)\n\n", "ratio", median(ratios), atMost);
}

double secondsFor(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace corvane::bench
