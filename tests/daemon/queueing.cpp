// Performs operations through a queue whose descriptor it polls, and prints a line for each
// callback:
//   queueing SOCKET AUTHORIZATION-SOCKET APPLICATION FOLDER CASE
#include <cstdio>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <thread>

#include <poll.h>
#include <unistd.h>

#include "OperationQueue.h"
#include "operations/OperationCodes.h"

using namespace corvane;

namespace {

using Outcome = OperationQueue::Outcome;

std::thread::id mainThread;
int waiting = 0;  // completions that are to come

void tell(const std::string& what) {
  const bool isOnMainThread = std::this_thread::get_id() == mainThread;
  std::printf("%s%s\n", what.c_str(), isOnMainThread ? "" : " on another thread");
}

void tellOutcome(const std::string& name, const Answer<Outcome>& outcome) {
  --waiting;
  if (!outcome) return tell(name + " nobody");
  tell(name + " " + (outcome->error ? std::to_string(outcome->error->code()) : "done") +
       (outcome->hasLostFeedback ? " lost" : ""));
}

OperationQueue::Completion<Answer<Outcome>> toldAs(const std::string& name) {
  ++waiting;
  return [name](const Answer<Outcome>& outcome) { tellOutcome(name, outcome); };
}

// Whether the descriptor becomes readable within that time.
bool isReadable(const OperationQueue& queue, int milliseconds) {
  pollfd polled{queue.descriptor(), POLLIN, 0};
  return ::poll(&polled, 1, milliseconds) == 1;
}

void loop(OperationQueue& queue) {
  while (waiting > 0) {
    if (isReadable(queue, -1)) queue.dispatch();
  }
}

void waitForFile(const std::filesystem::path& path) {
  while (!std::filesystem::exists(path)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

struct Place {
  std::string application;
  std::string folder;
};

// The script of the test's application, run by its shell.
OperationQueue::Ticket runScript(OperationQueue& queue, const Place& place, const std::string& name,
                                 const std::string& script,
                                 OperationQueue::Feedback feedback = {}) {
  return queue.start(codeExecuteUtility, {place.application, "lipo", script}, toldAs(name),
                     std::move(feedback));
}

OperationQueue::Feedback outputTold() {
  OperationQueue::Feedback feedback;
  feedback.output = [](const Data& chunk) {
    if (!chunk.empty()) tell("output " + std::string(stringFromData(chunk)));
  };
  return feedback;
}

void inOrder(OperationQueue& queue, const Place& place) {
  runScript(queue, place, "first", "printf text", outputTold());
  queue.start(codeNop, {}, [&queue](const Answer<Outcome>& outcome) {
    tellOutcome("second", outcome);
    queue.start(codeNop, {}, toldAs("from a callback"));
  });
  ++waiting;
  queue.start(9999, {}, toldAs("unknown"));
  ++waiting;
  queue.startQuery(codeNop, [](const Answer<AuthorizationState>& state) {
    --waiting;
    tell(state && *state == AuthorizationState::Granted ? "query granted" : "query");
  });
  ++waiting;
  queue.startDeletion({place.folder + "/not-there"}, {}, [](const auto& outcome) {
    --waiting;
    tell("deletion " + std::to_string(outcome.missing.size()) + " missing");
  });
  loop(queue);
  tell(isReadable(queue, 0) ? "readable" : "quiet");
}

void cancelled(OperationQueue& queue, const Place& place) {
  const std::string begun = place.folder + "/begun";
  const auto running = runScript(queue, place, "running", "touch '" + begun + "'; exec sleep 1000");
  const auto pending = queue.start(codeNop, {}, toldAs("pending"));
  std::thread other([&] {
    queue.cancel(pending);
    waitForFile(begun);
    queue.cancel(running);
    queue.cancel(running);
    queue.cancel(12345);
  });
  loop(queue);
  other.join();
  queue.cancel(running);
  queue.start(codeNop, {}, toldAs("next"));
  loop(queue);
}

// As soon as it was started, be it before the helper knows of it.
void cancelledAtOnce(OperationQueue& queue, const Place& place) {
  for (int i = 0; i < 20; ++i) {
    const auto ticket = runScript(queue, place, "at once", "exec sleep 1000");
    for (int spins = 0; spins < i * 100; ++spins) std::this_thread::yield();
    queue.cancel(ticket);
    loop(queue);
  }
}

void forsaken(OperationQueue& queue, const Place& place) {
  const std::string begun = place.folder + "/begun";
  runScript(queue, place, "running", "echo $$ >'" + begun + "'; exec sleep 1000", outputTold());
  queue.start(codeNop, {}, toldAs("pending"));
  waitForFile(begun);
  tell("left");
}

// More output than waits to be told, and a descriptor that says so until it is.
void muchOutput(OperationQueue& queue, const Place& place) {
  std::size_t size = 0;
  OperationQueue::Feedback feedback;
  feedback.output = [&size](const Data& chunk) { size += chunk.size(); };
  runScript(queue, place, "much", "head -c 20000000 /dev/zero", std::move(feedback));
  tell(isReadable(queue, -1) && isReadable(queue, 0) ? "readable" : "quiet");
  loop(queue);
  tell(std::to_string(size));
}

const std::map<std::string, std::function<void(OperationQueue&, const Place&)>> cases = {
    {"in-order", inOrder},  {"cancelled", cancelled},    {"cancelled-at-once", cancelledAtOnce},
    {"forsaken", forsaken}, {"much-output", muchOutput},
};

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 6) return 2;
  mainThread = std::this_thread::get_id();
  PrivilegedHelperClient::Options options;
  options.helperAddress = argv[1];
  options.issuerAddress = argv[2];
  const auto queue = OperationQueue::make(options);
  if (!queue) return 1;
  cases.at(argv[5])(**queue, {argv[3], argv[4]});
}
