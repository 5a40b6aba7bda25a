#ifndef CORVANE_PLATFORM_LINUX_PROCESSES_FORKEDCHILD_H
#define CORVANE_PLATFORM_LINUX_PROCESSES_FORKEDCHILD_H

namespace corvane {

/// In a child process that goes on with system calls alone: leaves nothing of the parent behind
/// that a signal or a second holder of a descriptor could use, and keeps these two descriptors
/// only.
void leaveParentBehind(int oneDescriptor, int otherDescriptor);

}  // namespace corvane

#endif
