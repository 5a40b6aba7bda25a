#ifndef CORVANE_FOUNDATION_BUNDLE_H
#define CORVANE_FOUNDATION_BUNDLE_H

#include <optional>
#include <string>
#include <utility>

#include "foundation/Value.h"

namespace corvane {

/// A folder that holds a program with what belongs to it: `Contents/Info.plist` says what it is,
/// and its executable is in `Contents/MacOS`.
class Bundle {
 public:
  /// Nothing if there is no folder at `path` with a readable Contents/Info.plist, a regular file
  /// of at most 1 MiB.
  static std::optional<Bundle> bundleWithPath(const std::string& path);

  const std::string& bundlePath() const { return _path; }
  const Dictionary& infoDictionary() const { return _infoDictionary; }

  /// The path of the file that `CFBundleExecutable` names, as it stands in the bundle. Nothing if
  /// the name is missing or is not one of a file, if there is no such file, or if the file that
  /// it leads to through symbolic links is outside the bundle.
  std::optional<std::string> executablePath() const;

 private:
  Bundle(std::string path, Dictionary infoDictionary)
      : _path(std::move(path)), _infoDictionary(std::move(infoDictionary)) {}

  std::string _path;
  Dictionary _infoDictionary;
};

}  // namespace corvane

#endif
