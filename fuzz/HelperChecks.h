#ifndef CORVANE_FUZZ_HELPERCHECKS_H
#define CORVANE_FUZZ_HELPERCHECKS_H

#include <cstddef>
#include <span>

namespace corvane {

// What a hostile helper may send to its clients, as conversations (`Conversation.h`). Each check
// ends the process if what it says does not hold.

/// Has a client ask for everything there is, of a helper that sends the conversation. Every call
/// ends, what comes of it is well-formed, and no descriptor stays open. Returns how many calls were
/// answered.
int checkAnswers(std::span<const std::byte> conversation);

/// Has a client be told what the conversation says. Returns how many feedback messages it got, each
/// well-formed; no descriptor stays open.
int checkFeedback(std::span<const std::byte> conversation);

}  // namespace corvane

#endif
