#ifndef CORVANE_FUZZ_TRANSPORTCHECKS_H
#define CORVANE_FUZZ_TRANSPORTCHECKS_H

#include <cstddef>
#include <span>

namespace corvane {

// What a client may send before anybody has authorized it, as conversations (`Conversation.h`).
// Each check ends the process if what it says does not hold.

/// Has a guard read the conversation, portion by portion. What it passes on is what was sent, up to
/// where it refuses; descriptors come with the header that announces them, and none stays open.
void checkGuard(std::span<const std::byte> conversation);

/// Has a connection serve the conversation. Afterwards no descriptor stays open, and the user has
/// the whole share again. Returns how many requests reached the helper.
int checkConversation(std::span<const std::byte> conversation);

/// The same for a conversation that is one request, with these bytes as its body.
int checkRequest(std::span<const std::byte> body);

}  // namespace corvane

#endif
