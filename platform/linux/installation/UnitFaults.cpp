#include "platform/linux/installation/UnitFaults.h"

#include <cerrno>
#include <charconv>
#include <cstdint>
#include <ctime>

#include <sys/stat.h>

namespace corvane {

namespace {

using Fault = HelperInstallation::Fault;
using Kind = Fault::Kind;

std::string valueOf(const UnitProperties& properties, const char* name) {
  const auto found = properties.find(name);
  return found == properties.end() ? "" : found->second;
}

bool isSocket(const UnitProperties& properties) {
  return valueOf(properties, "Id").ends_with(".socket");
}

struct Check {
  Kind kind;
  bool (*isFailed)(const UnitProperties& properties);
  /// In both UNIT stands for the unit's name, and a property's name in braces for its value.
  const char* description;
  const char* cure;
};
constexpr Check checks[] = {
    {Kind::Broken, [](const UnitProperties& p) { return valueOf(p, "LoadState") == "masked"; },
     "UNIT is masked", "Unless that is meant: systemctl unmask UNIT, and run 'install' as root."},
    {Kind::Broken, [](const UnitProperties& p) { return valueOf(p, "LoadState") == "not-found"; },
     "UNIT is missing", "Run 'install' as root."},
    {Kind::Broken, [](const UnitProperties& p) { return valueOf(p, "LoadState") != "loaded"; },
     "UNIT cannot be used as it is written ({LoadState})",
     "See what is wrong: systemctl status UNIT"},
    {Kind::Broken, [](const UnitProperties& p) { return valueOf(p, "NeedDaemonReload") == "yes"; },
     "UNIT was changed, and systemd works with what it was",
     "Run 'install' as root, or: systemctl daemon-reload"},
    {Kind::Broken,
     [](const UnitProperties& p) {
       return isSocket(p) && !valueOf(p, "UnitFileState").starts_with("enabled");
     },
     "UNIT is disabled: it is not there after the next start of the system",
     "Run 'install' as root, or: systemctl enable UNIT"},
    {Kind::Broken, [](const UnitProperties& p) { return valueOf(p, "ActiveState") == "failed"; },
     "UNIT has failed ({Result})",
     "See why: journalctl -u UNIT; once that is mended, run 'install' as root."},
    {Kind::Broken,
     [](const UnitProperties& p) { return isSocket(p) && valueOf(p, "ActiveState") == "inactive"; },
     "UNIT is stopped", "Run 'install' as root."},
    {Kind::Broken,
     [](const UnitProperties& p) {
       const std::string user = valueOf(p, "User");
       return !user.empty() && user != "root" && user != "0";
     },
     "UNIT runs as {User}, and can do its work only as root",
     "Take User= out of what changes it: systemctl cat UNIT"},
    {Kind::Changed, [](const UnitProperties& p) { return !valueOf(p, "DropInPaths").empty(); },
     "UNIT is changed by {DropInPaths}",
     "If it does not work as it should, try it without: systemctl cat UNIT shows all of it."},
};

std::string filled(std::string text, const UnitProperties& properties) {
  const auto replaceAll = [&text](const std::string& what, const std::string& with) {
    for (std::size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size())) {
      text.replace(at, what.size(), with);
    }
  };
  for (const auto& [name, value] : properties) replaceAll("{" + name + "}", value);
  replaceAll("UNIT", valueOf(properties, "Id"));
  return text;
}

std::int64_t numberOf(const UnitProperties& properties, const char* name) {
  const std::string text = valueOf(properties, name);
  std::int64_t number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::int64_t nanoseconds(const timespec& time) {
  return time.tv_sec * 1'000'000'000 + time.tv_nsec;
}

std::int64_t now(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return nanoseconds(time);
}

}  // namespace

InstallationFaults faultsOfUnit(const UnitProperties& properties) {
  InstallationFaults faults;
  for (const Check& check : checks) {
    if (!check.isFailed(properties)) continue;
    faults.push_back(
        {check.kind, filled(check.description, properties), filled(check.cure, properties)});
    // Of one that is not loaded nothing more is known.
    if (valueOf(properties, "LoadState") != "loaded") break;
  }
  return faults;
}

InstallationFaults faultsOfRunningProgram(const std::string& program,
                                          const UnitProperties& properties) {
  const std::int64_t pid = numberOf(properties, "MainPID");
  struct stat installed {};
  struct stat running {};
  if (pid == 0 || ::stat(program.c_str(), &installed) != 0) return {};
  const std::string process = valueOf(properties, "Id") + " runs as process " + std::to_string(pid);
  if (::stat(("/proc/" + std::to_string(pid) + "/exe").c_str(), &running) == 0) {
    if (running.st_dev == installed.st_dev && running.st_ino == installed.st_ino) return {};
    return {{Kind::Changed, process + " with another program than " + program + " is now",
             filled("It ends with its last client; 'install' ends it when it has none left, and so "
                    "does, with what it is doing: systemctl stop UNIT",
                    properties)}};
  }
  // It has ended, or only root may see what it executes, and others when it began.
  const std::int64_t began = numberOf(properties, "ExecMainStartTimestampMonotonic") * 1000 +
                             now(CLOCK_REALTIME) - now(CLOCK_MONOTONIC);
  if (errno != EACCES || nanoseconds(installed.st_ctim) <= began) return {};
  return {{Kind::Unknown, process + " since before " + program + " was put there",
           "Root is told whether it is another program: run 'doctor' as root."}};
}

}  // namespace corvane
