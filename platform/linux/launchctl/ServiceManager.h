#ifndef CORVANE_PLATFORM_LINUX_LAUNCHCTL_SERVICEMANAGER_H
#define CORVANE_PLATFORM_LINUX_LAUNCHCTL_SERVICEMANAGER_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/linux/bus/Bus.h"

namespace corvane {

/// The name of the exception that is raised when the service manager cannot be reached.
inline constexpr const char* ServiceManagerUnavailable = "ServiceManagerUnavailable";
/// The name of the exception that is raised when a job of the manager fails.
inline constexpr const char* ServiceManagerJobFailure = "ServiceManagerJobFailure";
/// The error on the bus for a unit that is not loaded or has no file.
inline constexpr const char* NoSuchUnit = "org.freedesktop.systemd1.NoSuchUnit";

/// The interfaces that properties of units belong to.
inline constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
inline constexpr const char* serviceInterface = "org.freedesktop.systemd1.Service";

/// systemd, over its interface on the bus. One thread. Every method raises an exception whose
/// reason is a text for a person: one of these two or, when the manager refuses what it is asked
/// for, one with the name of the error on the bus.
class ServiceManager {
 public:
  /// Connects to the manager of the system: root directly, where the manager listens, others
  /// through the system bus. DBUS_SYSTEM_BUS_ADDRESS names another bus.
  ServiceManager();

  std::string version();
  /// The names of the units that are loaded and match one of `patterns`.
  std::vector<std::string> loadedUnits(const std::vector<std::string>& patterns);
  /// True if the manager has, or finds, a definition of the unit, or runs it without one.
  bool isKnown(const std::string& unit);

  std::string text(const std::string& unit, const char* interface, const char* property);
  /// A property of any integer type.
  std::int64_t integer(const std::string& unit, const char* interface, const char* property);
  /// The words of the first command that a service starts; the first is the program's path.
  std::vector<std::string> commandOfService(const std::string& unit);

  /// "StartUnit", "StopUnit" or "RestartUnit", and waits for its result.
  void changeUnit(const char* method, const std::string& unit);
  /// The same, without waiting.
  void queueChangeOfUnit(const char* method, const std::string& unit);

  /// False if the unit does not say what it is to be enabled for.
  bool enableUnit(const std::string& unit);
  /// A unit that is not enabled, or has no file any more, is no failure.
  void disableUnit(const std::string& unit);

 private:
  using Arguments = std::function<int(sd_bus_message*)>;

  BusMessage call(const std::string& path, const char* interface, const char* method,
                  const Arguments& arguments);
  BusMessage callManager(const char* method, const Arguments& arguments);
  BusMessage property(const std::string& path, const char* interface, const char* name);
  std::string pathOfUnit(const std::string& unit);
  std::string jobOfChange(const char* method, const std::string& unit);
  static int jobRemoved(sd_bus_message* message, void* manager, sd_bus_error* error);

  Bus _bus;
  /// The results of the jobs that have ended since the start, by their object paths.
  std::map<std::string, std::string> _results;
};

}  // namespace corvane

#endif
