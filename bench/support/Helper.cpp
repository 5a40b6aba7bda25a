#include "bench/support/Helper.h"

#include <chrono>
#include <iterator>
#include <stdexcept>

#include "operations/OperationCodes.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

namespace corvane::bench {

std::unique_ptr<HelperConnection> connectToHelper(const std::string& socketPath) {
  auto connection = HelperConnection::connect(socketPath, std::chrono::seconds(10));
  if (const auto* failure = std::get_if<CommunicationFailure>(&connection)) {
    throw std::runtime_error(failure->description);
  }
  return std::get<std::unique_ptr<HelperConnection>>(std::move(connection));
}

void askForVersion(HelperConnection& connection) {
  const auto version = connection.getVersionString(std::nullopt);
  if (!std::holds_alternative<std::string>(version)) throw std::runtime_error("no version");
}

void performNop(HelperConnection& connection, const Data& form) {
  const auto answer =
      connection.performPrivilegedOperation(codeNop, form, std::nullopt, Array(), std::nullopt);
  const auto* error = std::get_if<std::optional<Error>>(&answer);
  if (error == nullptr || error->has_value()) throw std::runtime_error("nop failed");
}

Data formOf(const ProcessIdentity& process) {
  const auto key = AuthorizationKeyFile(authorizationKeyDirectory()).key();
  const AuthorizationExternalForm form = makeExternalForm(process, *key);
  return {std::begin(form.bytes), std::end(form.bytes)};
}

}  // namespace corvane::bench
