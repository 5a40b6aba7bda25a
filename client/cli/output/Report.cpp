#include "client/cli/output/Report.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <utility>

#include "client/cli/output/Advice.h"
#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "platform/Authorization.h"
#include "platform/MountPoints.h"

namespace corvane::cli {

namespace {

using Json = nlohmann::ordered_json;
using Kind = CommunicationFailure::Kind;

constexpr const char* communicationDomain = "com.corvane.error.communication";

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

const Error* underlyingError(const Error& error) {
  const Value* underlying = error.userInfo().find(NSUnderlyingErrorKey);
  return underlying != nullptr ? underlying->error() : nullptr;
}

// The description as it is shown; the user information has the texts as they came.
Json objectFor(const Error& error) {
  return {{"domain", error.domain()},
          {"code", error.code()},
          {"description", descriptionOf(error)},
          {"userInfo", toJson(Value(error.userInfo()))}};
}

Json objectFor(const Error& error, const std::string& suggestion) {
  Json object = objectFor(error);
  object["recoverySuggestion"] = suggestion.empty() ? Json() : Json(suggestion);
  return object;
}

void printJson(const Json& json) {
  // Texts from elsewhere may not be UTF-8; they are shown as well as they can be. What is not ASCII
  // is escaped, so that nothing of it controls a terminal.
  std::printf("%s\n", json.dump(2, ' ', true, Json::error_handler_t::replace).c_str());
}

Json successObject() {
  return {{"domain", nullptr},
          {"code", 0},
          {"description", nullptr},
          {"recoverySuggestion", nullptr},
          {"userInfo", Json::object()}};
}

void printProblem(const std::string& failure, std::string_view description,
                  std::string_view suggestion) {
  // Not as its parameters, in which names might stand that look like placeholders.
  const std::string between = translated(aboutText, Array{"", ""});
  std::fprintf(stderr, "%s%s%s\n", printable(failure).c_str(), between.c_str(),
               printable(description).c_str());
  if (!suggestion.empty()) std::fprintf(stderr, "%s\n", printable(suggestion).c_str());
}

void printProblem(const std::string& failure, const Error& error, std::string_view suggestion) {
  printProblem(failure, descriptionOf(error), suggestion);
  for (const Error* cause = underlyingError(error); cause != nullptr;
       cause = underlyingError(*cause)) {
    std::fprintf(stderr, "  %s\n", printable(translated(causeText, descriptionOf(*cause))).c_str());
  }
}

// The advice about a deletion, which may have to name where in the tree something is mounted.
std::string suggestionAbout(const std::string& path, const Error& error, Action action,
                            bool wasAuthorized) {
  if (isPOSIXError(error, POSIXErrorCode::Busy)) {
    const std::vector<std::string> places = mountPointsIn(path);
    if (!places.empty()) return translated(mountedAtText, places.front());
  }
  return suggestionFor(error, action, wasAuthorized);
}

// A line for each object, and the advice after the last one that it is about.
template <typename Suggest>
void printFailures(Action action, const std::vector<PrivilegedHelperClient::ObjectLeft>& failed,
                   const Suggest& suggestionAbout) {
  for (std::size_t i = 0; i < failed.size(); ++i) {
    const auto& [path, error] = failed[i];
    if (!error) {
      std::fprintf(stderr, "%s\n", printable(failureOf(action, path)).c_str());
      continue;
    }
    const std::string suggestion = suggestionAbout(path, *error);
    const bool isRepeated = i + 1 < failed.size() && failed[i + 1].error &&
                            suggestionAbout(failed[i + 1].path, *failed[i + 1].error) == suggestion;
    printProblem(failureOf(action, path), *error, isRepeated ? std::string() : suggestion);
  }
}

int reportAnswerRefused(const Context& context, Action action, const std::string& subject,
                        const Error& error) {
  const std::string description = translated(answerRefusedText);
  const std::string suggestion = translated(tryAgainText);
  if (context.isJSON) {
    Json object = objectFor(error, suggestion);
    object["description"] = description;
    printJson(object);
  } else {
    printProblem(failureOf(action, subject), description, suggestion);
  }
  return ExitNotAuthorized;
}

int reportUnanswered(const Context& context, Action action, const std::string& subject,
                     const CommunicationFailure& failure) {
  if (context.isJSON) {
    Json object = successObject();
    object["domain"] = communicationDomain;
    object["code"] = static_cast<int>(failure.kind) + 1;
    object["description"] = descriptionOf(failure);
    object["recoverySuggestion"] = suggestionFor(failure);
    printJson(object);
  } else {
    printProblem(failureOf(action, subject), descriptionOf(failure), suggestionFor(failure));
  }
  const bool wasReached = failure.kind == Kind::BadMessage || failure.kind == Kind::TooLarge;
  return wasReached ? ExitFailed : ExitOutOfReach;
}

// What had failed by then, and how far it came.
void printStopped(Action action, const std::vector<std::string>& paths,
                  const PrivilegedHelperClient::DeletionOutcome& outcome) {
  const Error& error = *outcome.answer->error;
  const bool wasAuthorized = outcome.answer->wasAuthorized.value_or(false);
  printFailures(action, outcome.failed, [&](const std::string& path, const Error& each) {
    return suggestionAbout(path, each, action, wasAuthorized);
  });
  printProblem(failureOf(paths.size() > 1 ? Action::DeleteSeveral : action, paths.front()), error,
               suggestionFor(error, action, wasAuthorized));
  if (paths.size() == 1 || outcome.left.size() == paths.size()) return;
  std::fprintf(
      stderr, "%s\n",
      translated(deletedByThenText, Array{std::to_string(paths.size() - outcome.left.size()),
                                          std::to_string(paths.size())})
          .c_str());
}

}  // namespace

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
  return objectFor(*value.error());
}

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  while (!text.empty()) {
    const auto character = takeUTF8Character(text);
    if (!character) break;
    // A character that may take two counts as two.
    columns += *character < 0x1100 ? 1 : 2;
  }
  return columns;
}

