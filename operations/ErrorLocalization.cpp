#include "foundation/LocalizedStrings.h"
#include "operations/ErrorTemplateKeys.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "process/NSProcessInfoZELAdditions.h"

namespace corvane {

namespace {

constexpr std::string_view politeSuffix = "-Polite";

struct TextKeys {
  std::string_view text;
  std::string_view pattern;
  std::string_view parameters;
};

constexpr TextKeys localizedTexts[] = {
    {NSLocalizedDescriptionKey, ZELLocalizedDescriptionTemplateKey,
     ZELLocalizedDescriptionParametersKey},
    {NSLocalizedRecoverySuggestionErrorKey, ZELLocalizedRecoverySuggestionTemplateKey,
     ZELLocalizedRecoverySuggestionParametersKey},
};

void replaceAll(std::string& text, const std::string& placeholder, const std::string& value) {
  std::string result;
  std::size_t start = 0;
  for (std::size_t at = 0; (at = text.find(placeholder, start)) != std::string::npos;) {
    result.append(text, start, at - start).append(value);
    start = at + placeholder.size();
  }
  text = result.append(text, start);
}

}  // namespace

std::string ZELPrivilegedOperationSet::localizedUIPolitenessAgnosticStringForKey(
    const std::string& key, const std::string& value, const std::optional<std::string>& table) {
  if (shouldUIUsePoliteForms()) {
    const bool isNamed = table && !table->empty();
    const std::string polite =
        (isNamed ? *table : std::string(defaultStringsTable)) + std::string(politeSuffix);
    if (hasStringsTable(polite)) return localizedString(key, value, polite);
  }
  return localizedString(key, value, table);
}

std::string ZELPrivilegedOperationSet::localizedStringForTemplate(const std::string& pattern,
                                                                  const Array& parameters,
                                                                  const std::string& table) {
  std::string text = localizedUIPolitenessAgnosticStringForKey(pattern, pattern, table);
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    // In the text as it has become: a parameter may hold the placeholder of a later one.
    if (const std::string* parameter = parameters[i].string()) {
      replaceAll(text, "$" + std::to_string(i + 1) + "$", *parameter);
    }
  }
  return text;
}

std::optional<Error> ZELPrivilegedOperationSet::localizedErrorForPrivilegedOperationError(
    const std::optional<Error>& error, const std::string& table) {
  if (!error || error->userInfo().empty()) return error;
  Dictionary userInfo = error->userInfo();
  for (const TextKeys& keys : localizedTexts) {
    const std::string text = userInfo.text(keys.text).value_or("");
    const std::string pattern = userInfo.text(keys.pattern).value_or("");
    const Value* parameters = userInfo.find(keys.parameters);
    if (!text.empty()) {
      userInfo.set(keys.text, localizedUIPolitenessAgnosticStringForKey(text, text, table));
    } else if (!pattern.empty() && parameters != nullptr && parameters->array() != nullptr &&
               !parameters->array()->empty()) {
      userInfo.set(keys.text, localizedStringForTemplate(pattern, *parameters->array(), table));
    }
  }
  const Value* underlying = userInfo.find(NSUnderlyingErrorKey);
  if (underlying != nullptr && underlying->error() != nullptr) {
    userInfo.set(NSUnderlyingErrorKey,
                 *localizedErrorForPrivilegedOperationError(*underlying->error(), table));
  }
  return Error(error->domain(), error->code(), std::move(userInfo));
}

}  // namespace corvane
