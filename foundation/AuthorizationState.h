#ifndef CORVANE_FOUNDATION_AUTHORIZATIONSTATE_H
#define CORVANE_FOUNDATION_AUTHORIZATIONSTATE_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace corvane {

/// What would become of a request that needs a right.
enum class AuthorizationState : std::uint8_t {
  Granted,
  Challenge,    ///< somebody would be asked
  Denied,       ///< nobody would be asked either
  Unavailable,  ///< somebody would have to be asked, and nobody could be
};

/// What a state is called, on the wire and wherever a program is told.
const char* nameOf(AuthorizationState state);
/// Nothing if no state is called so.
std::optional<AuthorizationState> authorizationStateNamed(std::string_view name);

}  // namespace corvane

#endif
