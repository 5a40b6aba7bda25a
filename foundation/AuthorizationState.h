#ifndef CORVANE_FOUNDATION_AUTHORIZATIONSTATE_H
#define CORVANE_FOUNDATION_AUTHORIZATIONSTATE_H

#include <cstdint>

namespace corvane {

/// What would become of a request that needs a right.
enum class AuthorizationState : std::uint8_t {
  Granted,
  Challenge,    ///< somebody would be asked
  Denied,       ///< nobody would be asked either
  Unavailable,  ///< somebody would have to be asked, and nobody could be
};

}  // namespace corvane

#endif
