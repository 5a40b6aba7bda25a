#include "client/cli/Report.h"

#include <algorithm>
#include <cstdio>
#include <span>

#include "foundation/POSIXError.h"
#include "platform/Authorization.h"

namespace corvane::cli {

namespace {

using Json = nlohmann::ordered_json;
using Kind = CommunicationFailure::Kind;

constexpr const char* communicationDomain = "com.corvane.error.communication";

// What to do about the failures that carry no advice of their own, and what they are where their
// number alone would have to say it.
struct Advice {
  std::string_view domain;
  std::int64_t code;
  const char* text;
  const char* description = nullptr;
};
constexpr Advice advices[] = {
    {NSPOSIXErrorDomain, 2, "Check the path."},
    {NSPOSIXErrorDomain, 16,
     "A file system is mounted there, or inside. Unmount it first: the helper never leaves the "
     "file system that it was asked to work on."},
    {NSPOSIXErrorDomain, 22, "The helper refused the arguments. Check them."},
    {NSPOSIXErrorDomain, 30, "The file system is read-only."},
    {NSPOSIXErrorDomain, 66, "The folder is not empty. Use -r to delete it with its contents."},
    {NSPOSIXErrorDomain, 78, "The installed helper does not offer this operation."},
    {NSPOSIXErrorDomain, 89, "The authorization was cancelled. Nothing was done."},
    {NSOSStatusErrorDomain, errAuthorizationInvalidRef, "Try again, with a new authorization.",
     "The authorization is not valid."},
    {NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed,
     "This needs an administrator, and nothing here can ask for one. Run the command as root, or "
     "set up polkit.",
     "Not authorized."},
    {NSOSStatusErrorDomain, errAuthorizationInternal, "Try again; 'doctor' tells more.",
     "The system's authority did not answer as it should."},
};
constexpr const char* adviceWhenRefused =
    "You are not authorized to do this. Ask an administrator of this machine.";
constexpr const char* adviceWhenProtected =
    "Something there is protected from deletion in a way that is not lifted by itself.";

const char* adviceFor(const CommunicationFailure& failure) {
  switch (failure.kind) {
    case Kind::Refused:
      return "Is the helper installed and its socket enabled? 'doctor' tells more.";
    case Kind::Lost:
      return "The helper ended before it answered. Its log says why.";
    case Kind::TimedOut:
      return "It is there but busy or stuck. Try again; its log may say more.";
    case Kind::BadMessage:
      return "Do the versions of helper and client match? 'version' and 'doctor' tell.";
  }
  return "";
}

const Advice* adviceFor(const Error& error) {
  const auto* advice =
      std::find_if(std::begin(advices), std::end(advices),
                   [&error](const Advice& a) { return error.is(a.domain, a.code); });
  return advice == std::end(advices) ? nullptr : advice;
}

bool isRefusal(const Error& error, bool wasAuthorized) {
  return (isPOSIXError(error, POSIXErrorCode::NotPermitted) && !wasAuthorized) ||
         error.is(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed) ||
         error.is(NSOSStatusErrorDomain, errAuthorizationInvalidRef);
}

int statusFor(const Error& error, bool wasAuthorized) {
  if (isRefusal(error, wasAuthorized)) return ExitNotAuthorized;
  if (isPOSIXError(error, POSIXErrorCode::Canceled)) return ExitCanceled;
  if (error.is(NSOSStatusErrorDomain, errAuthorizationInternal)) return ExitOutOfReach;
  return ExitFailed;
}

// A template with its placeholders $1$, $2$, ... filled in.
std::string filled(std::string text, const Array& parameters) {
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    const std::string placeholder = "$" + std::to_string(i + 1) + "$";
    const std::string value =
        parameters[i].string() != nullptr ? *parameters[i].string() : std::string();
    for (std::size_t at = text.find(placeholder); at != std::string::npos;
         at = text.find(placeholder, at + value.size())) {
      text.replace(at, placeholder.size(), value);
    }
  }
  return text;
}

std::string suggestionFor(const Error& error, bool wasAuthorized) {
  const Value* suggestion = error.userInfo().find(NSLocalizedRecoverySuggestionErrorKey);
  if (suggestion != nullptr && suggestion->string() != nullptr) return *suggestion->string();
  const Value* pattern = error.userInfo().find("ZELLocalizedRecoverySuggestionTemplate");
  const Value* parameters = error.userInfo().find("ZELLocalizedRecoverySuggestionParameters");
  if (pattern != nullptr && pattern->string() != nullptr) {
    const Array none;
    const bool hasParameters = parameters != nullptr && parameters->array() != nullptr;
    return filled(*pattern->string(), hasParameters ? *parameters->array() : none);
  }
  if (isPOSIXError(error, POSIXErrorCode::NotPermitted)) {
    return wasAuthorized ? adviceWhenProtected : adviceWhenRefused;
  }
  const Advice* advice = adviceFor(error);
  return advice == nullptr ? std::string() : advice->text;
}

std::string descriptionOf(const Error& error) {
  const Advice* advice = adviceFor(error);
  return advice == nullptr || advice->description == nullptr ? error.localizedDescription()
                                                             : advice->description;
}

Json toJson(const Error& error);

Json toJson(const Value& value) {
  if (const auto* string = value.string()) return *string;
  if (const auto* number = value.number()) {
    if (number->isBoolean()) return number->boolValue();
    if (number->isDouble()) return number->doubleValue();
    if (number->isUnsigned()) return number->unsignedLongLongValue();
    return number->longLongValue();
  }
  if (const auto* data = value.data()) {
    Json bytes = Json::array();
    for (const std::byte byte : *data) bytes.push_back(std::to_integer<int>(byte));
    return bytes;
  }
  if (const auto* date = value.date()) return date->secondsSinceReference;
  if (const auto* array = value.array()) {
    Json elements = Json::array();
    for (const Value& element : *array) elements.push_back(toJson(element));
    return elements;
  }
  if (const auto* dictionary = value.dictionary()) {
    Json object = Json::object();
    for (const auto& [key, element] : *dictionary) object[key] = toJson(element);
    return object;
  }
  return toJson(*value.error());
}

Json toJson(const Error& error) {
  return {{"domain", error.domain()},
          {"code", error.code()},
          {"description", descriptionOf(error)},
          {"userInfo", toJson(Value(error.userInfo()))}};
}

void printJson(const Json& json) {
  // Texts from elsewhere may not be UTF-8; they are shown as well as they can be.
  std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

Json successObject() {
  return {{"domain", nullptr},
          {"code", 0},
          {"description", nullptr},
          {"recoverySuggestion", nullptr},
          {"userInfo", Json::object()}};
}

void printProblem(std::string_view action, std::string_view description,
                  std::string_view suggestion) {
  std::fprintf(stderr, "Cannot %s: %s\n", printable(action).c_str(),
               printable(description).c_str());
  if (!suggestion.empty()) std::fprintf(stderr, "%s\n", printable(suggestion).c_str());
}

}  // namespace

std::string printable(std::string_view text) {
  std::string shown;
  unsigned char previous = 0;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    // U+0080 to U+009F are control characters too, two bytes long in UTF-8.
    const bool isSecond = previous == 0xc2 && byte >= 0x80 && byte <= 0x9f;
    if (isSecond) shown.pop_back();
    shown += byte < 0x20 || byte == 0x7f || isSecond ? '?' : character;
    previous = byte;
  }
  return shown;
}

