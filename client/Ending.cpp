#include "client/Ending.h"

#include "foundation/POSIXError.h"
#include "platform/AuthorizationStatus.h"

namespace corvane {

using Ending = PrivilegedHelperClient::Ending;

Ending endingOf(const PrivilegedHelperClient::Outcome& outcome, AuthorizationDialogs (*dialogs)()) {
  if (!outcome.error) return Ending::Done;
  const Error& error = *outcome.error;
  const bool isAuthorized = outcome.wasAuthorized.value_or(false);
  if (isPOSIXError(error, POSIXErrorCode::Canceled)) {
    return isAuthorized || outcome.wasCancelRequested ? Ending::Cancelled : Ending::Dismissed;
  }
  if (isAuthorized) return Ending::Failed;
  if (isPOSIXError(error, POSIXErrorCode::NotPermitted)) return Ending::Denied;
  if (error.is(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed)) {
    return dialogs() == AuthorizationDialogs::NoAuthority ? Ending::NoAuthority
                                                          : Ending::NobodyToAsk;
  }
  return Ending::Failed;
}

}  // namespace corvane
