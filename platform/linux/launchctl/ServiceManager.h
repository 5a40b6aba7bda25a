#ifndef CORVANE_PLATFORM_LINUX_LAUNCHCTL_SERVICEMANAGER_H
#define CORVANE_PLATFORM_LINUX_LAUNCHCTL_SERVICEMANAGER_H

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/bus/MessageWriter.h"

namespace corvane {

/// Why a subcommand ends before it is done. It is raised: every step needs the one before it, and
/// there is one place that tells the user.
class ServiceManagerFailure : public std::exception {
 public:
  enum class Kind {
    Unavailable,  ///< the manager cannot be reached
    NoSuchUnit,   ///< a unit is not loaded, or has no file
    Refused,      ///< anything else that the manager does not do, or does not bring to its end
  };

  /// `reason` is a text for a person.
  ServiceManagerFailure(Kind kind, std::string reason) : _kind(kind), _reason(std::move(reason)) {}

  Kind kind() const { return _kind; }
  const char* what() const noexcept override { return _reason.c_str(); }

 private:
  Kind _kind;
  std::string _reason;
};

/// The interfaces that properties of units belong to.
inline constexpr const char* unitInterface = "org.freedesktop.systemd1.Unit";
inline constexpr const char* serviceInterface = "org.freedesktop.systemd1.Service";

/// systemd, over its interface on the bus. One thread. Every method raises ServiceManagerFailure.
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
  using Arguments = std::function<void(MessageWriter&)>;

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
