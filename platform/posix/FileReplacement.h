#ifndef CORVANE_PLATFORM_POSIX_FILEREPLACEMENT_H
#define CORVANE_PLATFORM_POSIX_FILEREPLACEMENT_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <sys/types.h>

#include "foundation/Result.h"
#include "foundation/Value.h"

namespace corvane {

/// Puts several files in their places, all of them or none. Each is first written next to its
/// place, and what was there is kept under another name until the whole is kept. Readers and
/// running programs see the old file or the new one, never a part of one. From the first file that
/// is moved to its place until the whole is kept or undone there is a journal, by which the work of
/// a process that was killed can be undone later.
class FileReplacement {
 public:
  explicit FileReplacement(std::string journal) : _journal(std::move(journal)) {}
  FileReplacement(const FileReplacement&) = delete;
  FileReplacement& operator=(const FileReplacement&) = delete;
  /// Undoes everything that was not kept.
  ~FileReplacement();

  /// Writes a copy of the file `source`, or `content`, as root's and with `permissions`, next to
  /// `place`; missing folders are made.
  Result<void> stage(const std::string& source, const std::string& place, mode_t permissions);
  Result<void> stage(const Data& content, const std::string& place, mode_t permissions);
  /// Moves all that is staged to its place.
  Result<void> apply();
  /// Makes it permanent.
  void keep();
  /// Makes it undone.
  void undo();

  /// True if another replacement with this journal is at work, or was killed.
  bool isOtherUnfinished() const;
  /// Undoes what a replacement that was killed has done to `places`.
  void recover(const std::vector<std::string>& places) const;

  /// The names under which a replacement that was killed may have left something for `place`.
  static std::vector<std::string> remainsOf(const std::string& place);

 private:
  struct File {
    std::string place;
    bool isOldKept = false;
    bool isInPlace = false;
  };

  Result<void> makeFolder(const std::string& path);
  /// Stages a file whose content `write` writes to a descriptor; it returns whether it could.
  template <typename Write>
  Result<void> stageWritten(Write write, const std::string& place, mode_t permissions);
  Result<void> beginJournal();
  void endJournal();

  std::string _journal;
  bool _isJournalBegun = false;
  std::vector<File> _files;
  std::vector<std::string> _folders;
};

}  // namespace corvane

#endif
