#include "client/cli/output/Advice.h"

#include <algorithm>
#include <array>

#include "PrivilegedHelperClient.h"
#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"
#include "operationset-vnt/OperationErrors.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Authorization.h"
#include "platform/SystemAdvice.h"

namespace corvane::cli {

namespace {

using Kind = CommunicationFailure::Kind;

// What to do about the failures that carry no advice of their own, and what they are where their
// number alone would have to say it. Where that depends on the system the texts are the system's.
struct Advice {
  constexpr Advice(POSIXErrorCode posix, const char* advice, const char* what = nullptr)
      : Advice(NSPOSIXErrorDomain, static_cast<std::int64_t>(posix), advice, what) {}
  constexpr Advice(std::string_view itsDomain, std::int64_t itsCode, const char* advice,
                   const char* what = nullptr)
      : domain(itsDomain), code(itsCode), text(advice), description(what) {}

  std::string_view domain;
  std::int64_t code;
  const char* text;
  const char* description;
};
const auto& advices() {
  static const auto all = std::to_array<Advice>({
      {POSIXErrorCode::NoEntry, "Check the path."},
      {POSIXErrorCode::Interrupted, systemAdvice().operationUndone,
       "The helper could not carry it out."},
      {POSIXErrorCode::Busy,
       "A file system is mounted there, or inside. Unmount it first: the helper never leaves the "
       "file system that it was asked to work on."},
      {POSIXErrorCode::Invalid, "The helper refused the arguments. Check them."},
      {POSIXErrorCode::ReadOnly, "The file system is read-only."},
      {POSIXErrorCode::NotEmpty, "The folder is not empty. Use -r to delete it with its contents."},
      {POSIXErrorCode::NotDirectory, "Something in the path is no folder. Check the path."},
      {POSIXErrorCode::Again, systemAdvice().objectHeld},
      {POSIXErrorCode::LinkLoop,
       "The path leads through too many links. Name the object without them."},
      {POSIXErrorCode::NameTooLong,
       "The path, or a name in it, is too long. Delete a folder further up instead."},
      {POSIXErrorCode::Stale,
       "Somebody moves folders out of it. Put an end to that, and try again.",
       "A folder was moved away while it was being deleted."},
      {POSIXErrorCode::NotImplemented, "The installed helper does not offer this operation."},
      {POSIXErrorCode::Canceled, "The authorization was cancelled. Nothing was done."},
      {POSIXErrorCode::IllegalByteSequence, "Text must be UTF-8, and without zero bytes.",
       "An argument cannot be sent to the helper."},
      {NSOSStatusErrorDomain, errAuthorizationInvalidRef, "Try again, with a new authorization.",
       "The authorization is not valid."},
      {NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed,
       systemAdvice().nobodyCanBeAsked, "Not authorized."},
      {NSOSStatusErrorDomain, errAuthorizationInternal, "Try again; 'doctor' tells more.",
       "The system's authority did not answer as it should."},
      {clientErrorDomain, noSuchPreference,
       "Check its name, and whose it is: application, user and host.",
       "There is no such preference, or it cannot be read."},
      {clientErrorDomain, noApplicationName,
       "It is a name in UTF-8 without slashes and control characters, with no point at its begin "
       "and no two in a row.",
       "This cannot be the identifier of an application."},
      {clientErrorDomain, applicationNameTooLong, "Check the name.",
       "The identifier of the application is too long."},
      {clientErrorDomain, otherHost,
       "Change them there; without '--host' it is this machine, with '--any-host' all.",
       "Preferences of another machine are not kept here."},
      {clientErrorDomain, noSuchUser, "Check the name.", "There is no such user."},
      {clientErrorDomain, noPropertyList, "Check the file, or name the kind of the value.",
       "There is no property list that could be sent."},
      {clientErrorDomain, noSuchUtility, knownUtilitiesText, "There is no such utility."},
      {clientErrorDomain, noUtilityInBundle,
       "Name the folder of a bundle, whose Contents/Info.plist names the program beside which the "
       "utility is.",
       "The application is no bundle with a program."},
      {clientErrorDomain, problemsFound, "'doctor' tells more.", "Something stands in the way."},
      {clientErrorDomain, partsLeft, "'doctor' tells more.", "Not all of the helper is removed."},
      {clientErrorDomain, outputIncomplete, "Read it without long pauses, or into a file.",
       "The output is incomplete: nobody took it for too long."},
  });
  return all;
}
constexpr const char* adviceWhenStopped = "It was stopped. What had been done by then stays done.";
constexpr const char* adviceWhenFilledAgain =
    "Somebody keeps writing into it. Put an end to that, and try again.";
constexpr const char* adviceWhenRefused =
    "You are not authorized to do this. Ask an administrator of this machine.";
constexpr const char* adviceWhenProtected =
    "An object there has a protection that the helper does not lift: append-only in a tree, a "
    "system flag, or a flag of the folder that it is in.";

struct CommunicationAdvice {
  Kind kind;
  const char* text;
};
const auto& communicationAdvices() {
  static const auto all = std::to_array<CommunicationAdvice>({
      {Kind::Refused, systemAdvice().helperNotThere},
      {Kind::Lost, systemAdvice().helperEnded},
      {Kind::TimedOut, systemAdvice().helperSilent},
      {Kind::TooLarge, "Ask for less at a time."},
      {Kind::BadMessage,
       "Do the versions of helper and client match? 'version' and 'doctor' tell."},
  });
  return all;
}

const Advice* adviceFor(const Error& error) {
  const auto* advice = std::find_if(advices().begin(), advices().end(), [&error](const Advice& a) {
    return error.is(a.domain, a.code);
  });
  return advice == advices().end() ? nullptr : advice;
}

}  // namespace

std::string suggestionFor(const Error& error, Action action, bool wasAuthorized) {
  const auto localized =
      ZELPrivilegedOperationSetVNT::localizedErrorForPrivilegedOperationError(error);
  if (const auto suggestion = localized->userInfo().text(NSLocalizedRecoverySuggestionErrorKey)) {
    const bool isInLog =
        error.is(ZELPrivilegedOperationSetVNT::errorDomain(), preferencesWriteError.code);
    const std::string more = isInLog ? " " + translated(systemAdvice().preferencesUnwritten) : "";
    return translated(*suggestion) + more;
  }
  if (isPOSIXError(error, POSIXErrorCode::NotPermitted)) {
    return translated(wasAuthorized ? adviceWhenProtected : adviceWhenRefused);
  }
  const bool wasStopped = wasAuthorized || PrivilegedHelperClient::isCancellingOperations();
  if (wasStopped && isPOSIXError(error, POSIXErrorCode::Canceled)) {
    return translated(adviceWhenStopped);
  }
  // The advice is about an operation that the helper does not have; from one that was carried out
  // this error came from a file system.
  if (wasAuthorized && isPOSIXError(error, POSIXErrorCode::NotImplemented)) return {};
  if (isPOSIXError(error, POSIXErrorCode::NotEmpty) && action == Action::DeleteTree) {
    return translated(adviceWhenFilledAgain);
  }
  const Advice* advice = adviceFor(error);
  return advice == nullptr ? std::string() : translated(advice->text);
}

std::string descriptionOf(const Error& error) {
  const Advice* advice = adviceFor(error);
  if (advice != nullptr && advice->description != nullptr) return translated(advice->description);
  return translated(ZELPrivilegedOperationSetVNT::localizedErrorForPrivilegedOperationError(error)
                        ->localizedDescription());
}

std::string suggestionFor(const CommunicationFailure& failure) {
  const auto* advice = std::find_if(communicationAdvices().begin(), communicationAdvices().end(),
                                    [&failure](const auto& a) { return a.kind == failure.kind; });
  return advice == communicationAdvices().end() ? std::string() : translated(advice->text);
}

std::string descriptionOf(const CommunicationFailure& failure) {
  return translated(failure.description);
}

}  // namespace corvane::cli
