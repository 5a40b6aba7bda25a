#include "privilegedhelper-vnt/RunningRequests.h"

#include <vector>

namespace corvane {

RunningRequests::Entry::Entry(RunningRequests& requests, std::uint32_t user,
                              const std::string& token)
    : _requests(requests) {
  const std::lock_guard guard(_requests._lock);
  _place = _requests._requests.emplace(token, Request{user, {}});
}

RunningRequests::Entry::~Entry() {
  const std::lock_guard guard(_requests._lock);
  _requests._requests.erase(_place);
}

bool RunningRequests::cancel(std::uint32_t user, const std::string& token) {
  std::vector<std::stop_source> meant;
  {
    const std::lock_guard guard(_lock);
    const auto [first, last] = _requests.equal_range(token);
    for (auto request = first; request != last; ++request) {
      if (user == 0 || user == request->second.user) meant.push_back(request->second.stop);
    }
  }
  // What an operation does about it must not hold up others that begin or end.
  for (std::stop_source& stop : meant) stop.request_stop();
  return !meant.empty();
}

}  // namespace corvane
