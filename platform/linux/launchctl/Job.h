#ifndef CORVANE_PLATFORM_LINUX_LAUNCHCTL_JOB_H
#define CORVANE_PLATFORM_LINUX_LAUNCHCTL_JOB_H

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/launchctl/ServiceManager.h"

namespace corvane {

/// A job as this machine has it: the units "<label>.service" and "<label>.socket", either of which
/// may be missing. With a socket it is started on demand.
class Job {
 public:
  /// Nothing if there is no unit of either kind.
  static std::optional<Job> named(ServiceManager& manager, const std::string& label);
  /// The jobs that are loaded, by their labels.
  static std::map<std::string, Job> all(ServiceManager& manager);

  const std::string& label() const { return _label; }
  bool hasService() const { return _hasService; }
  bool hasSocket() const { return _hasSocket; }
  std::string service() const { return _label + ".service"; }
  std::string socket() const { return _label + ".socket"; }
  /// The units that exist, the socket first: while it listens, it starts the service.
  std::vector<std::string> units() const;

  /// The rest is asked of the manager each time.
  /// The process of the service, if it runs.
  std::optional<std::int64_t> pid(ServiceManager& manager) const;
  /// How the service last ended: an exit status, or a signal's number, negative. 0 if never.
  std::int64_t lastExit(ServiceManager& manager) const;
  /// "active", "inactive", "failed" and so on, of the service or, without one, of the socket.
  std::string state(ServiceManager& manager) const;
  /// The file that defines it.
  std::string path(ServiceManager& manager) const;
  /// The program and its arguments; empty if it has none.
  std::vector<std::string> command(ServiceManager& manager) const;

 private:
  explicit Job(std::string label) : _label(std::move(label)) {}

  std::string _label;
  bool _hasService = false;
  bool _hasSocket = false;
};

}  // namespace corvane

#endif
