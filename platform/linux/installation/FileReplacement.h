#ifndef CORVANE_PLATFORM_LINUX_INSTALLATION_FILEREPLACEMENT_H
#define CORVANE_PLATFORM_LINUX_INSTALLATION_FILEREPLACEMENT_H

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "foundation/Error.h"

namespace corvane {

/// Puts several files in their places, all of them or none. Each is first written next to its
/// place, and what was there is kept under another name until the whole is kept. Readers and
/// running programs see the old file or the new one, never a part of one.
class FileReplacement {
 public:
  FileReplacement() = default;
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  /// Undoes everything that was not kept.
  ~FileReplacement();

  /// Writes a copy of `source`, as root's and with `permissions`, next to `place`; missing folders
  /// are made.
  std::optional<Error> stage(const std::string& source, const std::string& place,
                             mode_t permissions);
  /// Moves all that is staged to its place.
  std::optional<Error> apply();
  /// Makes it permanent.
  void keep();
  /// Makes it undone.
  void undo();

  /// The names under which a replacement that was killed may have left something for `place`.
  static std::vector<std::string> remainsOf(const std::string& place);

 private:
  struct File {
    std::string place;
    bool isOldKept = false;
    bool isInPlace = false;
  };

  std::optional<Error> makeFolder(const std::string& path);

  std::vector<File> _files;
  std::vector<std::string> _folders;
};

}  // namespace corvane

#endif
