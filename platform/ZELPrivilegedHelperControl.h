#ifndef CORVANE_PLATFORM_ZELPRIVILEGEDHELPERCONTROL_H
#define CORVANE_PLATFORM_ZELPRIVILEGEDHELPERCONTROL_H

#include <cstdint>
#include <string>

#include "foundation/AuthorizationState.h"
#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// What the daemon exports to every connection beside its operations: what one may want to know or
/// do about them from outside. Called as the methods of ZELPrivilegedHelperProtocol are.
class ZELPrivilegedHelperControl {
 public:
  virtual ~ZELPrivilegedHelperControl() = default;

  /// Has the requests that their clients named `token` end at their next safe point: those of the
  /// current client's user or, for root, of anybody. False if there is none in progress.
  virtual bool cancelOperation(const std::string& token) = 0;
  /// What a request for the operation `code` would meet. Nobody is asked anything. The error says
  /// why that cannot be told: an operation that does not exist or an authorization that does not
  /// hold.
  virtual Result<AuthorizationState> queryAuthorization(std::uint64_t code,
                                                        const Data& authorizationData) = 0;
};

}  // namespace corvane

#endif