int report(const Context& context, std::string_view action,
           const PrivilegedHelperClient::Outcome& outcome, bool wasAuthorized) {
  if (outcome.failure) return report(context, action, *outcome.failure);
  if (!outcome.error) {
    if (context.isJSON) printJson(successObject());
    return ExitDone;
  }
  const Error& error = *outcome.error;
  const std::string suggestion = suggestionFor(error, wasAuthorized);
  if (context.isJSON) {
    Json object = toJson(error);
    object["recoverySuggestion"] = suggestion.empty() ? Json() : Json(suggestion);
    printJson(object);
  } else {
    printProblem(action, descriptionOf(error), suggestion);
    const Value* underlying = error.userInfo().find(NSUnderlyingErrorKey);
    if (underlying != nullptr && underlying->error() != nullptr) {
      std::fprintf(stderr, "  because: %s\n",
                   printable(underlying->error()->localizedDescription()).c_str());
    }
  }
  return statusFor(error, wasAuthorized);
}

int report(const Context& context, std::string_view action, const CommunicationFailure& failure) {
  if (context.isJSON) {
    Json object = successObject();
    object["domain"] = communicationDomain;
    object["code"] = static_cast<int>(failure.kind) + 1;
    object["description"] = failure.description;
    object["recoverySuggestion"] = adviceFor(failure);
    printJson(object);
  } else {
    printProblem(action, failure.description, adviceFor(failure));
  }
  return failure.kind == Kind::BadMessage ? ExitFailed : ExitOutOfReach;
}

int reportUsage(const Context& context, const std::string& description) {
  if (context.isJSON) {
    Json object = toJson(posixError(POSIXErrorCode::Invalid));
    object["description"] = description;
    object["recoverySuggestion"] = nullptr;
    printJson(object);
  } else {
    std::fprintf(stderr, "%s\n", printable(description).c_str());
  }
  return ExitUsage;
}

void printResult(const Json& result) {
  Json object = successObject();
  object["result"] = result;
  printJson(object);
}

}  // namespace corvane::cli
