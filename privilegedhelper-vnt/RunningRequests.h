#ifndef CORVANE_PRIVILEGEDHELPER_VNT_RUNNINGREQUESTS_H
#define CORVANE_PRIVILEGEDHELPER_VNT_RUNNINGREQUESTS_H

#include <cstdint>
#include <map>
#include <mutex>
#include <stop_token>
#include <string>

namespace corvane {

/// The requests in progress that can be cancelled, by the tokens that their clients gave them. Each
/// connection has one request at most, so there are no more of them than connections. Any thread.
class RunningRequests {
  struct Request {
    std::uint32_t user;
    std::stop_source stop;
  };
  using Requests = std::multimap<std::string, Request>;

 public:
  /// One request, which can be cancelled from its construction to its destruction.
  class Entry {
   public:
    /// `requests` is borrowed.
    Entry(RunningRequests& requests, std::uint32_t user, const std::string& token);
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry();

    /// Says when the request has been cancelled.
    std::stop_token stop() const { return _place->second.stop.get_token(); }

   private:
    RunningRequests& _requests;
    Requests::iterator _place;
  };

  /// Cancels every request of `user`, or of anybody for root, that has this token: a user who gives
  /// it to several means them all. False if there is none.
  bool cancel(std::uint32_t user, const std::string& token);

 private:
  std::mutex _lock;
  Requests _requests;
};

}  // namespace corvane

#endif
