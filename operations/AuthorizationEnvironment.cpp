#include <array>
#include <cstring>

#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

namespace {

// A private copy of `text` with its terminating zero, which the length counts.
AuthorizationItem makeItem(const char* name, const std::string& text) {
  const std::size_t length = text.size() + 1;
  char* copy = new char[length];
  std::memcpy(copy, text.c_str(), length);
  return {name, length, copy, 0};
}

}  // namespace

AuthorizationEnvironment* ZELPrivilegedOperationSet::createAuthorizationEnvironmentForRightPrompt(
    const std::optional<std::string>& prompt, const std::optional<std::string>& iconPath) {
  const bool hasPrompt = prompt && !prompt->empty();
  const bool hasIcon = iconPath && !iconPath->empty();
  auto* environment = new AuthorizationEnvironment{
      static_cast<std::uint32_t>(hasPrompt) + static_cast<std::uint32_t>(hasIcon), nullptr};
  if (environment->count == 0) return environment;

  environment->items = new AuthorizationItem[environment->count];
  AuthorizationItem* next = environment->items;
  if (hasPrompt) *next++ = makeItem(AuthorizationEnvironmentPrompt, *prompt);
  if (hasIcon) *next = makeItem(AuthorizationEnvironmentIcon, *iconPath);
  return environment;
}

void ZELPrivilegedOperationSet::freeAuthorizationEnvironment(
    AuthorizationEnvironment* environment) {
  if (environment == nullptr) return;
  if (environment->items != nullptr) {
    for (std::uint32_t i = 0; i < environment->count; ++i) {
      delete[] static_cast<char*>(environment->items[i].value);
    }
    delete[] environment->items;
  }
  delete environment;
}

}  // namespace corvane
