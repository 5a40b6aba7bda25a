#include "platform/AuthorizationIssuer.h"

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/macos/authorization/SystemRights.h"

namespace corvane {

namespace {

// The form is good while the reference that made it lives.
class AuthorizationOfProcess : public IssuedAuthorization {
 public:
  explicit AuthorizationOfProcess(AuthorizationRef authorization) : _authorization(authorization) {}
  AuthorizationOfProcess(const AuthorizationOfProcess&) = delete;
  AuthorizationOfProcess& operator=(const AuthorizationOfProcess&) = delete;
  ~AuthorizationOfProcess() override {
    AuthorizationFree(_authorization, kAuthorizationFlagDefaults);
  }

  OSStatus makeForm() { return systemExternalForm(_authorization, _form.bytes); }
  const AuthorizationExternalForm& externalForm() const override { return _form; }

 private:
  AuthorizationRef _authorization;
  AuthorizationExternalForm _form{};
};

Error refusal(OSStatus status) {
  return posixError(POSIXErrorCode::ConnectionReset,
                    {{NSLocalizedDescriptionKey,
                      "The system's authorization services refused: " + std::to_string(status)}});
}

}  // namespace

Result<std::unique_ptr<IssuedAuthorization>> IssuedAuthorization::request(
    const std::string& address, std::chrono::milliseconds /*patience*/) {
  if (!address.empty()) {
    return posixError(
        POSIXErrorCode::NoEntry,
        {{NSFilePathErrorKey, address},
         {NSLocalizedDescriptionKey, address + ": the system itself issues authorizations here"}});
  }
  AuthorizationRef authorization = nullptr;
  OSStatus status =
      AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &authorization);
  if (status != errAuthorizationSuccess) return refusal(status);
  auto issued = std::make_unique<AuthorizationOfProcess>(authorization);
  status = issued->makeForm();
  if (status != errAuthorizationSuccess) return refusal(status);
  return issued;
}

}  // namespace corvane