std::string padded(const std::string& text, std::size_t columns) {
  return text + std::string(columns - std::min(columns, columnsOf(text)), ' ');
}

std::string printable(std::string_view text, std::string_view kept) {
  std::string shown;
  char previous = 0;
  for (const char character : text) {
    const bool isControl = endsControlCharacter(std::exchange(previous, character), character);
    // The second byte of a two-byte control character (U+0080 to U+009F): the first is already in
    // `shown`, since it could have begun a harmless one.
    if (isControl && static_cast<unsigned char>(character) >= 0x80) shown.pop_back();
    shown += isControl && kept.find(character) == std::string_view::npos ? '?' : character;
  }
  return shown;
}

int report(const Context& context, Action action, const std::string& subject,
           const Answer<Outcome>& outcome) {
  if (!outcome) return reportUnanswered(context, action, subject, outcome.error());
  if (!outcome->error) {
    if (context.isJSON) printJson(successObject());
    return ExitDone;
  }
  const Error& error = *outcome->error;
  const bool wasAuthorized = outcome->wasAuthorized.value_or(false);
  if (outcome->wasAnswerRefused) return reportAnswerRefused(context, action, subject, error);
  const std::string suggestion = suggestionFor(error, action, wasAuthorized);
  if (context.isJSON) {
    printJson(objectFor(error, suggestion));
  } else {
    printProblem(failureOf(action, subject), error, suggestion);
  }
  return statusFor(error, wasAuthorized);
}

int report(const Context& context, Action action, const std::vector<std::string>& paths,
           const PrivilegedHelperClient::DeletionOutcome& outcome) {
  const Answer<Outcome>& answer = outcome.answer;
  const bool wasAuthorized = answer && answer->wasAuthorized.value_or(false);
  if (!answer || !answer->error || isRefusal(*answer->error, wasAuthorized)) {
    const Action about = paths.size() > 1 ? Action::DeleteSeveral : action;
    return report(context, about, paths.front(), answer);
  }
  if (isPOSIXError(*answer->error, POSIXErrorCode::Canceled) && !context.isJSON) {
    printStopped(action, paths, outcome);
    return ExitCanceled;
  }
  const auto suggestion = [&](const std::string& path, const Error& error) {
    const bool isAppendOnly =
        outcome.isAppendOnlyLeft && isPOSIXError(error, POSIXErrorCode::NotPermitted);
    return isAppendOnly ? translated(appendOnlyLeftText)
                        : suggestionAbout(path, error, action, wasAuthorized);
  };
  // What failed may be gone meanwhile.
  const PrivilegedHelperClient::ObjectLeft last{
      outcome.failed.empty() ? paths.back() : outcome.failed.back().path, answer->error};
  if (context.isJSON) {
    Json object = objectFor(*answer->error, suggestion(last.path, *answer->error));
    for (const auto& [path, error] : outcome.left) {
      object["result"]["left"].push_back(
          {{"path", path}, {"error", error ? objectFor(*error) : Json()}});
    }
    printJson(object);
  } else {
    const std::vector<PrivilegedHelperClient::ObjectLeft> gone = {last};
    printFailures(action, outcome.failed.empty() ? gone : outcome.failed, suggestion);
  }
  return statusFor(*answer->error, wasAuthorized);
}

int reportUsage(const Context& context, const std::string& description,
                const std::string& suggestion) {
  if (context.isJSON) {
    printJson(
        objectFor(Error(clientErrorDomain, wrongUsage, {{NSLocalizedDescriptionKey, description}}),
                  suggestion));
  } else {
    std::fprintf(stderr, "%s\n", printable(description).c_str());
    if (!suggestion.empty()) std::fprintf(stderr, "%s\n", printable(suggestion).c_str());
  }
  return ExitUsage;
}

int reportException(const Context& context, const std::exception& exception) {
  const std::string description = translated(unexpectedText, exception.what());
  if (context.isJSON) {
    printJson(objectFor(
        Error(clientErrorDomain, unexpected, {{NSLocalizedDescriptionKey, description}}), ""));
  } else {
    std::fprintf(stderr, "%s\n", printable(description).c_str());
  }
  return ExitFailed;
}

void printResult(const Json& result, const std::optional<Error>& error) {
  Json object = successObject();
  if (error) object = objectFor(*error, suggestionFor(*error, Action::ContactHelper, false));
  object["result"] = result;
  printJson(object);
}

}  // namespace corvane::cli
