#include <string>
#include <variant>

#include "foundation/POSIXError.h"
#include "foundation/PropertyList.h"
#include "operations/OperationCodes.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Preferences.h"

namespace corvane {

namespace {

// Unlike those of other operations its recovery text is final, not a template.
Error writeError() {
  return {ZELPrivilegedOperationSetVNT::errorDomain(), preferencesWriteError.code,
          Dictionary{{NSLocalizedDescriptionKey, preferencesWriteError.description},
                     {NSLocalizedRecoverySuggestionErrorKey, preferencesWriteError.recovery}}};
}

// The value is the last of the arguments.
constexpr std::size_t argumentsBeforeValue = 4;

}  // namespace

Array ZELPrivilegedOperationSetVNT::loggableArguments(std::uint64_t code,
                                                      const Array& arguments) const {
  if (code != codeModifyPreferences || arguments.size() <= argumentsBeforeValue) return arguments;
  return {arguments.begin(), arguments.begin() + argumentsBeforeValue};
}

std::optional<Error> ZELPrivilegedOperationSetVNT::performOperationModifyPreferencesWithArguments(
    const Array& arguments) {
  const std::string& key = *arguments[0].string();
  const std::string& applicationText = *arguments[1].string();
  // A user or host is the platform's constant or a name; either way its text says which.
  const std::string& user = *arguments[2].string();
  const std::string& host = *arguments[3].string();
  const std::string& valueText = *arguments[4].string();
  if (key.empty() || applicationText.empty() || user.empty() || host.empty()) {
    return posixError(POSIXErrorCode::Invalid);
  }

  std::optional<Value> value;
  if (!valueText.empty()) {
    Result<PropertyList> list = readPropertyList(dataFromString(valueText));
    if (!list) {
      return posixError(POSIXErrorCode::Invalid, {{NSUnderlyingErrorKey, list.error()}});
    }
    value = std::move(list->root);
  }

  const std::string application(applicationText == NSGlobalDomain ? kCFPreferencesAnyApplication
                                                                  : applicationText);
  CFPreferencesSetValue(key, std::move(value), application, user, host);
  if (!CFPreferencesSynchronize(application, user, host)) return writeError();
  return std::nullopt;
}

}  // namespace corvane
