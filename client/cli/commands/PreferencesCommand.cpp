#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <variant>

#include <pwd.h>
#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/Prompt.h"
#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"
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
  const Result<Data> text = writePropertyList(value, PropertyListFormat::XML);
  // There are values that no XML can hold.
  return text ? std::string(stringFromData(*text)) : value.className();
}

// What is in a file, as far as a property list may be long, and a byte more; nothing, with errno,
// if it cannot be read.
Result<Data> contentOf(const std::string& path) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> opened(
      path == "-" ? nullptr : std::fopen(path.c_str(), "re"), &std::fclose);
  std::FILE* file = path == "-" ? stdin : opened.get();
  if (file == nullptr) return posixErrorFromHost(errno);
  Data content;
  while (content.size() <= propertyListMaximumBytes) {
    std::array<std::byte, BUFSIZ> portion;
    const std::size_t size = std::fread(portion.data(), 1, portion.size(), file);
    content.insert(content.end(), portion.begin(), portion.begin() + size);
    if (size < portion.size()) break;
  }
  if (std::ferror(file) != 0) return posixErrorFromHost(errno);
  return content;
}

// The text of the property list in a file. What is sent is text, whatever the format of the file
// is.
Result<std::string> propertyListIn(const std::string& path) {
  const Result<Data> content = contentOf(path);
  if (!content) return content.error();
  const Result<PropertyList> list = readPropertyList(*content);
  const Result<Data> text =
      list ? writePropertyList(list->root, PropertyListFormat::XML) : list.error();
  if (!text)
    return Error(clientErrorDomain, noPropertyList, {{NSUnderlyingErrorKey, text.error()}});
  return std::string(stringFromData(*text));
}

// The helper runs as root, so its current user is another one than the one who asks here.
std::optional<std::string> nameOf(const std::string& user) {
  if (user != kCFPreferencesCurrentUser) return user;
  const passwd* entry = ::getpwuid(::geteuid());
  return entry != nullptr ? std::optional<std::string>(entry->pw_name) : std::nullopt;
}

// What the helper would find out only when it has been authorized, and not tell.
std::optional<Error> faultOf(const PreferenceDomain& domain, const std::string& user) {
  const bool isGlobal = domain.application == NSGlobalDomain;
  const auto fault = faultOfPreferencesDomain(
      isGlobal ? std::string(kCFPreferencesAnyApplication) : domain.application, user, domain.host);
  if (!fault) return std::nullopt;
  switch (*fault) {
    case PreferencesDomainFault::ApplicationIdentifier:
      return Error(clientErrorDomain, noApplicationName);
    case PreferencesDomainFault::ApplicationTooLong:
      return Error(clientErrorDomain, applicationNameTooLong);
    case PreferencesDomainFault::User:
      return Error(clientErrorDomain, noSuchUser);
    case PreferencesDomainFault::Host:
      break;
  }
  return Error(clientErrorDomain, otherHost);
}

// Has the helper set the key to a property list, or remove it if that is empty.
int change(const Context& context, Action action, const PreferenceDomain& domain,
           const std::string& key, const std::string& list) {
  const auto user = nameOf(domain.user);
  if (!user) {
    return report(context, action, key, Outcome{.error = Error(clientErrorDomain, noSuchUser)});
  }
  if (const auto fault = faultOf(domain, *user)) {
    return report(context, action, key, Outcome{.error = *fault});
  }
  const std::string prompt = list.empty() ? promptToRemovePreference(key, domain.application, *user)
                                          : promptToSetPreference(key, domain.application, *user);
  return report(context, action, key,
                PrivilegedHelperClient(asking(context, prompt))
                    .modifyPreferences({key, domain.application, *user, domain.host}, list));
}

}  // namespace

int setPreference(const Context& context, const PreferenceDomain& domain, const std::string& key,
                  const PreferenceSource& value) {
  if (value.kind) {
    const auto list = propertyListOf(*value.kind, value.text);
    if (!list) return reportUsage(context, translated(notOfKindText, value.text));
    return change(context, Action::SetPreference, domain, key, *list);
  }
  const Result<std::string> list = propertyListIn(value.text);
  if (!list) return report(context, Action::SetPreference, key, Outcome{.error = list.error()});
  return change(context, Action::SetPreference, domain, key, *list);
}

int removePreference(const Context& context, const PreferenceDomain& domain,
                     const std::string& key) {
  return change(context, Action::RemovePreference, domain, key, "");
}

int getPreference(const Context& context, const PreferenceDomain& domain, const std::string& key) {
  if (const auto fault = faultOf(domain, domain.user)) {
    return report(context, Action::ReadPreference, key, Outcome{.error = *fault});
  }
  const bool isGlobal = domain.application == NSGlobalDomain;
  const auto value = CFPreferencesCopyValue(
      key, isGlobal ? std::string(kCFPreferencesAnyApplication) : domain.application, domain.user,
      domain.host);
  if (!value) {
    return report(context, Action::ReadPreference, key,
                  Outcome{.error = Error(clientErrorDomain, noSuchPreference)});
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
