#ifndef CORVANE_CLIENT_OPERATIONQUEUE_H
#define CORVANE_CLIENT_OPERATIONQUEUE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PrivilegedHelperClient.h"

namespace corvane {

/// Has the privileged helper carry out operations for a program with an event loop, which waits for
/// none of them: they are performed one after another, in the order in which they were started, and
/// everything that there is to tell of them is told by `dispatch`, on the thread that calls it.
///
///     loop.whenReadable(queue->descriptor(), [&] { queue->dispatch(); });
///     queue->start(codeOfOperation, {"argument"}, [](const auto& outcome) { … });
///
/// `start` and `cancel` may be called by any thread, from within a callback too, and never wait for
/// the helper. All else is for one thread, and not for a callback. Several queues work at the same
/// time.
class OperationQueue {
 public:
  using Outcome = PrivilegedHelperClient::Outcome;
  using DeletionOutcome = PrivilegedHelperClient::DeletionOutcome;
  using Feedback = PrivilegedHelperClient::Feedback;

  /// What an operation is known by; never 0.
  using Ticket = std::uint64_t;

  /// Called once for each operation, after all of its feedback. Must not throw; the same goes for
  /// the functions of a `Feedback`.
  template <typename T>
  using Completion = std::function<void(const T& outcome)>;

  /// `options` is as for the client that waits; only `beforeAskingOnTerminal` is called on a thread
  /// of the queue's. EMFILE (24) if this process has no descriptor left, EAGAIN (35) if it has no
  /// thread.
  static Result<std::unique_ptr<OperationQueue>> make(PrivilegedHelperClient::Options options);
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;
  /// Forgets what has not begun, and cancels what has and waits for its end. Nothing is called any
  /// more.
  ~OperationQueue();

  /// Becomes readable when `dispatch` has something to tell, and stays so until it has. It stays
  /// the queue's and is for nothing else.
  int descriptor() const;

  /// Calls the callbacks of what has happened since the last time; returns at once if nothing has.
  /// A program that leaves a mebibyte of output untold for ten seconds loses what follows it
  /// (`Outcome::hasLostFeedback`); of progress it is told the last alone.
  void dispatch();

  /// Starts the operation `code` with its arguments, as `PrivilegedHelperClient::perform`.
  Ticket start(std::uint64_t code, std::vector<Value> arguments,
               const Completion<Answer<Outcome>>& completion, Feedback feedback = {});
  /// As `PrivilegedHelperClient::deleteFileObjects`.
  Ticket startDeletion(std::vector<std::string> paths,
                       PrivilegedHelperClient::DeletionOptions options,
                       const Completion<DeletionOutcome>& completion, Feedback feedback = {});
  /// As `PrivilegedHelperClient::queryAuthorization`.
  Ticket startQuery(std::uint64_t code, const Completion<Answer<AuthorizationState>>& completion);

  /// Has an operation end at its next safe point, or before it begins, with ECANCELED (89): it is
  /// completed like any other. Nothing happens if it has ended, or if it is a query.
  void cancel(Ticket ticket);

 private:
  class Worker;

  explicit OperationQueue(std::unique_ptr<Worker> worker);

  std::unique_ptr<Worker> _worker;
};

}  // namespace corvane

#endif
