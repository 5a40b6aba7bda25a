#ifndef CORVANE_PLATFORM_CURRENTCLIENT_H
#define CORVANE_PLATFORM_CURRENTCLIENT_H

#include <cstdint>

namespace corvane {

/// The user whose message the calling thread is handling, by the word of the operating system;
/// outside of a message the user of this process.
std::uint32_t userOfCurrentClient();

}  // namespace corvane

#endif
