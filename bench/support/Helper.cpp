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
  if (!connection) throw std::runtime_error(connection.error().description);
  return *std::move(connection);
}

void askForVersion(HelperConnection& connection) {
  if (!connection.getVersionString(std::nullopt)) throw std::runtime_error("no version");
}

void performNop(HelperConnection& connection, const Data& form) {
  const auto answer =
      connection.performPrivilegedOperation(codeNop, form, std::nullopt, {}, std::nullopt);
  if (!answer || *answer) throw std::runtime_error("nop failed");
}

Data formOf(const ProcessIdentity& process) {
  const auto key = AuthorizationKeyFile(authorizationKeyDirectory()).key();
  const AuthorizationExternalForm form = makeExternalForm(process, *key);
  return {std::begin(form.bytes), std::end(form.bytes)};
}

}  // namespace corvane::bench
