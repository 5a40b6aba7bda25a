#ifndef CORVANE_BENCH_SUPPORT_WIREMESSAGE_H
#define CORVANE_BENCH_SUPPORT_WIREMESSAGE_H

#include <cstdint>
#include <string>

#include "foundation/Value.h"

namespace corvane::bench {

/// The bytes with which a client begins, up to its first message.
inline constexpr const char handshake[] =
    "\0AUTH EXTERNAL\r\nDATA\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n";

/// Calls of the helper as they travel, made here so that one can be sent in part, without an end,
/// and without looking at an answer.
std::string callOf(const std::string& member);
std::string callWithNumber(const std::string& member, std::int32_t number);
/// Asks for the operation `code` without arguments, which `form` is to authorize.
std::string callOfOperation(std::uint64_t code, const Data& form);
/// `form` authorizes a nop; `descriptors`, none or one, are announced as its endpoint.
std::string callOfNop(const Data& form, std::uint32_t descriptors = 0);
/// A nop with a dictionary of so many entries as its argument, each text of more than eight bytes.
std::string callOfNopWithDictionary(const Data& form, int entries);

}  // namespace corvane::bench

#endif
