#ifndef CORVANE_CLIENT_CLI_INSTALLATION_H
#define CORVANE_CLIENT_CLI_INSTALLATION_H

#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/cli/Report.h"
#include "foundation/Error.h"
#include "platform/HelperInstallation.h"

namespace corvane::cli {

/// The installation of the helper that came with this program.
std::unique_ptr<HelperInstallation> ownInstallation();

/// The rights of the catalogue, by whether the system's authorization database has them.
struct Rights {
  std::vector<std::string> registered;
  std::vector<std::string> missing;
  std::vector<std::string> unknown;  ///< those that this process may not look up
};
Rights examineRights();

/// Put the rights into the database, or take all or some out; nothing, or why it cannot be done.
/// What was done shows when they are examined.
std::optional<Error> registerRights();
std::optional<Error> removeRights();
std::optional<Error> removeRights(const std::vector<std::string>& names);

/// One line, and one element of a JSON result: what became of one object.
struct Change {
  std::string name;
  const char* state;
};
/// Tells the changes, and in the end `conclusion`.
void tellChanges(const Context& context, const std::vector<Change>& changes,
                 std::string_view conclusion);

/// Nothing for root; for anybody else the status to exit with, after telling how to become root.
std::optional<int> requireRoot(const Context& context, const char* command);

/// Holds back the signals that end a process, for a while in which it must not be ended halfway.
class SignalsHeldBack {
 public:
  SignalsHeldBack();
  SignalsHeldBack(const SignalsHeldBack&) = delete;
  SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;
  ~SignalsHeldBack();

 private:
  sigset_t _before;
};

}  // namespace corvane::cli

#endif
