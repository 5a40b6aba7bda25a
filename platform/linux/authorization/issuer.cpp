// The issuer of authorizations: one short-lived process for each form, whose standard input is the
// socket that the asking process connected.

#include <cerrno>
#include <cstdio>

#include <sys/socket.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

using namespace corvane;

namespace {

int fail(const Error& error) {
  std::fprintf(stderr, "com.corvane.authorization: %s\n", error.localizedDescription().c_str());
  return 1;
}

}  // namespace

int main() {
  const auto process = WatchedProcess::ofPeer(STDIN_FILENO);
  if (const Error* error = std::get_if<Error>(&process)) return fail(*error);
  const auto key = AuthorizationKeyFile(authorizationKeyDirectory()).key();
  if (const Error* error = std::get_if<Error>(&key)) return fail(*error);

  const AuthorizationExternalForm form = makeExternalForm(
      std::get<WatchedProcess>(process).identity(), std::get<AuthorizationKey>(key));
  // It always fits: nothing was written to this connection before.
  const ssize_t sent =
      ::send(STDIN_FILENO, form.bytes, sizeof form.bytes, MSG_NOSIGNAL | MSG_DONTWAIT);
  if (sent < 0) return fail(posixErrorFromHost(errno));
  return sent == sizeof form.bytes ? 0 : fail(posixErrorFromHost(EPIPE));
}
