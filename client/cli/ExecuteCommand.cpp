#include <atomic>
#include <cerrno>

#include <unistd.h>

#include "client/cli/Commands.h"

namespace corvane::cli {

namespace {

// All of the chunk, as it comes; a reader that is gone misses it.
void write(int descriptor, const Data& chunk) {
  const std::byte* next = chunk.data();
  std::size_t left = chunk.size();
  while (left > 0) {
    const ssize_t written = ::write(descriptor, next, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    next += written;
    left -= static_cast<std::size_t>(written);
  }
}

}  // namespace

int executeUtility(const Context& context, const std::string& application,
                   const std::string& utility, const std::vector<std::string>& arguments) {
  std::atomic<bool> wasAuthorized = false;
  PrivilegedHelperClient::Feedback feedback;
  feedback.output = [&](const Data& chunk) {
    wasAuthorized = true;
    // With --json there is one object on standard output and nothing else.
    write(context.isJSON ? STDERR_FILENO : STDOUT_FILENO, chunk);
  };
  feedback.errorOutput = [](const Data& chunk) { write(STDERR_FILENO, chunk); };
  const auto outcome =
      PrivilegedHelperClient(context.client)
          .executeUtility(application, utility, arguments,
                          context.isWithoutFeedback ? std::nullopt : std::optional(feedback));
  return report(context, "run '" + utility + "'", outcome, wasAuthorized);
}

}  // namespace corvane::cli
