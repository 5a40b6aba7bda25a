// Deletes what is named on the command line, from an event loop of systemd's library.

#include <cstdio>
#include <string>
#include <vector>

#include <corvane/OperationQueue.h>
#include <sys/epoll.h>
#include <systemd/sd-event.h>

using corvane::OperationQueue;

namespace {

// All that there is to an adapter: the loop looks at a descriptor, and has the queue tell.
int dispatch(sd_event_source* /*source*/, int /*descriptor*/, std::uint32_t /*events*/,
             void* queue) {
  static_cast<OperationQueue*>(queue)->dispatch();
  return 0;
}

}  // namespace

int main(int argc, char* argv[]) {
  const auto queue = OperationQueue::make({});
  if (!queue) {
    std::fprintf(stderr, "%s\n", queue.error().localizedDescription().c_str());
    return 1;
  }
  sd_event* loop = nullptr;
  sd_event_source* source = nullptr;
  if (sd_event_new(&loop) < 0 || sd_event_add_io(loop, &source, (*queue)->descriptor(), EPOLLIN,
                                                 &dispatch, queue->get()) < 0) {
    std::fputs("There is no event loop.\n", stderr);
    return 1;
  }

  OperationQueue::Feedback feedback;
  feedback.progress = [](double fraction) { std::printf("%.0f %%\n", fraction * 100); };
  const auto end = [loop](const OperationQueue::DeletionOutcome& outcome) {
    int status = 0;
    if (!outcome.answer) {
      std::fprintf(stderr, "%s\n", outcome.answer.error().description.c_str());
      status = 1;
    } else if (const auto& error = outcome.answer->error) {
      std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
      status = 1;
    }
    sd_event_exit(loop, status);
  };
  (*queue)->startDeletion(std::vector<std::string>(argv + 1, argv + argc), {.isRecursive = true},
                          end, feedback);
  const int status = sd_event_loop(loop);
  sd_event_source_unref(source);
  sd_event_unref(loop);
  return status;
}
