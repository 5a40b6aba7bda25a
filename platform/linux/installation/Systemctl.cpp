#include "platform/linux/installation/Systemctl.h"

#include <sstream>
#include <utility>

#include <sys/stat.h>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"

namespace corvane {

namespace {

constexpr const char* program = "/bin/systemctl";

}  // namespace

bool Systemctl::isManagerRunning() const {
  struct stat status {};
  return _root == "/" && ::stat("/run/systemd/system", &status) == 0;
}

ProgramResult Systemctl::ask(std::vector<std::string> arguments) const {
  if (_root != "/") arguments.insert(arguments.begin(), "--root=" + _root);
  arguments.insert(arguments.begin(), "--no-ask-password");
  return runProgram(program, std::move(arguments));
}

Result<void> Systemctl::run(std::vector<std::string> arguments) const {
  std::string command = "systemctl";
  for (const std::string& argument : arguments) command += " " + argument;
  const ProgramResult result = ask(std::move(arguments));
  if (result.status == 0) return {};
  const std::string description =
      result.text.empty() ? command + " has failed (" + std::to_string(result.status) + ")"
                          : command + ": " + result.text;
  return posixError(POSIXErrorCode::InputOutput, {{NSLocalizedDescriptionKey, description}});
}

void Systemctl::attempt(std::vector<std::string> arguments) const {
  ask(std::move(arguments));
}

bool Systemctl::isEnabled(const std::string& unit) const {
  return bool(run({"--quiet", "is-enabled", unit}));
}

bool Systemctl::isMasked(const std::string& unit) const {
  return ask({"is-enabled", unit}).text.starts_with("masked");
}

bool Systemctl::isActive(const std::string& unit) const {
  return bool(run({"--quiet", "is-active", unit}));
}

bool Systemctl::isReloadNeeded(const std::string& unit) const {
  return isManagerRunning() &&
         ask({"show", "--property=NeedDaemonReload", "--value", unit}).text == "yes";
}

Result<UnitProperties> Systemctl::propertiesOf(const std::string& unit) const {
  const ProgramResult result =
      ask({"show", "--property=Id,LoadState,UnitFileState,ActiveState,Result,NeedDaemonReload",
           "--property=DropInPaths,User,MainPID,ExecMainStartTimestampMonotonic", unit});
  if (result.status != 0) {
    return posixError(POSIXErrorCode::InputOutput, {{NSLocalizedDescriptionKey, result.text}});
  }
  UnitProperties properties;
  std::istringstream lines(result.text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t sign = line.find('=');
    if (sign != std::string::npos) properties[line.substr(0, sign)] = line.substr(sign + 1);
  }
  return properties;
}

}  // namespace corvane
