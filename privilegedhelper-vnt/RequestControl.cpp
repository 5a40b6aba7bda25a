#include "privilegedhelper-vnt/RequestControl.h"

#include <cstddef>
#include <string_view>

#include "foundation/Unicode.h"

namespace corvane {

namespace {

constexpr const char* tokenKey = "ZELOperationToken";
constexpr const char* interactionKey = "ZELAuthorizationInteraction";

constexpr std::size_t maximumTokenLength = 64;

bool isToken(std::string_view text) {
  std::size_t length = 0;
  while (length <= maximumTokenLength && takeUTF8Character(text)) ++length;
  return text.empty() && length > 0 && length <= maximumTokenLength;
}

}  // namespace

std::optional<RequestControl> readRequestControl(const Dictionary& metadata) {
  RequestControl control;
  if (const Value* token = metadata.find(tokenKey)) {
    if (token->string() == nullptr || !isToken(*token->string())) return std::nullopt;
    control.token = *token->string();
  }
  if (const Value* interaction = metadata.find(interactionKey)) {
    const Number* flag = interaction->number();
    if (flag == nullptr || !flag->isBoolean()) return std::nullopt;
    control.isInteractionAllowed = flag->boolValue();
  }
  return control;
}

}  // namespace corvane
