#ifndef CORVANE_PLATFORM_HELPERINSTALLATION_H
#define CORVANE_PLATFORM_HELPERINSTALLATION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "foundation/Result.h"

namespace corvane {

/// What the system needs to run the helper on demand: its program and those that work for it, each
/// in its place, and services that wait for clients. The rights of its operations are not part of
/// it.
///
/// Changing anything takes root, and the lock. One object is used by one thread. Errors tell in
/// their description which object they are about.
class HelperInstallation {
 public:
  struct Part {
    enum class State {
      Missing,
      Different,  ///< there, but of another version, or not ready to use
      Current,
    };
    std::string name;  ///< the path of a file, or the name of a service
    State state;
  };

  /// What keeps an installation from working, or from being what was put in place.
  struct Fault {
    enum class Kind {
      Broken,
      Changed,  ///< it may work all the same, and somebody may have meant it
      Unknown,  ///< it cannot be told
    };
    Kind kind;
    std::string description;  ///< names the object
    std::string cure;
  };

  /// The installation of the helper that has the service identifier `label`, from the folder
  /// `payload`, on the system whose root is `root`: another one than "/" is not running.
  static std::unique_ptr<HelperInstallation> ofHelper(std::string label, const std::string& payload,
                                                      std::string root = "/");
  /// The folder with the payload that came with this program.
  static std::string ownPayload();

  /// Undoes what `putInPlace` did unless it was kept.
  virtual ~HelperInstallation() = default;

  /// The system's package that the helper came with; nothing if a client installed the helper, or
  /// if there is none. The files of a package are put in place and removed by the system, not by
  /// this.
  virtual std::optional<std::string> package() const = 0;

  /// Keeps other processes from changing the installation while this object is there. Waits for who
  /// is changing it, as long as `patience`, after telling `onWait` which process that is, or 0.
  virtual Result<void> lock(std::chrono::milliseconds patience,
                            const std::function<void(std::int32_t)>& onWait) = 0;

  /// Everything that belongs to an installation, and how it is there.
  virtual std::vector<Part> parts() const = 0;
  /// The same in words, and what the running services show beside it. Anybody may look.
  virtual std::vector<Fault> faults() const = 0;

  /// Makes every part current. A program that runs is replaced for those who start it from now on,
  /// and is not disturbed. After an error the system is as it was before, once this object is gone.
  /// The files of a package are left to it: one that is not current is an error.
  virtual Result<void> putInPlace() = 0;
  /// Makes what `putInPlace` did permanent, and has a helper end whose clients have all ended
  /// without a word: nobody would have it make room for the program that is in place.
  virtual void keep() = 0;

  /// The two files that the helper deletes when it removes itself, after which it has the system
  /// forget it.
  virtual std::string programPath() const = 0;
  virtual std::string jobPath() const = 0;

  /// Removes everything that is there, as far as possible. Objects that stay are `leftovers`. What
  /// all helpers share is left to the others, if there are any, and to the package it belongs to.
  virtual void remove() = 0;
  /// What is there of an installation, whole or not: paths and names of services.
  virtual std::vector<std::string> leftovers() const = 0;
};

}  // namespace corvane

#endif
