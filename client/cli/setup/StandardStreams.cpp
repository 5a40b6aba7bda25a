#include "client/cli/setup/StandardStreams.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

#include "client/cli/output/Report.h"
#include "client/cli/output/Translation.h"
#include "foundation/POSIXError.h"

namespace corvane::cli {

void openClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest number that is free is the stream's.
    if (::fcntl(stream, F_GETFD) < 0) ::open("/dev/null", O_RDWR);
  }
  // Whoever reads the output may stop before the command is done ("| head -1"): that is no reason
  // to end in the middle of an operation.
  std::signal(SIGPIPE, SIG_IGN);
}

int statusAfterOutput(int status) {
  if (std::fflush(stdout) == 0 || errno == EPIPE) return status;
  const std::string reason = translated(posixDescription(posixCodeFromHost(errno)));
  std::fprintf(stderr, "%s\n", translated(cannotPrintText, reason).c_str());
  return status == ExitDone ? static_cast<int>(ExitFailed) : status;
}

}  // namespace corvane::cli
