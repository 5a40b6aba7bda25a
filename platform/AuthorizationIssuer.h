#ifndef CORVANE_PLATFORM_AUTHORIZATIONISSUER_H
#define CORVANE_PLATFORM_AUTHORIZATIONISSUER_H

#include <chrono>
#include <memory>
#include <string>

#include "foundation/Result.h"
#include "platform/Authorization.h"

namespace corvane {

/// An authorization of this process, made by the system for somebody else to use. Its external form
/// may be good only while the object lives, so it is held until the request that carries the form
/// is answered.
class IssuedAuthorization {
 public:
  /// Has one made, within `patience`, by the issuer at `address`; by the system's own if that is
  /// empty. Any thread.
  ///
  /// Errors are in NSPOSIXErrorDomain and name the address: ENOENT, nobody has set an issuer up
  /// there; ECONNREFUSED, nobody listens; ETIMEDOUT, no answer in time; ECONNRESET, the issuer
  /// refused.
  static Result<std::unique_ptr<IssuedAuthorization>> request(const std::string& address,
                                                              std::chrono::milliseconds patience);

  virtual ~IssuedAuthorization() = default;

  virtual const AuthorizationExternalForm& externalForm() const = 0;
};

}  // namespace corvane

#endif
