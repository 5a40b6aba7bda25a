#include "platform/posix/TaskSystem.h"

#include <sys/event.h>

namespace corvane {

void giveStandardStreamsOnly(posix_spawn_file_actions_t& /*actions*/, short& flags) {
  // Closes all but what the actions name.
  flags = static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT);
}

FileDescriptor endOfChild(pid_t pid) {
  FileDescriptor queue(::kqueue());
  if (!queue) return queue;
  struct kevent end {};
  EV_SET(&end, pid, EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
  // Refused for a child that has ended already: who looks at it sees that at once.
  if (::kevent(queue.get(), &end, 1, nullptr, 0, nullptr) != 0) queue.reset();
  return queue;
}

}  // namespace corvane
