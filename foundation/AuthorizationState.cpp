#include "foundation/AuthorizationState.h"

#include <algorithm>
#include <array>
#include <utility>

namespace corvane {

namespace {

using Name = std::pair<AuthorizationState, const char*>;

constexpr auto names = std::to_array<Name>({
    {AuthorizationState::Granted, "granted"},
    {AuthorizationState::Challenge, "challenge"},
    {AuthorizationState::Denied, "denied"},
    {AuthorizationState::Unavailable, "unavailable"},
});

}  // namespace

const char* nameOf(AuthorizationState state) {
  return std::ranges::find(names, state, &Name::first)->second;
}

std::optional<AuthorizationState> authorizationStateNamed(std::string_view name) {
  const auto* const found = std::ranges::find(names, name, &Name::second);
  return found == names.end() ? std::nullopt : std::optional(found->first);
}

}  // namespace corvane
