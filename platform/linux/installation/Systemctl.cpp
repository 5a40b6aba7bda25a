#include "platform/linux/installation/Systemctl.h"

#include <utility>

#include <sys/stat.h>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/Pipe.h"
#include "platform/Task.h"

namespace corvane {

namespace {

constexpr const char* program = "/bin/systemctl";

// Reads all that comes: the tool must not wait for a reader of what it says.
std::string readAll(FileHandle& handle) {
  std::string text;
  for (Data chunk = handle.availableData(); !chunk.empty(); chunk = handle.availableData()) {
    text += stringFromData(chunk);
  }
  text.erase(text.find_last_not_of('\n') + 1);
  return text;
}

}  // namespace

bool Systemctl::isManagerRunning() const {
  struct stat status {};
  return _root == "/" && ::stat("/run/systemd/system", &status) == 0;
}

Systemctl::Result Systemctl::runProgram(std::vector<std::string> arguments) const {
  if (_root != "/") arguments.insert(arguments.begin(), "--root=" + _root);
  arguments.insert(arguments.begin(), "--no-ask-password");
  const auto input = Pipe::pipe();
  const auto output = Pipe::pipe();
  if (!input || !output) return {-1, "out of descriptors"};
  const auto task = Task::init();
  task->setStandardInput(input->fileHandleForReading);
  task->setStandardOutput(output->fileHandleForWriting);
  task->setStandardError(output->fileHandleForWriting);
  task->setLaunchPath(program);
  task->setArguments(std::move(arguments));
  try {
    task->launch();
  } catch (const Exception& exception) {
    return {-1, exception.reason()};
  }
  output->fileHandleForWriting->closeFile();
  std::string text = readAll(*output->fileHandleForReading);
  return {task->terminationStatus(), std::move(text)};
}

std::optional<Error> Systemctl::run(std::vector<std::string> arguments) const {
  std::string command = "systemctl";
  for (const std::string& argument : arguments) command += " " + argument;
  const Result result = runProgram(std::move(arguments));
  if (result.status == 0) return std::nullopt;
  const std::string reason =
      result.text.empty() ? "ended with status " + std::to_string(result.status) : result.text;
  return Error(NSPOSIXErrorDomain, static_cast<std::int64_t>(POSIXErrorCode::InputOutput),
               {{std::string(NSLocalizedDescriptionKey), command + ": " + reason}});
}

bool Systemctl::isEnabled(const std::string& unit) const {
  return !run({"--quiet", "is-enabled", unit});
}

bool Systemctl::isActive(const std::string& unit) const {
  return !run({"--quiet", "is-active", unit});
}

bool Systemctl::isReloadNeeded(const std::string& unit) const {
  return isManagerRunning() &&
         runProgram({"show", "--property=NeedDaemonReload", "--value", unit}).text == "yes";
}

}  // namespace corvane
