#include "platform/HelperInstallation.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "foundation/Path.h"
#include "foundation/Value.h"
#include "platform/linux/installation/DebianPackage.h"
#include "platform/linux/installation/FileFaults.h"
#include "platform/linux/installation/Systemctl.h"
#include "platform/linux/installation/UnitFaults.h"
#include "platform/posix/FileReplacement.h"
#include "platform/posix/InstallationLock.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;
using State = HelperInstallation::Part::State;

constexpr const char* issuer = "com.corvane.authorization";
constexpr const char* issuerService = "com.corvane.authorization.service";
// Of older versions, which had a process for each form.
constexpr const char* issuerTemplate = "com.corvane.authorization@.service";
constexpr const char* launchControl = "launchctl";
// What tells our own program of that name from another's.
constexpr std::string_view launchControlMark = "launchctl for systemd, version";

// How the programs of all helpers are called, with the code of the product behind it.
constexpr std::string_view helperPrefix = "com.corvane.system.privilegedhelper-";

constexpr const char* programFolder = "/usr/libexec/";
constexpr const char* unitFolder = "/usr/lib/systemd/system/";

constexpr mode_t programPermissions = 0755;
constexpr mode_t unitPermissions = 0644;

struct InstalledFile {
  std::string source;
  std::string place;
  mode_t permissions;
};

bool isShared(std::string_view name) {
  return name.starts_with(issuer) || name == launchControl;
}

std::optional<std::string> contentsOf(const std::string& path) {
  // Nothing waits for who may write into a pipe.
  std::error_code ignored;
  if (!fs::is_regular_file(path, ignored)) return std::nullopt;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) return std::nullopt;
  std::string contents(static_cast<std::size_t>(std::max<std::streamoff>(file.tellg(), 0)), '\0');
  file.seekg(0).read(contents.data(), static_cast<std::streamsize>(contents.size()));
  return contents;
}

