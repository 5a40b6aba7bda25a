#include "OperationQueue.h"

#include <algorithm>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/Pipe.h"

namespace corvane {

namespace {

// Output that waits to be told; what is beyond makes the helper wait.
constexpr std::size_t untoldOutput = std::size_t{1} << 20;

// Between two attempts to cancel what is about to begin.
constexpr std::chrono::milliseconds pauseBeforeRetry{10};

// The program's signals are for its own threads.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &_before);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &_before, nullptr); }

 private:
  sigset_t _before{};
};

}  // namespace

// The thread that performs the operations, and what it has to tell.
class OperationQueue::Worker {
 public:
  using Client = PrivilegedHelperClient;
  /// Performs an operation, and gives what tells its completion.
  using Work = std::function<std::function<void()>(Client&, const Feedback&)>;

  Worker(Client::Options options, Pipe pipe)
      : _client(std::move(options)), _pipe(std::move(pipe)), _thread(threadOf(&Worker::work)) {}

  ~Worker() {
    {
      const std::lock_guard lock(_mutex);
      _isEnding = true;
      _waiting.clear();
      cancelCurrent();
    }
    _changed.notify_all();
    _thread.join();
  }

  int descriptor() const { return _pipe.fileHandleForReading->fileDescriptor(); }

  Ticket add(Work work, std::function<void()> ifCancelled, Feedback feedback) {
    const std::lock_guard lock(_mutex);
    _waiting.push_back(
        {++_lastTicket, std::move(work), std::move(ifCancelled), std::move(feedback)});
    _changed.notify_all();
    return _lastTicket;
  }

  void cancel(Ticket ticket) {
    const std::lock_guard lock(_mutex);
    if (ticket == _current) return cancelCurrent();
    const auto found = std::ranges::find(_waiting, ticket, &Operation::ticket);
    if (found == _waiting.end()) return;
    if (!found->ifCancelled) return;
    tell({std::move(found->ifCancelled)});
    _waiting.erase(found);
  }

  void dispatch() {
    std::deque<Event> events;
    {
      const std::lock_guard lock(_mutex);
      if (_untold.empty()) return;
      (void)_pipe.fileHandleForReading->availableData();
      _isReadable = false;
      events = std::exchange(_untold, {});
      _outputSize = 0;
    }
    _changed.notify_all();
    for (const Event& event : events) event.tell();
  }

 private:
  struct Operation {
    Ticket ticket;
    Work work;
    std::function<void()> ifCancelled;
    Feedback feedback;
  };
  struct Event {
    enum class Kind { Whole, Object, Progress };

    std::function<void()> tell;
    Kind kind = Kind::Whole;  ///< of the others a later one takes the place of an earlier one
  };

  std::thread threadOf(void (Worker::*body)()) {
    const SignalsBlocked blocked;
    return std::thread(body, this);
  }

  void work() {
    std::unique_lock lock(_mutex);
    for (;;) {
      _changed.wait(lock, [this] { return _isEnding || !_waiting.empty(); });
      if (_isEnding) return;
      const Operation operation = std::move(_waiting.front());
      _waiting.pop_front();
      _current = operation.ticket;
      lock.unlock();
      auto completion = operation.work(_client, untoldFeedback(operation.feedback));
      lock.lock();
      _current = 0;
      if (_canceller.joinable()) {
        lock.unlock();
        _changed.notify_all();
        _canceller.join();
        lock.lock();
      }
      tell({std::move(completion)});
    }
  }

  // The helper is told on a thread of its own, as that waits for an answer.
  void cancelCurrent() {
    if (_current == 0 || _canceller.joinable()) return;
    try {
      _canceller = threadOf(&Worker::cancelUntilHeard);
    } catch (const std::system_error&) {
      // Without a thread left it goes on.
    }
  }

  void cancelUntilHeard() {
    std::unique_lock lock(_mutex);
    while (_current != 0) {
      lock.unlock();
      const auto isHeard = _client.cancelIfInProgress();
      lock.lock();
      if (!isHeard || *isHeard) return;
      _changed.wait_for(lock, pauseBeforeRetry, [this] { return _current == 0; });
    }
  }

  // With the lock.
  void tell(Event event) {
    if (event.kind != Event::Kind::Whole) dropLast(event.kind);
    _untold.push_back(std::move(event));
    if (std::exchange(_isReadable, true)) return;
    const char byte = 0;
    (void)!::write(_pipe.fileHandleForWriting->fileDescriptor(), &byte, 1);
  }

  void dropLast(Event::Kind kind) {
    for (auto event = _untold.end(); event != _untold.begin();) {
      --event;
      if (event->kind == Event::Kind::Whole) return;
      if (event->kind != kind) continue;
      _untold.erase(event);
      return;
    }
  }

