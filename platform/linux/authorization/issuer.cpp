// The issuer of authorizations. Its standard input is the socket that processes connect to:
//   com.corvane.authorization [SECONDS]   until nobody has come for so long, else until ended

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <optional>
#include <set>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

using namespace corvane;

namespace {

void say(const std::string& text) {
  std::fprintf(stderr, "com.corvane.authorization: %s\n", text.c_str());
}

/// Serves one client after the other. None is waited for: it has its form, or the end of its
/// connection, as soon as it is accepted. So nothing is kept for anybody that could be used up, and
/// who comes next waits for as long as it takes to make the forms of those in front.
class Issuer {
 public:
  /// Until nobody has come for `idleTime`; without it for good. Who comes while it ends stays in
  /// the queue of the socket, which is not its own.
  void serve(const std::optional<timespec>& idleTime) {
    // SIGTERM is blocked but for the wait below, so it never ends the process while a client is
    // being served.
    sigset_t termination;
    sigset_t none;
    sigemptyset(&none);
    sigemptyset(&termination);
    sigaddset(&termination, SIGTERM);
    ::sigprocmask(SIG_BLOCK, &termination, nullptr);
    for (;;) {
      pollfd waiting = {STDIN_FILENO, POLLIN, 0};
      const int ready = ::ppoll(&waiting, 1, idleTime ? &*idleTime : nullptr, &none);
      if (ready == 0) return;
      if (ready > 0) acceptNext();
    }
  }

 private:
  void acceptNext() {
    const FileDescriptor connection(::accept4(STDIN_FILENO, nullptr, nullptr, SOCK_CLOEXEC));
    if (connection) {
      if (const Result<void> issued = issueTo(connection); !issued) tell(issued.error());
    } else if (errno != EAGAIN && errno != ECONNABORTED && errno != EINTR) {
      tell(posixErrorFromHost(errno));
      // The client waits in the queue; trying again at once would spin.
      ::poll(nullptr, 0, 100);
    }
  }

  Result<void> issueTo(const FileDescriptor& connection) {
    const Result<WatchedProcess> process = WatchedProcess::ofPeer(connection.get());
    if (!process) return process.error();
    const Result<AuthorizationKey> key = currentKey();
    if (!key) return key.error();
    const AuthorizationExternalForm form = makeExternalForm(process->identity(), *key);
    // It always fits: nothing was written to this connection before. Who is gone needs none.
    const ssize_t sent =
        ::send(connection.get(), form.bytes, sizeof form.bytes, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent == sizeof form.bytes || (sent < 0 && errno == EPIPE)) return {};
    return posixErrorFromHost(sent < 0 ? errno : EMSGSIZE);
  }

  Result<AuthorizationKey> currentKey() {
    Result<AuthorizationKey> key = _keyFile.key();
    if (key || !(isPOSIXError(key.error(), POSIXErrorCode::BadMessage) ||
                 isPOSIXError(key.error(), POSIXErrorCode::NotPermitted))) {
      return key;
    }
    // Damaged, or known to others maybe. No form that was made with it is to hold any longer.
    tell(key.error());
    key = _keyFile.renewedKey();
    if (key) tellOnce("A new key was made.");
    return key;
  }

  void tell(const Error& error) { tellOnce(error.localizedDescription()); }

  // What clients bring about must not fill the log.
  void tellOnce(const std::string& text) {
    if (_told.insert(text).second) say(text);
  }

  AuthorizationKeyFile _keyFile{authorizationKeyDirectory()};
  std::set<std::string> _told;
};

bool isListening(int socket) {
  int is = 0;
  socklen_t length = sizeof is;
  return ::getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &is, &length) == 0 && is != 0;
}

std::optional<timespec> seconds(const char* text) {
  const char* end = text + std::strlen(text);
  timespec time = {};
  const auto result = std::from_chars(text, end, time.tv_sec);
  if (result.ec != std::errc() || result.ptr != end || time.tv_sec < 0) return std::nullopt;
  return time;
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::optional<timespec> idleTime = argc == 2 ? seconds(argv[1]) : std::nullopt;
  if (argc > 2 || (argc == 2 && !idleTime)) {
    say("usage: com.corvane.authorization [SECONDS]");
    return 2;
  }
  if (!isListening(STDIN_FILENO)) {
    say("Standard input is no socket that clients connect to.");
    return 1;
  }
  // A client that is gone again when it is accepted leaves nothing to wait for.
  ::fcntl(STDIN_FILENO, F_SETFL, ::fcntl(STDIN_FILENO, F_GETFL) | O_NONBLOCK);
  Issuer().serve(idleTime);
  return 0;
}
