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

std::variant<std::unique_ptr<IssuedAuthorization>, Error> IssuedAuthorization::request(
    const std::string& address, std::chrono::milliseconds patience) {
  const auto form =
      requestAuthorizationExternalForm(address.empty() ? systemIssuer : address, patience);
  if (const auto* error = std::get_if<Error>(&form)) return *error;
  return std::make_unique<AuthorizationOfProcess>(std::get<AuthorizationExternalForm>(form));
}

}  // namespace corvane
