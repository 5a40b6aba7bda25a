#ifndef CORVANE_PLATFORM_POSIX_TASKSYSTEM_H
#define CORVANE_PLATFORM_POSIX_TASKSYSTEM_H

#include <spawn.h>
#include <sys/types.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

// What of running a program each system has a way of its own for.

/// Has a program that is started with these settings get the descriptors up to standard error and
/// no other. To be called when the actions for its standard streams are there; `flags` are those
/// that the program will be started with.
void giveStandardStreamsOnly(posix_spawn_file_actions_t& actions, short& flags);

/// A descriptor that is ready for reading from the end of the child `pid` on. None where the system
/// has no such thing, or has none left: then the child has to be looked at again and again.
FileDescriptor endOfChild(pid_t pid);

}  // namespace corvane

#endif
