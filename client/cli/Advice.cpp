#include "client/cli/Advice.h"

#include <algorithm>

#include "foundation/POSIXError.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Authorization.h"

namespace corvane::cli {

namespace {

using Kind = CommunicationFailure::Kind;

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
    {clientErrorDomain, noSuchPreference,
     "Check its name, and whose it is: application, user and host.",
     "There is no such preference, or it cannot be read."},
};
constexpr const char* adviceWhenRefused =
    "You are not authorized to do this. Ask an administrator of this machine.";
constexpr const char* adviceWhenProtected =
    "Something there is protected from deletion in a way that is not lifted by itself.";

struct CommunicationAdvice {
  Kind kind;
  const char* text;
};
constexpr CommunicationAdvice communicationAdvices[] = {
    {Kind::Refused, "Is the helper installed and its socket enabled? 'doctor' tells more."},
    {Kind::Lost, "The helper ended before it answered. Its log says why."},
    {Kind::TimedOut, "It is there but busy or stuck. Try again; its log may say more."},
    {Kind::BadMessage, "Do the versions of helper and client match? 'version' and 'doctor' tell."},
};

// The POSIX errors that operations commonly end with.
constexpr std::int64_t commonCodes[] = {1, 2, 5, 13, 16, 17, 20, 21, 22, 28, 30, 66, 78, 89};

const Advice* adviceFor(const Error& error) {
  const auto* advice =
      std::find_if(std::begin(advices), std::end(advices),
                   [&error](const Advice& a) { return error.is(a.domain, a.code); });
  return advice == std::end(advices) ? nullptr : advice;
}

}  // namespace

std::string translated(const std::string& text) {
  return ZELPrivilegedOperationSetVNT::localizedUIPolitenessAgnosticStringForKey(
      text, text, clientStringsTable);
}

std::string suggestionFor(const Error& error, bool wasAuthorized) {
  const auto localized =
      ZELPrivilegedOperationSetVNT::localizedErrorForPrivilegedOperationError(error);
  const Value* suggestion = localized->userInfo().find(NSLocalizedRecoverySuggestionErrorKey);
  if (suggestion != nullptr && suggestion->string() != nullptr) return *suggestion->string();
  if (isPOSIXError(error, POSIXErrorCode::NotPermitted)) {
    return translated(wasAuthorized ? adviceWhenProtected : adviceWhenRefused);
  }
  const Advice* advice = adviceFor(error);
  return advice == nullptr ? std::string() : translated(advice->text);
}

std::string descriptionOf(const Error& error) {
  const Advice* advice = adviceFor(error);
  if (advice != nullptr && advice->description != nullptr) return translated(advice->description);
  // What an error has no text for is described by its number, in English.
  return translated(ZELPrivilegedOperationSetVNT::localizedErrorForPrivilegedOperationError(error)
                        ->localizedDescription());
}

std::string suggestionFor(const CommunicationFailure& failure) {
  const auto* advice =
      std::find_if(std::begin(communicationAdvices), std::end(communicationAdvices),
                   [&failure](const auto& a) { return a.kind == failure.kind; });
  return advice == std::end(communicationAdvices) ? std::string() : translated(advice->text);
}

std::set<std::string> clientTexts() {
  std::set<std::string> texts = {adviceWhenRefused, adviceWhenProtected};
  for (const Advice& advice : advices) {
    texts.insert(advice.text);
    if (advice.description != nullptr) texts.insert(advice.description);
  }
  for (const CommunicationAdvice& advice : communicationAdvices) texts.insert(advice.text);
  for (const std::int64_t code : commonCodes) texts.insert(posixDescription(code));
  return texts;
}

}  // namespace corvane::cli
