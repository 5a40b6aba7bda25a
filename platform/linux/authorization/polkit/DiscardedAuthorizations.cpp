#include "platform/linux/authorization/polkit/DiscardedAuthorizations.h"

#include <charconv>
#include <filesystem>
#include <sstream>

#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "platform/linux/authorization/FileStamp.h"
#include "platform/linux/authorization/RootFolder.h"

namespace corvane {

namespace {

std::string fileNameFor(const ProcessIdentity& subject) {
  return std::to_string(subject.pid) + "-" + std::to_string(subject.startTime);
}

/// The process that a file is about; nothing for a file of another kind.
std::optional<ProcessIdentity> processOf(std::string_view fileName) {
  ProcessIdentity process = {};
  const char* end = fileName.data() + fileName.size();
  const auto pid = std::from_chars(fileName.data(), end, process.pid);
  if (pid.ec != std::errc() || pid.ptr == end || *pid.ptr != '-') return std::nullopt;
  const auto startTime = std::from_chars(pid.ptr + 1, end, process.startTime);
  if (startTime.ec != std::errc() || startTime.ptr != end) return std::nullopt;
  return process;
}

}  // namespace

DiscardedAuthorizations::DiscardedAuthorizations(std::string directory)
    : _directory(std::move(directory)) {}

bool DiscardedAuthorizations::discard(const ProcessIdentity& subject) {
  const std::lock_guard guard(_lock);
  forgetEndedProcesses();
  return write(subject, {});
}

std::optional<std::set<std::string>> DiscardedAuthorizations::grantedSince(
    const ProcessIdentity& subject) {
  // Nearly nobody ever discards: one system call says so.
  if (!FileStamp::of(_directory + "/" + fileNameFor(subject))) return std::nullopt;
  const std::lock_guard guard(_lock);
  return read(subject);
}

void DiscardedAuthorizations::grant(const ProcessIdentity& subject,
                                    const std::string& authorization) {
  const std::lock_guard guard(_lock);
  std::optional<std::set<std::string>> authorizations = read(subject);
  if (authorizations && authorizations->insert(authorization).second) {
    write(subject, *authorizations);
  }
}

std::optional<std::set<std::string>> DiscardedAuthorizations::read(
    const ProcessIdentity& subject) const {
  const Result<RootFolder> folder = RootFolder::open(_directory);
  const Result<Data> bytes =
      folder ? folder->read(fileNameFor(subject), rootAlone) : folder.error();
  std::set<std::string> authorizations;
  if (!bytes) {
    if (isPOSIXError(bytes.error(), POSIXErrorCode::NoEntry)) return std::nullopt;
    // There is a file, so something was discarded. What was granted since cannot be read: nothing.
    return authorizations;
  }
  std::istringstream lines{std::string(stringFromData(*bytes))};
  for (std::string line; std::getline(lines, line);) authorizations.insert(line);
  return authorizations;
}

bool DiscardedAuthorizations::write(const ProcessIdentity& subject,
                                    const std::set<std::string>& authorizations) const {
  std::string lines;
  for (const std::string& authorization : authorizations) lines += authorization + "\n";
  const Result<RootFolder> folder = RootFolder::openOrMake(_directory);
  return folder && folder->replace(fileNameFor(subject), dataFromString(lines), rootAlone);
}

void DiscardedAuthorizations::forgetEndedProcesses() const {
  std::error_code error;
  for (std::filesystem::directory_iterator entry(_directory, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::optional<ProcessIdentity> process = processOf(entry->path().filename().string());
    std::error_code ignored;
    if (process && !process->isRunning()) std::filesystem::remove(entry->path(), ignored);
  }
}

}  // namespace corvane
