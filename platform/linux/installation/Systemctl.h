#ifndef CORVANE_PLATFORM_LINUX_INSTALLATION_SYSTEMCTL_H
#define CORVANE_PLATFORM_LINUX_INSTALLATION_SYSTEMCTL_H

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Result.h"
#include "platform/posix/Program.h"

namespace corvane {

/// Properties of a unit, by their names.
using UnitProperties = std::map<std::string, std::string>;

/// systemd's own tool, on the system whose root is `root`. It also enables units where systemd does
/// not run, which nothing else does.
class Systemctl {
 public:
  explicit Systemctl(std::string root) : _root(std::move(root)) {}

  /// True if systemd runs the services of that system: units can be started, not only enabled.
  bool isManagerRunning() const;

  /// Runs the tool; a failure is what it said.
  Result<void> run(std::vector<std::string> arguments) const;
  /// Runs it where the rest goes on either way.
  void attempt(std::vector<std::string> arguments) const;

  bool isEnabled(const std::string& unit) const;
  /// True if an administrator keeps the unit from being started at all.
  bool isMasked(const std::string& unit) const;
  bool isActive(const std::string& unit) const;
  /// True if systemd works with another version of the unit than its file.
  bool isReloadNeeded(const std::string& unit) const;
  /// What systemd, which runs, knows of a unit.
  Result<UnitProperties> propertiesOf(const std::string& unit) const;

 private:
  ProgramResult ask(std::vector<std::string> arguments) const;

  std::string _root;
};

}  // namespace corvane

#endif
