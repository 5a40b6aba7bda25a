#include <cstdio>

#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/Prompt.h"
#include "foundation/PropertyList.h"
#include "platform/Preferences.h"

namespace corvane::cli {

namespace {

// A number as its digits, text as it is, and everything else as a property list.
std::string textOf(const Value& value) {
  if (const std::string* text = value.string()) return *text;
  if (const Number* number = value.number()) {
    if (number->isBoolean()) return number->boolValue() ? "true" : "false";
    return toJson(value).dump();
  }
  const auto written = writePropertyList(value, PropertyListFormat::XML);
  const Data* text = std::get_if<Data>(&written);
  // There are values that no XML can hold.
  return text != nullptr ? std::string(stringFromData(*text)) : value.className();
}

}  // namespace

int setPreference(const Context& context, const PreferenceDomain& domain, const std::string& key,
                  const std::string& value) {
  // The helper removes the key if the value is empty. An empty text as a property list is "".
  return report(context, Action::SetPreference, key,
                PrivilegedHelperClient(
                    asking(context, promptToSetPreference(key, domain.application, domain.user)))
                    .modifyPreferences(key, domain.application, domain.user, domain.host,
                                       value.empty() ? "\"\"" : value));
}

int removePreference(const Context& context, const PreferenceDomain& domain,
                     const std::string& key) {
  return report(context, Action::RemovePreference, key,
                PrivilegedHelperClient(
                    asking(context, promptToRemovePreference(key, domain.application, domain.user)))
                    .modifyPreferences(key, domain.application, domain.user, domain.host, ""));
}

int getPreference(const Context& context, const PreferenceDomain& domain, const std::string& key) {
  const bool isGlobal = domain.application == NSGlobalDomain;
  const auto value = CFPreferencesCopyValue(
      key, isGlobal ? std::string(kCFPreferencesAnyApplication) : domain.application, domain.user,
      domain.host);
  if (!value) {
    return report(context, Action::ReadPreference, key,
                  {std::nullopt, Error(clientErrorDomain, noSuchPreference)});
  }
  if (context.isJSON) {
    printResult({{"value", toJson(*value)}});
  } else {
    std::string text = textOf(*value);
    if (!text.ends_with('\n')) text += '\n';
    // Another user may have set it, with control characters for this terminal. A pipe gets it as it
    // is.
    if (::isatty(STDOUT_FILENO) != 0) text = printable(text, "\n\t");
    std::fwrite(text.data(), 1, text.size(), stdout);
  }
  return ExitDone;
}

}  // namespace corvane::cli
