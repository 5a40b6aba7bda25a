#include "platform/HelperInstallation.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <utility>

#include <mach-o/dyld.h>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Path.h"
#include "foundation/Value.h"
#include "platform/macos/installation/LaunchdJob.h"
#include "platform/posix/FileReplacement.h"
#include "platform/posix/InstallationLock.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;
using State = HelperInstallation::Part::State;

// Where the system's own installation of privileged helpers puts them.
constexpr const char* programFolder = "/Library/PrivilegedHelperTools/";
constexpr const char* jobFolder = "/Library/LaunchDaemons/";

constexpr mode_t programPermissions = 0544;
constexpr mode_t jobPermissions = 0644;
constexpr mode_t allPermissions = 07777;

std::optional<Data> contentOf(const std::string& path) {
  // Nothing waits for who may write into a pipe.
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  const std::string content{std::istreambuf_iterator<char>(file), {}};
  return dataFromString(content);
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool isRootsWith(const std::string& path, mode_t permissions) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
         (status.st_mode & allPermissions) == permissions;
}

class MacInstallation : public HelperInstallation {
 public:
  MacInstallation(std::string label, const std::string& payload, std::string root)
      : _root(std::move(root)),
        _source(payload + "/" + label),
        _programPath(programFolder + label),
        _job(label, jobFolder + label + ".plist"),
        _program{inRoot(_programPath), programPermissions, contentOf(_source)},
        _jobFile{inRoot(_job.path()), jobPermissions, _job.contentFor(_programPath)},
        _lock(inRoot("/var/run/" + label + ".installation")),
        _journal(inRoot("/Library/." + label + ".installation")),
        _replacement(_journal) {}

  ~MacInstallation() override { undo(); }

  // The system's packages are told nothing of, and tell nothing about, what a client put in place.
  std::optional<std::string> package() const override { return std::nullopt; }

  Result<void> lock(std::chrono::milliseconds patience,
                    const std::function<void(std::int32_t)>& onWait) override {
    return _lock.take(patience, onWait);
  }

  std::vector<Part> parts() const override {
    std::vector<Part> parts;
    for (const File* file : files()) parts.push_back({file->place, stateOf(*file)});
    if (isRunning()) {
      parts.push_back({serviceName(), _job.isLoaded() ? State::Current : State::Missing});
    }
    return parts;
  }

  std::vector<Fault> faults() const override {
    constexpr const char* cure = "Run 'install' as root: it puts it right.";
    std::vector<Fault> faults;
    for (const File* file : files()) {
      const State state = stateOf(*file);
      // A client may have come without a helper to compare with.
      if (state == State::Current ||
          (!file->content && isRootsWith(file->place, file->permissions)))
        continue;
      faults.push_back(
          {Fault::Kind::Broken,
           file->place +
               (state == State::Missing ? " is missing" : " is not as 'install' puts it in place"),
           cure});
    }
    if (_replacement.isOtherUnfinished()) {
      faults.push_back({Fault::Kind::Broken, "an installation was not completed",
                        "Run 'install' as root, unless one is at work."});
    }
    if (isRunning() && !_job.isLoaded()) {
      faults.push_back({Fault::Kind::Broken, "launchd does not know of " + serviceName(), cure});
    }
    return faults;
  }

  Result<void> putInPlace() override;

  // A helper that runs is of the program that was replaced, and ends when its last client leaves.
  void keep() override {
    _replacement.keep();
    _isLoaded = false;
  }

  std::string programPath() const override { return _programPath; }
  std::string jobPath() const override { return _job.path(); }

  void remove() override;
  std::vector<std::string> leftovers() const override;

 private:
  struct File {
    std::string place;
    mode_t permissions;
    std::optional<Data> content;  ///< that it has to have; nothing where that is not known
  };

  std::string inRoot(const std::string& path) const { return _root == "/" ? path : _root + path; }
  bool isRunning() const { return _root == "/"; }
  std::string serviceName() const { return "system/" + lastPathComponent(_programPath); }
  std::array<const File*, 2> files() const { return {&_program, &_jobFile}; }

  State stateOf(const File& file) const {
    if (!exists(file.place)) return State::Missing;
    const bool isCurrent = file.content && contentOf(file.place) == file.content &&
                           isRootsWith(file.place, file.permissions) &&
                           !_replacement.isOtherUnfinished();
    return isCurrent ? State::Current : State::Different;
  }

  void undo() {
    if (std::exchange(_isLoaded, false)) _job.unload();
    _replacement.undo();
  }

  std::string _root;
  std::string _source;
  std::string _programPath;
  LaunchdJob _job;
  File _program;
  File _jobFile;
  // Before the replacement, so that it is destroyed after it: what is undone then is under the
  // lock.
  InstallationLock _lock;
  std::string _journal;
  FileReplacement _replacement;
  bool _isLoaded = false;  ///< by this object, to be undone
};

Result<void> MacInstallation::putInPlace() {
  if (!_program.content) {
    return posixError(POSIXErrorCode::NoEntry,
                      {{NSFilePathErrorKey, _source},
                       {NSLocalizedDescriptionKey, _source + " is missing from what is installed"},
                       {NSLocalizedRecoverySuggestionErrorKey,
                        "This client came without the helper. Build it from its sources."}});
  }
  _replacement.recover({_program.place, _jobFile.place});
  bool isJobReplaced = false;
  for (const File* file : files()) {
    if (stateOf(*file) == State::Current) continue;
    auto staged = _replacement.stage(*file->content, file->place, file->permissions);
    if (!staged) return staged;
    isJobReplaced |= file == &_jobFile;
  }
  if (auto done = _replacement.apply(); !done) return done;
  if (!isRunning()) return {};
  // What launchd knows is of the file that was replaced.
  if (isJobReplaced) _job.unload();
  if (_job.isLoaded()) return {};
  _isLoaded = true;
  return _job.load();
}

void MacInstallation::remove() {
  if (isRunning()) _job.unload();
  // The journal goes first: with it, the next installation would take this for one that was killed,
  // and put files back.
  ::unlink(_journal.c_str());
  for (const File* file : files()) {
    ::unlink(file->place.c_str());
    for (const std::string& remains : FileReplacement::remainsOf(file->place)) {
      ::unlink(remains.c_str());
    }
  }
}

std::vector<std::string> MacInstallation::leftovers() const {
  std::vector<std::string> all;
  const auto add = [&all](const std::string& path) {
    if (exists(path)) all.push_back(path);
  };
  add(_journal);
  for (const File* file : files()) {
    add(file->place);
    for (const std::string& remains : FileReplacement::remainsOf(file->place)) add(remains);
  }
  if (isRunning() && _job.isLoaded()) all.push_back(serviceName());
  return all;
}

}  // namespace

std::unique_ptr<HelperInstallation> HelperInstallation::ofHelper(std::string label,
                                                                 const std::string& payload,
                                                                 std::string root) {
  return std::make_unique<MacInstallation>(std::move(label), payload, std::move(root));
}

// The helper is built, and comes, beside the client.
std::string HelperInstallation::ownPayload() {
  std::array<char, 4096> path{};
  std::uint32_t size = path.size();
  if (::_NSGetExecutablePath(path.data(), &size) != 0) return ".";
  std::error_code ignored;
  return fs::weakly_canonical(path.data(), ignored).parent_path().string();
}

}  // namespace corvane
