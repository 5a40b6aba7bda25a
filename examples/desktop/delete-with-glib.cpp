// Deletes what is named on the command line, from GLib's main loop.

#include <cstdio>
#include <string>
#include <vector>

#include <corvane/OperationQueue.h>
#include <glib-unix.h>

using corvane::OperationQueue;

namespace {

// All that there is to an adapter: the loop looks at a descriptor, and has the queue tell.
gboolean dispatch(gint /*descriptor*/, GIOCondition /*condition*/, gpointer queue) {
  static_cast<OperationQueue*>(queue)->dispatch();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char* argv[]) {
  const auto queue = OperationQueue::make({});
  if (!queue) {
    std::fprintf(stderr, "%s\n", queue.error().localizedDescription().c_str());
    return 1;
  }
  GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
  const guint source = g_unix_fd_add((*queue)->descriptor(), G_IO_IN, &dispatch, queue->get());

  int status = 0;
  OperationQueue::Feedback feedback;
  feedback.progress = [](double fraction) { std::printf("%.0f %%\n", fraction * 100); };
  const auto end = [&](const OperationQueue::DeletionOutcome& outcome) {
    if (!outcome.answer) {
      std::fprintf(stderr, "%s\n", outcome.answer.error().description.c_str());
      status = 1;
    } else if (const auto& error = outcome.answer->error) {
      std::fprintf(stderr, "%s\n", error->localizedDescription().c_str());
      status = 1;
    }
    g_main_loop_quit(loop);
  };
  (*queue)->startDeletion(std::vector<std::string>(argv + 1, argv + argc), {.isRecursive = true},
                          end, feedback);
  g_main_loop_run(loop);
  g_source_remove(source);
  g_main_loop_unref(loop);
  return status;
}
