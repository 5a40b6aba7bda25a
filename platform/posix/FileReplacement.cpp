#include "platform/posix/FileReplacement.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <set>
#include <span>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"
#include "foundation/POSIXError.h"
#include "foundation/Path.h"

namespace corvane {

namespace {

// Hidden, and with an ending that nothing takes for a file of the folder's kind.
std::string siblingOf(const std::string& place, const char* ending) {
  return deletingLastPathComponent(place) + "/." + lastPathComponent(place) + ending;
}

std::string newNameFor(const std::string& place) {
  return siblingOf(place, ".corvane-new");
}

std::string oldNameFor(const std::string& place) {
  return siblingOf(place, ".corvane-old");
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool writeAll(int to, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(to, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return true;
}

bool copyContents(int from, int to) {
  std::array<std::byte, 65536> buffer{};
  for (;;) {
    const ssize_t count = ::read(from, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return count == 0;
    if (!writeAll(to, std::span(buffer).first(static_cast<std::size_t>(count)))) return false;
  }
}

void syncFolderOf(const std::string& place) {
  const FileDescriptor folder(
      ::open(deletingLastPathComponent(place).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) ::fsync(folder.get());
}

}  // namespace

FileReplacement::~FileReplacement() {
  undo();
}

std::vector<std::string> FileReplacement::remainsOf(const std::string& place) {
  return {newNameFor(place), oldNameFor(place)};
}

Result<void> FileReplacement::makeFolder(const std::string& path) {
  if (path.empty() || ::access(path.c_str(), F_OK) == 0) return {};
  if (auto done = makeFolder(deletingLastPathComponent(path)); !done) return done;
  if (::mkdir(path.c_str(), 0755) != 0) return posixErrorAbout(path, errno);
  _folders.push_back(path);
  // The process's umask may have taken some of the permissions away.
  if (::chmod(path.c_str(), 0755) != 0) return posixErrorAbout(path, errno);
  return {};
}

Result<void> FileReplacement::stage(const std::string& source, const std::string& place,
                                    mode_t permissions) {
  const FileDescriptor from(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from) return posixErrorAbout(source, errno);
  return stageWritten([&from](int to) { return copyContents(from.get(), to); }, place, permissions);
}

Result<void> FileReplacement::stage(const Data& content, const std::string& place,
                                    mode_t permissions) {
  return stageWritten([&content](int to) { return writeAll(to, content); }, place, permissions);
}

template <typename Write>
Result<void> FileReplacement::stageWritten(Write write, const std::string& place,
                                           mode_t permissions) {
  if (auto done = makeFolder(deletingLastPathComponent(place)); !done) return done;
  const std::string name = newNameFor(place);
  ::unlink(name.c_str());
  _files.push_back({place});
  const FileDescriptor to(
      ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!to || !write(to.get()) || ::fchown(to.get(), 0, 0) != 0 ||
      ::fchmod(to.get(), permissions) != 0 || ::fsync(to.get()) != 0) {
    return posixErrorAbout(name, errno);
  }
  return {};
}

// The journal lists the places where there is no file yet: if this process is killed, what is found
// there later was put there by it, and is removed.
Result<void> FileReplacement::beginJournal() {
  std::string text;
  for (const File& file : _files) {
    if (!exists(file.place)) text += file.place + "\n";
  }
  const FileDescriptor journal(
      ::open(_journal.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!journal) return posixErrorAbout(_journal, errno);
  _isJournalBegun = true;
  if (::write(journal.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
      ::fsync(journal.get()) != 0) {
    return posixErrorAbout(_journal, errno);
  }
  syncFolderOf(_journal);
  return {};
}

void FileReplacement::endJournal() {
  if (!std::exchange(_isJournalBegun, false)) return;
  ::unlink(_journal.c_str());
  syncFolderOf(_journal);
}

bool FileReplacement::isOtherUnfinished() const {
  return !_isJournalBegun && exists(_journal);
}

void FileReplacement::recover(const std::vector<std::string>& places) const {
  std::set<std::string> wereEmpty;
  std::ifstream journal(_journal);
  const bool isUnfinished = journal.is_open();
  for (std::string line; std::getline(journal, line);) wereEmpty.insert(line);
  for (const std::string& place : places) {
    const std::string old = oldNameFor(place);
    if (wereEmpty.count(place) != 0) {
      ::unlink(place.c_str());
    } else if (isUnfinished) {
      ::rename(old.c_str(), place.c_str());
    }
    // Also the old name: rename does nothing where both names are of one and the same file.
    for (const std::string& remains : remainsOf(place)) ::unlink(remains.c_str());
  }
  ::unlink(_journal.c_str());
}

Result<void> FileReplacement::apply() {
  if (_files.empty()) return {};
  if (auto done = beginJournal(); !done) return done;
  for (File& file : _files) {
    const std::string old = oldNameFor(file.place);
    ::unlink(old.c_str());
    // A second name for what is there: the place itself is never empty.
    file.isOldKept = ::linkat(AT_FDCWD, file.place.c_str(), AT_FDCWD, old.c_str(), 0) == 0;
    if (!file.isOldKept && errno != ENOENT) return posixErrorAbout(file.place, errno);
    if (::rename(newNameFor(file.place).c_str(), file.place.c_str()) != 0) {
      return posixErrorAbout(file.place, errno);
    }
    file.isInPlace = true;
  }
  for (const File& file : _files) syncFolderOf(file.place);
  return {};
}

void FileReplacement::keep() {
  endJournal();
  for (const File& file : _files) ::unlink(oldNameFor(file.place).c_str());
  _files.clear();
  _folders.clear();
}

void FileReplacement::undo() {
  for (auto file = _files.rbegin(); file != _files.rend(); ++file) {
    const std::string old = oldNameFor(file->place);
    ::unlink(newNameFor(file->place).c_str());
    if (file->isInPlace && file->isOldKept) {
      ::rename(old.c_str(), file->place.c_str());
    } else if (file->isInPlace) {
      ::unlink(file->place.c_str());
    } else if (file->isOldKept) {
      ::unlink(old.c_str());
    }
  }
  for (auto folder = _folders.rbegin(); folder != _folders.rend(); ++folder) {
    ::rmdir(folder->c_str());
  }
  endJournal();
  _files.clear();
  _folders.clear();
}

}  // namespace corvane
