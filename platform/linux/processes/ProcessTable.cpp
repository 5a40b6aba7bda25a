#include "platform/ProcessTable.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/Path.h"

namespace corvane {

namespace {

constexpr std::size_t kernelNameLength = 15;
constexpr std::string_view deletedSuffix = " (deleted)";

// The beginning of a file of the process, up to `limit` bytes; nothing once the process is gone.
std::optional<std::string> beginningOfFile(const FileDescriptor& process, const char* name,
                                           std::size_t limit) {
  const FileDescriptor file(openat(process.get(), name, O_RDONLY | O_CLOEXEC));
  if (!file) return std::nullopt;
  std::string text(limit, '\0');
  std::size_t length = 0;
  while (length < limit) {
    const ssize_t count = read(file.get(), &text[length], limit - length);
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
  }
  text.resize(length);
  return text;
}

std::string nameOfExecutable(const FileDescriptor& process) {
  std::string target(4096, '\0');
  const ssize_t length = readlinkat(process.get(), "exe", target.data(), target.size());
  if (length <= 0) return {};
  target.resize(static_cast<std::size_t>(length));
  if (target.ends_with(deletedSuffix)) target.resize(target.size() - deletedSuffix.size());
  return lastPathComponent(target);
}

// The kernel cuts names at 15 bytes. What comes after shows in the name of the executable or, for
// a script, in the word of its command line that names it.
std::string completedName(const FileDescriptor& process, std::string name) {
  if (name.size() != kernelNameLength) return name.substr(0, ZELShortProcessNameLength);
  const std::string executable = nameOfExecutable(process);
  if (executable.starts_with(name)) return executable.substr(0, ZELShortProcessNameLength);

  // Before the script stand its interpreter and at most one option.
  const std::string commandLine = beginningOfFile(process, "cmdline", 16384).value_or("");
  std::string_view rest = commandLine;
  for (int word = 0; word < 3 && !rest.empty(); ++word) {
    const std::string candidate = lastPathComponent(rest.substr(0, rest.find('\0')));
    if (candidate.starts_with(name)) return candidate.substr(0, ZELShortProcessNameLength);
    rest.remove_prefix(std::min(rest.size(), rest.find('\0') + 1));
  }
  return name;
}

// The beginning of what "status" of the process says, its user, state and thread group included.
std::optional<std::string> statusOfProcess(const FileDescriptor& process) {
  return beginningOfFile(process, "status", 4096);
}

// What stands after `key` in the process's status; empty if it is not there.
std::string_view valueInStatus(std::string_view status, std::string_view key) {
  // The name in the first line has its line feeds escaped, so this is the beginning of a line.
  const auto line = status.find("\n" + std::string(key) + ":\t");
  return line == std::string_view::npos ? "" : status.substr(line + key.size() + 3);
}

std::optional<std::uint32_t> effectiveUserID(const std::string& status) {
  std::uint32_t real = 0;
  std::uint32_t effective = 0;
  const std::string users(valueInStatus(status, "Uid"));
  if (std::sscanf(users.c_str(), "%u\t%u", &real, &effective) != 2) return std::nullopt;
  return effective;
}

// The state of a process is that of its first thread. If that has ended before the others, the
// process runs although its state says otherwise, and only the number of threads tells.
bool hasOtherThreads(const FileDescriptor& process) {
  const std::string stat = beginningOfFile(process, "stat", 4096).value_or("");
  const auto endOfName = stat.rfind(')');
  if (endOfName == std::string::npos) return true;
  long threads = 0;
  // The state is the third field, the number of threads the twentieth.
  std::sscanf(stat.c_str() + endOfName + 1,
              " %*c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %ld", &threads);
  return threads > 1;
}

// Whether the process only waits for its parent to collect it.
bool waitsToBeCollected(const FileDescriptor& process, const std::string& status) {
  const std::string_view state = valueInStatus(status, "State");
  return (state.starts_with('Z') || state.starts_with('X')) && !hasOtherThreads(process);
}

// Whether a process of which something could not be read is gone, or hidden from this one.
bool isGone(int error) {
  return error == ENOENT || error == ESRCH || error == EACCES || error == EPERM;
}

// Nothing for what is no running process; `isKnown` becomes false where that cannot be told.
std::optional<ProcessRecord> recordOfProcess(int processes, const char* directory, bool& isKnown) {
  const std::string_view digits = directory;
  std::int32_t pid = 0;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), pid);
  if (parsed.ec != std::errc() || parsed.ptr != digits.data() + digits.size()) return std::nullopt;

  // Everything is read through the one descriptor: it never comes to mean another process.
  const FileDescriptor process(openat(processes, directory, O_PATH | O_DIRECTORY | O_CLOEXEC));
  auto name = process ? beginningOfFile(process, "comm", 256) : std::nullopt;
  const auto status = name ? statusOfProcess(process) : std::nullopt;
  if (!status) {
    isKnown = isGone(errno);
    return std::nullopt;
  }
  const auto userID = effectiveUserID(*status);
  if (!userID || waitsToBeCollected(process, *status)) return std::nullopt;
  if (name->ends_with('\n')) name->pop_back();
  return ProcessRecord{pid, completedName(process, *std::move(name)), *userID};
}

}  // namespace

std::optional<std::vector<ProcessRecord>> readProcessTable() {
  const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
  if (!processes) return std::nullopt;
  std::vector<ProcessRecord> records;
  bool isKnown = true;
  while (const dirent* entry = readdir(processes.get())) {
    auto record = recordOfProcess(dirfd(processes.get()), entry->d_name, isKnown);
    if (!isKnown) return std::nullopt;
    if (record) records.push_back(*std::move(record));
  }
  return records;
}

bool hasProcessEnded(std::int32_t pid) {
  if (pid <= 0 || (kill(pid, 0) != 0 && errno == ESRCH)) return true;
  const std::string path = "/proc/" + std::to_string(pid);
  const FileDescriptor process(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const auto status = process ? statusOfProcess(process) : std::nullopt;
  if (!status) return false;
  // The number of a thread that is not its process's first is the number of no process.
  const bool isProcess = valueInStatus(*status, "Tgid").starts_with(std::to_string(pid) + "\n");
  return !isProcess || waitsToBeCollected(process, *status);
}

}  // namespace corvane
