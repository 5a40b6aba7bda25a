#ifndef CORVANE_PLATFORM_MACOS_INSTALLATION_LAUNCHDJOB_H
#define CORVANE_PLATFORM_MACOS_INSTALLATION_LAUNCHDJOB_H

#include <string>

#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// The helper as a job of launchd's: what the property list at `path` has it do.
class LaunchdJob {
 public:
  LaunchdJob(std::string label, std::string path)
      : _label(std::move(label)), _path(std::move(path)) {}

  const std::string& path() const { return _path; }

  /// The content of the property list of a job that runs `program` whenever a client asks for the
  /// service of the job's name.
  Data contentFor(const std::string& program) const;

  /// Whether launchd knows of it.
  bool isLoaded() const;
  Result<void> load() const;
  /// Has launchd forget it, whether it knows of it or not, and end the helper if it runs.
  void unload() const;

 private:
  std::string _label;
  std::string _path;
};

}  // namespace corvane

#endif
