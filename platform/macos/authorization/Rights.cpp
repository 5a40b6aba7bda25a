#include "platform/Authorization.h"
#include "platform/macos/authorization/SystemRights.h"

namespace corvane {

namespace {

// The name of the rule in a definition as the system keeps it, which has a list of them.
std::optional<std::string> ruleOf(const Dictionary& definition) {
  const Value* rule = definition.find("rule");
  if (rule != nullptr && rule->array() != nullptr && rule->array()->size() == 1) {
    rule = &rule->array()->front();
  }
  if (rule == nullptr || rule->string() == nullptr) return std::nullopt;
  return *rule->string();
}

// The sentence of the dialog in the language that its definition was made in.
std::optional<std::string> descriptionOf(const Dictionary& definition) {
  const Value* prompts = definition.find("default-prompt");
  if (prompts == nullptr || prompts->dictionary() == nullptr) return std::nullopt;
  return prompts->dictionary()->text("");
}

}  // namespace

OSStatus AuthorizationRightGet(const char* rightName, std::optional<Value>* definition) {
  std::optional<Value> kept;
  const OSStatus status = systemRightGet(rightName, definition != nullptr ? &kept : nullptr);
  if (status != errAuthorizationSuccess || definition == nullptr) return status;
  Dictionary result;
  if (const Dictionary* dictionary = kept ? kept->dictionary() : nullptr) {
    if (auto rule = ruleOf(*dictionary)) result.set("rule", *std::move(rule));
    if (auto text = descriptionOf(*dictionary)) result.set("description", *std::move(text));
  }
  *definition = std::move(result);
  return status;
}

OSStatus AuthorizationRightSet(AuthorizationRef authorization, const char* rightName,
                               const Value& definition, const std::string& descriptionKey,
                               const char* localeTableName) {
  return systemRightSet(authorization, rightName, definition, descriptionKey, localeTableName);
}

OSStatus AuthorizationRightRemove(AuthorizationRef authorization, const char* rightName) {
  return systemRightRemove(authorization, rightName);
}

}  // namespace corvane
