#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_DESCRIPTORRECEIVER_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_DESCRIPTORRECEIVER_H

#include <cstddef>
#include <optional>
#include <vector>

#include <sys/types.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// Takes the next byte of `socket`, which must be there, and the `count` descriptors of `user` that
/// come with it: absent if there are fewer or more of them, or if they cannot be taken. What is no
/// local socket is replaced by something that is none either, and can be closed.
///
/// Closing a file makes the kernel tell its file system, and wait for the answer as long as it
/// takes; not even SIGKILL ends that. Any user can have a file system, so this could happen:
///
///     attacker    opens a file of its own file system and sends the descriptor with a message
///     helper      receives it, closes it, and its thread hangs in close
///     last client unregisters; the helper ends but for that thread, which keeps every
///                 descriptor of the process open: nobody sees an end, and nobody can start
///                 another helper
///
/// So the helper never has such a descriptor. Whatever is received without room for descriptors is
/// dropped by the kernel without telling file systems; where a socket may have come, a child
/// process receives, passes on sockets, and takes everything else along to its end. It costs a fork
/// for each request with a feedback endpoint, and nothing for others. A process that receives for
/// as long as a connection lives would cost every connection, and one for all would be stopped by
/// the first such file; a thread with descriptors of its own would hang like any other. A child
/// that does not end is left behind, and with too many of those of a user nothing more is taken
/// from that user.
std::optional<std::vector<FileDescriptor>> takeDescriptors(int socket, std::size_t count,
                                                           uid_t user);

/// How many children that do not end may be left behind for one user, and for all but root.
inline constexpr std::size_t maximumStuckReceiversPerUser = 4;
inline constexpr std::size_t maximumStuckReceivers = 256;

}  // namespace corvane

#endif
