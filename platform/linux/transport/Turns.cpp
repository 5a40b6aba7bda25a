#include "platform/linux/transport/Turns.h"

namespace corvane {

Turns::Turn::Turn(Turns& turns, uid_t account) : _turns(&turns), _account(account) {
  if (_account != 0) _turns->take(*this, _account);
}

Turns::Turn::~Turn() {
  if (_account != 0) _turns->giveBack(*this, _account);
}

void Turns::take(const Turn& turn, uid_t account) {
  std::unique_lock lock(_mutex);
  auto& [taken, waiting] = _accounts[account];
  std::condition_variable called;
  waiting.push_back(&called);
  for (;;) {
    // The first in the row looks at the time for all.
    if (waiting.front() != &called) {
      called.wait(lock);
      continue;
    }
    std::erase_if(taken, [now = Clock::now()](const Taken& one) { return one.end <= now; });
    if (taken.size() < atOnce) break;
    called.wait_until(lock, taken.front().end);
  }
  waiting.pop_front();
  taken.push_back({&turn, Clock::now() + _duration});
  if (!waiting.empty()) waiting.front()->notify_one();
}

void Turns::giveBack(const Turn& turn, uid_t account) {
  const std::lock_guard lock(_mutex);
  const auto entry = _accounts.find(account);
  // It may have lasted so long that the account has gone without it.
  if (entry == _accounts.end()) return;
  auto& [taken, waiting] = entry->second;
  std::erase_if(taken, [&turn](const Taken& one) { return one.turn == &turn; });
  if (!waiting.empty()) {
    waiting.front()->notify_one();
  } else if (taken.empty()) {
    _accounts.erase(entry);
  }
}

}  // namespace corvane
