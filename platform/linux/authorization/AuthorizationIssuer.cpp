#include "platform/AuthorizationIssuer.h"

#include "platform/linux/authorization/IssuerSocket.h"

namespace corvane {

namespace {

constexpr const char* systemIssuer = "/run/com.corvane.authorization/socket";

// The form is good for as long as its process lives.
class AuthorizationOfProcess : public IssuedAuthorization {
 public:
  explicit AuthorizationOfProcess(const AuthorizationExternalForm& form) : _form(form) {}
  const AuthorizationExternalForm& externalForm() const override { return _form; }

 private:
  AuthorizationExternalForm _form;
};

}  // namespace

Result<std::unique_ptr<IssuedAuthorization>> IssuedAuthorization::request(
    const std::string& address, std::chrono::milliseconds patience) {
  const auto form =
      requestAuthorizationExternalForm(address.empty() ? systemIssuer : address, patience);
  if (!form) return form.error();
  return std::make_unique<AuthorizationOfProcess>(*form);
}

}  // namespace corvane
