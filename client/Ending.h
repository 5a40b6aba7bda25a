#ifndef CORVANE_CLIENT_ENDING_H
#define CORVANE_CLIENT_ENDING_H

#include "PrivilegedHelperClient.h"
#include "platform/AuthenticationAgent.h"

namespace corvane {

/// What became of an operation. `dialogs` tells who could be asked by this process, and is called
/// only if it matters.
PrivilegedHelperClient::Ending endingOf(const PrivilegedHelperClient::Outcome& outcome,
                                        AuthorizationDialogs (*dialogs)());

}  // namespace corvane

#endif
