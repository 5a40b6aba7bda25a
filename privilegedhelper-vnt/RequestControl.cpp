#include "privilegedhelper-vnt/RequestControl.h"

#include <cstddef>
#include <string_view>

#include "foundation/Unicode.h"
#include "platform/ZELPrivilegedHelperProtocol.h"

namespace corvane {

namespace {

constexpr std::size_t maximumTokenLength = 64;

bool isToken(std::string_view text) {
  std::size_t length = 0;
  while (length <= maximumTokenLength && takeUTF8Character(text)) ++length;
  return text.empty() && length > 0 && length <= maximumTokenLength;
}

}  // namespace

std::optional<RequestControl> readRequestControl(const Dictionary& metadata) {
  RequestControl control;
  if (const Value* token = metadata.find(OperationTokenKey)) {
    if (token->string() == nullptr || !isToken(*token->string())) return std::nullopt;
    control.token = *token->string();
  }
  if (const Value* interaction = metadata.find(AuthorizationInteractionKey)) {
    const Number* flag = interaction->number();
    if (flag == nullptr || !flag->isBoolean()) return std::nullopt;
    control.isInteractionAllowed = flag->boolValue();
  }
  return control;
}

}  // namespace corvane
