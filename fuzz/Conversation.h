#ifndef CORVANE_FUZZ_CONVERSATION_H
#define CORVANE_FUZZ_CONVERSATION_H

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "foundation/Value.h"

namespace corvane {

// What one side sends to the other, and what is demanded of whatever reads it. A conversation is
// portions, each of one byte that says how many descriptors come with it (0 to 7), two that say how
// long it is (the low one first), and its bytes.

struct Portion {
  std::size_t descriptors = 0;
  std::string bytes;
};

inline constexpr std::size_t mostDescriptors = 7;

/// All of it fits into a socket, so that nobody waits for anybody.
std::vector<Portion> portionsOf(std::span<const std::byte> conversation);

/// Sends as a peer, with a socket of another pair as each of the descriptors. False if it does not
/// fit.
bool send(int socket, const Portion& portion);

/// Ends the process unless it holds.
void require(bool holds);

/// How many descriptors the process has, but for those that stay open from the first call on.
int openDescriptors();

/// Text is UTF-8 without zeros, and nothing is nested deeper than so many levels.
void checkValue(const Value& value, int depth);

}  // namespace corvane

#endif