bool exists(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

// False for another's program of the one name that is not ours alone.
bool isFileOfInstallation(const std::string& place) {
  if (lastPathComponent(place) != launchControl) return true;
  const auto contents = contentsOf(place);
  return contents && contents->find(launchControlMark) != std::string::npos;
}

std::string reinstalling(const std::string& package) {
  return "Have it put right: apt install --reinstall " + package;
}

Error errorAbout(POSIXErrorCode code, const std::string& path, const std::string& description,
                 const std::string& advice) {
  return posixError(code, {{NSFilePathErrorKey, path},
                           {NSLocalizedDescriptionKey, path + " " + description},
                           {NSLocalizedRecoverySuggestionErrorKey, advice}});
}

class LinuxInstallation : public HelperInstallation {
 public:
  LinuxInstallation(std::string label, const std::string& payload, std::string root)
      : _label(std::move(label)),
        _root(std::move(root)),
        _systemctl(_root),
        _lock(inRoot("/run/com.corvane.installation")),
        _journal(inRoot("/usr/lib/.com.corvane.installation")),
        _replacement(_journal) {
    const auto add = [&](const std::string& name, const char* folder, mode_t permissions) {
      _files.push_back({payload + "/" + name, inRoot(folder + name), permissions});
    };
    add(_label, programFolder, programPermissions);
    add(issuer, programFolder, programPermissions);
    add(launchControl, "/bin/", programPermissions);
    add(_label + ".service", unitFolder, unitPermissions);
    add(_label + ".socket", unitFolder, unitPermissions);
    add(issuerService, unitFolder, unitPermissions);
    add(std::string(issuer) + ".socket", unitFolder, unitPermissions);
    _sockets = {std::string(issuer) + ".socket", _label + ".socket"};
  }

  ~LinuxInstallation() override { undo(); }

  std::optional<std::string> package() const override {
    return packageOf(programFolder + _label, _root);
  }

  Result<void> lock(std::chrono::milliseconds patience,
                    const std::function<void(std::int32_t)>& onWait) override {
    return _lock.take(patience, onWait);
  }

  std::vector<Part> parts() const override {
    const auto owner = package();
    const auto changed = owner ? changedFilesOf(*owner, _root) : Paths();
    std::vector<Part> parts;
    for (const InstalledFile& file : _files) {
      parts.push_back({file.place, stateOf(file, owner ? &changed : nullptr)});
    }
    for (const std::string& socket : _sockets) parts.push_back({socket, stateOfSocket(socket)});
    return parts;
  }

  std::vector<Fault> faults() const override;

  Result<void> putInPlace() override;

  void keep() override {
    _replacement.keep();
    ::unlink(issuerTemplatePath().c_str());
    forget();
    endForsakenHelper();
  }

  std::string programPath() const override { return programFolder + _label; }
  std::string jobPath() const override { return unitFolder + _label + ".service"; }

  void remove() override;
  std::vector<std::string> leftovers() const override;

 private:
  std::string inRoot(const std::string& path) const { return _root == "/" ? path : _root + path; }

  // By which it begins with the system.
  std::string linkOf(const std::string& socket) const {
    return inRoot("/etc/systemd/system/sockets.target.wants/" + socket);
  }

  std::string issuerTemplatePath() const {
    return inRoot(std::string(unitFolder) + issuerTemplate);
  }

  std::vector<std::string> places() const {
    std::vector<std::string> places;
    for (const InstalledFile& file : _files) places.push_back(file.place);
    return places;
  }

  using Paths = std::set<std::string>;

  // Whether a file has the content it should have: that of the client's own copy or, if a package
  // brought it (`changedInPackage` is not null), the package's, by what dpkg says.
  bool isContentCurrent(const InstalledFile& file, const Paths* changedInPackage) const {
    if (changedInPackage == nullptr) return contentsOf(file.place) == contentsOf(file.source);
    std::error_code ignored;
    const auto folder = fs::weakly_canonical(deletingLastPathComponent(file.place), ignored);
    return !changedInPackage->contains((folder / lastPathComponent(file.place)).string());
  }

  bool isAsPut(const InstalledFile& file, const Paths* changedInPackage) const {
    struct stat status {};
    return ::lstat(file.place.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           status.st_uid == 0 && status.st_gid == 0 &&
           (status.st_mode & ALLPERMS) == file.permissions && !_replacement.isOtherUnfinished() &&
           isContentCurrent(file, changedInPackage);
  }

  bool isReloadNeeded(const InstalledFile& file) const {
    return file.permissions == unitPermissions &&
           _systemctl.isReloadNeeded(lastPathComponent(file.place));
  }

  State stateOf(const InstalledFile& file, const Paths* changedInPackage) const {
    if (!exists(file.place)) return State::Missing;
    return isAsPut(file, changedInPackage) && !isReloadNeeded(file) ? State::Current
                                                                    : State::Different;
  }

  State stateOfSocket(const std::string& socket) const {
    const bool isEnabled = _systemctl.isEnabled(socket);
    const bool isReady =
        isEnabled && (!_systemctl.isManagerRunning() || _systemctl.isActive(socket));
    return isReady ? State::Current : isEnabled ? State::Different : State::Missing;
  }

  // Its socket and its service have its name.
  struct Service {
    std::string name;
    std::string program;
  };
  std::vector<Service> services() const {
    return {{issuer, inRoot(std::string(programFolder) + issuer)},
            {_label, inRoot(programFolder + _label)}};
  }

  std::vector<Fault> faultsOfFiles() const;
  Result<void> checkPlaces(const std::string& package) const;
  Result<void> checkSources() const;
  Result<void> replaceFiles();
  Result<void> makeReady(const std::string& socket);
  void endIssuer() const;
  void endForsakenHelper() const;
  bool isLast() const;
  std::vector<InstalledFile> filesToRemove() const;
  std::vector<std::string> socketsToRemove() const;
  std::vector<std::string> foldersToRemove() const;
  void undo();
  void forget();

  std::string _label;
  std::string _root;
  Systemctl _systemctl;
  std::vector<InstalledFile> _files;
  std::vector<std::string> _sockets;

  // Before the replacement, so that it is destroyed after it: what is undone then is under the
  // lock.
  InstallationLock _lock;
  std::string _journal;
  FileReplacement _replacement;
  std::vector<std::string> _enabled;
  std::vector<std::string> _started;
  bool _isReloadNeeded = false;
  bool _isIssuerReplaced = false;
};

std::vector<HelperInstallation::Fault> LinuxInstallation::faultsOfFiles() const {
  const auto owner = package();
  const auto changed = owner ? changedFilesOf(*owner, _root) : Paths();
  const std::string cure =
      owner ? reinstalling(*owner) : "Run 'install' as root: it puts it right.";
  std::vector<Fault> faults;
  for (const InstalledFile& file : _files) {
    auto fault = faultOfFile(file.place, file.permissions);
    // A client may have come without a helper to compare with.
    const bool isComparable = owner || exists(file.source);
    if (!fault && isComparable && !isContentCurrent(file, owner ? &changed : nullptr)) {
      fault = owner ? "is not as the package " + *owner + " has it"
                    : "is another version than this client came with, or damaged";
    }
    if (fault) faults.push_back({Fault::Kind::Broken, file.place + " " + *fault, cure});
  }
  if (_replacement.isOtherUnfinished()) {
    faults.push_back({Fault::Kind::Broken, "an installation was not completed",
                      "Run 'install' as root, unless one is at work."});
  }
  return faults;
}

std::vector<HelperInstallation::Fault> LinuxInstallation::faults() const {
  std::vector<Fault> faults = faultsOfFiles();
  if (!_systemctl.isManagerRunning()) return faults;
  for (const Service& service : services()) {
    for (const std::string& unit : {service.name + ".socket", service.name + ".service"}) {
      const Result<UnitProperties> properties = _systemctl.propertiesOf(unit);
      if (!properties) {
        faults.push_back(
            {Fault::Kind::Unknown,
             "systemd cannot be asked: " + properties.error().localizedDescription(),
             "See whether the system bus runs: systemctl status dbus.socket, as root"});
        return faults;
      }
      for (const auto& found :
           {faultsOfUnit(*properties), faultsOfRunningProgram(service.program, *properties)}) {
        faults.insert(faults.end(), found.begin(), found.end());
      }
    }
  }
  return faults;
}

Result<void> LinuxInstallation::checkSources() const {
  for (const InstalledFile& file : _files) {
    if (!contentsOf(file.source)) {
      return errorAbout(POSIXErrorCode::NoEntry, file.source, "is missing from what is installed",
                        "This client came without the helper. Install the package "
                        "corvane-privilegedhelper, or build the helper from its sources.");
    }
    if (exists(file.place) && !isFileOfInstallation(file.place)) {
      return errorAbout(POSIXErrorCode::Exists, file.place, "is another program than ours",
                        "Move it away, and try again.");
    }
  }
  return {};
}

Result<void> LinuxInstallation::checkPlaces(const std::string& package) const {
  const auto changed = changedFilesOf(package, _root);
  for (const InstalledFile& file : _files) {
    if (isAsPut(file, &changed)) continue;
    return errorAbout(POSIXErrorCode::Exists, file.place,
                      "is not as the package " + package + " has it", reinstalling(package));
  }
  return {};
}

Result<void> LinuxInstallation::replaceFiles() {
  if (auto done = checkSources(); !done) return done;
  for (const InstalledFile& file : _files) {
    if (isAsPut(file, nullptr)) continue;
    auto staged = _replacement.stage(file.source, file.place, file.permissions);
    if (!staged) return staged;
    _isReloadNeeded |= file.permissions == unitPermissions;
    _isIssuerReplaced |= lastPathComponent(file.place).starts_with(issuer);
  }
  return _replacement.apply();
}

Result<void> LinuxInstallation::putInPlace() {
  _replacement.recover(places());
  const auto owner = package();
  if (auto done = owner ? checkPlaces(*owner) : replaceFiles(); !done) return done;
  for (const InstalledFile& file : _files) _isReloadNeeded |= isReloadNeeded(file);
  if (_isReloadNeeded && _systemctl.isManagerRunning()) {
    if (auto done = _systemctl.run({"daemon-reload"}); !done) return done;
  }
  if (_isIssuerReplaced) endIssuer();
  // Where the helper could not be started so often that it was given up, it counts anew.
  if (_systemctl.isManagerRunning()) {
    _systemctl.attempt({"reset-failed", _label + ".*", std::string(issuer) + ".*"});
  }
  for (const std::string& socket : _sockets) {
    if (auto done = makeReady(socket); !done) return done;
  }
  return {};
}

// An issuer that runs is of the version that was replaced, and would run on for as long as clients
// come. Stopping it costs nobody anything: it ends between two clients, and the next client starts
// the one that is in place.
void LinuxInstallation::endIssuer() const {
  if (!_systemctl.isManagerRunning()) return;
  // The socket of the older versions does not start one for all.
  if (exists(issuerTemplatePath())) _systemctl.attempt({"stop", std::string(issuer) + ".socket"});
  _systemctl.attempt({"stop", issuerService});
}

// One with a client, or with a request in progress, takes no notice.
void LinuxInstallation::endForsakenHelper() const {
  if (!_systemctl.isManagerRunning()) return;
  _systemctl.attempt({"kill", "--kill-who=main", "--signal=WINCH", _label + ".service"});
}

Result<void> LinuxInstallation::makeReady(const std::string& socket) {
  const std::string service = socket.substr(0, socket.rfind('.')) + ".service";
  for (const std::string& unit : {socket, service}) {
    if (!_systemctl.isMasked(unit)) continue;
    return errorAbout(POSIXErrorCode::NotSupported, unit, "is masked",
                      "Unless that is meant: systemctl unmask " + unit + ", and try again.");
  }
  if (!_systemctl.isEnabled(socket)) {
    _enabled.push_back(socket);
    if (auto done = _systemctl.run({"--quiet", "enable", socket}); !done) return done;
  }
  if (_systemctl.isManagerRunning() && !_systemctl.isActive(socket)) {
    _started.push_back(socket);
    // A socket is not started while its service runs, which for the issuer is never for long.
    if (service == issuerService) endIssuer();
    auto started = _systemctl.run({"start", socket});
    if (!started && _systemctl.isActive(service)) {
      endForsakenHelper();
      return errorAbout(POSIXErrorCode::Busy, socket,
                        "cannot be started while " + service + " runs",
                        "Try again when its clients have left, or end it with what it is doing: "
                        "systemctl stop " +
                            service);
    }
    return started;
  }
  return {};
}

// Failures are not looked at: there is nothing more to be done about them, and a step that cannot
// be undone is mostly one that failed in the first place.
void LinuxInstallation::undo() {
  for (const std::string& socket : _started) _systemctl.attempt({"stop", socket});
  for (const std::string& socket : _enabled) _systemctl.attempt({"--quiet", "disable", socket});
  _replacement.undo();
  if (_isReloadNeeded && _systemctl.isManagerRunning()) _systemctl.attempt({"daemon-reload"});
  if (_isIssuerReplaced) endIssuer();
  forget();
}

void LinuxInstallation::forget() {
  _enabled.clear();
  _started.clear();
  _isReloadNeeded = false;
  _isIssuerReplaced = false;
}

// Whether what all helpers share goes with this one: neither is there another helper that needs it,
// nor a package that it belongs to.
bool LinuxInstallation::isLast() const {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(inRoot(programFolder), ignored)) {
    const std::string name = entry.path().filename();
    if (name.starts_with(helperPrefix) && name != _label) return false;
  }
  return !packageOf(std::string(programFolder) + issuer, _root);
}

std::vector<InstalledFile> LinuxInstallation::filesToRemove() const {
  std::vector<InstalledFile> files = _files;
  if (!isLast()) {
    std::erase_if(files, [](const auto& file) { return isShared(lastPathComponent(file.place)); });
  }
  return files;
}

std::vector<std::string> LinuxInstallation::socketsToRemove() const {
  std::vector<std::string> sockets = _sockets;
  if (!isLast()) std::erase_if(sockets, isShared);
  return sockets;
}

// The folders of the sockets, of the key and of the rights, none of which outlives the helpers.
std::vector<std::string> LinuxInstallation::foldersToRemove() const {
  std::vector<std::string> folders = {inRoot("/run/" + _label)};
  if (isLast()) {
    folders.push_back(inRoot(std::string("/run/") + issuer));
    folders.push_back(inRoot(std::string("/var/lib/") + issuer));
  }
  return folders;
}

void LinuxInstallation::remove() {
  // Looked at before anything goes.
  const bool takesShared = isLast();
  const auto files = filesToRemove();
  const auto folders = foldersToRemove();
  for (const std::string& socket : socketsToRemove()) {
    if (_systemctl.isManagerRunning()) _systemctl.attempt({"stop", socket});
    _systemctl.attempt({"--quiet", "disable", socket});
    // systemctl refuses to disable a unit that is masked, and leaves this link.
    ::unlink(linkOf(socket).c_str());
  }
  if (_systemctl.isManagerRunning()) {
    _systemctl.attempt({"stop", _label + ".service"});
    if (takesShared) _systemctl.attempt({"stop", issuerService});
  }
  // The journal goes first: with it, the next installation would take this for one that was killed,
  // and put files back.
  ::unlink(_journal.c_str());
  for (const InstalledFile& file : files) {
    if (isFileOfInstallation(file.place)) ::unlink(file.place.c_str());
    for (const std::string& remains : FileReplacement::remainsOf(file.place)) {
      ::unlink(remains.c_str());
    }
  }
  ::unlink(issuerTemplatePath().c_str());
  std::error_code ignored;
  for (const std::string& folder : folders) fs::remove_all(folder, ignored);
  if (_systemctl.isManagerRunning()) {
    _systemctl.attempt({"daemon-reload"});
    _systemctl.attempt({"reset-failed", _label + ".*"});
    if (takesShared) _systemctl.attempt({"reset-failed", std::string(issuer) + "*"});
  }
}

std::vector<std::string> LinuxInstallation::leftovers() const {
  std::vector<std::string> all = {_journal, issuerTemplatePath()};
  for (const InstalledFile& file : filesToRemove()) {
    if (isFileOfInstallation(file.place)) all.push_back(file.place);
    const auto remains = FileReplacement::remainsOf(file.place);
    all.insert(all.end(), remains.begin(), remains.end());
  }
  const auto folders = foldersToRemove();
  all.insert(all.end(), folders.begin(), folders.end());
  all.erase(
      std::remove_if(all.begin(), all.end(), [](const std::string& path) { return !exists(path); }),
      all.end());
  for (const std::string& socket : socketsToRemove()) {
    if (_systemctl.isEnabled(socket) ||
        (_systemctl.isManagerRunning() && _systemctl.isActive(socket))) {
      all.push_back(socket);
    }
  }
  return all;
}

}  // namespace

std::unique_ptr<HelperInstallation> HelperInstallation::ofHelper(std::string label,
                                                                 const std::string& payload,
                                                                 std::string root) {
  return std::make_unique<LinuxInstallation>(std::move(label), payload, std::move(root));
}

// Beside the program where it was built, else where it was installed to.
std::string HelperInstallation::ownPayload() {
  std::error_code ignored;
  const fs::path folder = fs::read_symlink("/proc/self/exe", ignored).parent_path();
  if (fs::exists(folder / (std::string(issuer) + ".socket"), ignored)) return folder.string();
  return (folder.parent_path() / "lib" / "corvane").string();
}

}  // namespace corvane