  void tellOutput(const std::function<void(const Data&)>& function, const Data& chunk) {
    std::unique_lock lock(_mutex);
    _changed.wait(lock, [this] { return _isEnding || _outputSize < untoldOutput; });
    _outputSize += chunk.size();
    tell({[function, chunk] { function(chunk); }});
  }

  // What has the functions of `feedback` called by `dispatch`.
  Feedback untoldFeedback(const Feedback& feedback) {
    Feedback untold;
    if (const auto& function = feedback.progress) {
      untold.progress = [this, function](double fraction) {
        const std::lock_guard lock(_mutex);
        tell({[function, fraction] { function(fraction); }, Event::Kind::Progress});
      };
    }
    if (const auto& function = feedback.object) {
      untold.object = [this, function](const std::string& path) {
        const std::lock_guard lock(_mutex);
        tell({[function, path] { function(path); }, Event::Kind::Object});
      };
    }
    const auto output =
        [this](
            const std::function<void(const Data&)>& function) -> std::function<void(const Data&)> {
      if (!function) return {};
      return [this, function](const Data& chunk) { tellOutput(function, chunk); };
    };
    untold.output = output(feedback.output);
    untold.errorOutput = output(feedback.errorOutput);
    return untold;
  }

  Client _client;
  Pipe _pipe;
  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Operation> _waiting;
  Ticket _lastTicket = 0;
  Ticket _current = 0;  ///< 0 for none
  std::deque<Event> _untold;
  bool _isReadable = false;
  std::size_t _outputSize = 0;
  bool _isEnding = false;
  std::thread _canceller;
  std::thread _thread;
};

Result<std::unique_ptr<OperationQueue>> OperationQueue::make(
    PrivilegedHelperClient::Options options) {
  auto pipe = Pipe::pipe();
  if (!pipe) return posixError(POSIXErrorCode::TooManyOpenFiles);
  try {
    return std::unique_ptr<OperationQueue>(
        new OperationQueue(std::make_unique<Worker>(std::move(options), *std::move(pipe))));
  } catch (const std::system_error&) {
    return posixError(POSIXErrorCode::Again);
  }
}

OperationQueue::OperationQueue(std::unique_ptr<Worker> worker) : _worker(std::move(worker)) {}

OperationQueue::~OperationQueue() = default;

int OperationQueue::descriptor() const {
  return _worker->descriptor();
}

void OperationQueue::dispatch() {
  _worker->dispatch();
}

OperationQueue::Ticket OperationQueue::start(std::uint64_t code, std::vector<Value> arguments,
                                             const Completion<Answer<Outcome>>& completion,
                                             Feedback feedback) {
  const bool hasFeedback = feedback.progress || feedback.output || feedback.errorOutput;
  return _worker->add(
      [code, arguments = std::move(arguments), completion, hasFeedback](
          PrivilegedHelperClient& client, const Feedback& untold) -> std::function<void()> {
        auto outcome =
            client.perform(code, arguments, hasFeedback ? std::optional(untold) : std::nullopt);
        return [completion, outcome = std::move(outcome)] { completion(outcome); };
      },
      [completion] {
        completion(Outcome{.error = posixError(POSIXErrorCode::Canceled),
                           .wasAuthorized = false,
                           .wasCancelRequested = true});
      },
      std::move(feedback));
}

OperationQueue::Ticket OperationQueue::startDeletion(
    std::vector<std::string> paths, PrivilegedHelperClient::DeletionOptions options,
    const Completion<DeletionOutcome>& completion, Feedback feedback) {
  const bool hasFeedback = feedback.progress || feedback.object;
  DeletionOutcome cancelled;
  cancelled.answer = Outcome{.error = posixError(POSIXErrorCode::Canceled),
                             .wasAuthorized = false,
                             .wasCancelRequested = true};
  for (const std::string& path : paths) cancelled.left.push_back({path, std::nullopt});
  return _worker->add(
      [paths = std::move(paths), options, completion, hasFeedback](
          PrivilegedHelperClient& client, const Feedback& untold) -> std::function<void()> {
        auto outcome = client.deleteFileObjects(paths, options,
                                                hasFeedback ? std::optional(untold) : std::nullopt);
        return [completion, outcome = std::move(outcome)] { completion(outcome); };
      },
      [completion, cancelled = std::move(cancelled)] { completion(cancelled); },
      std::move(feedback));
}

OperationQueue::Ticket OperationQueue::startQuery(
    std::uint64_t code, const Completion<Answer<AuthorizationState>>& completion) {
  return _worker->add(
      [code, completion](PrivilegedHelperClient& client,
                         const Feedback& /*untold*/) -> std::function<void()> {
        auto state = client.queryAuthorization(code);
        return [completion, state = std::move(state)] { completion(state); };
      },
      {}, {});
}

void OperationQueue::cancel(Ticket ticket) {
  _worker->cancel(ticket);
}

}  // namespace corvane
