#ifndef CORVANE_OPERATIONSET_VNT_ZELPRIVILEGEDOPERATIONSETVNT_H
#define CORVANE_OPERATIONSET_VNT_ZELPRIVILEGEDOPERATIONSETVNT_H

#include <atomic>
#include <optional>
#include <string>
#include <string_view>

#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

/// The one concrete operation set: the static catalogue, and the methods that carry it out. Each
/// working operation has a file of its own.
class ZELPrivilegedOperationSetVNT : public ZELPrivilegedOperationSet {
 public:
  static ZELPrivilegedOperationSet& privilegedOperationSet();

  ZELPrivilegedOperationSetVNT() : ZELPrivilegedOperationSetVNT(staticCatalogue) {}
  /// A set of another table, closed by a record with the code ZELEndOfDescriptions. The first
  /// record is always taken. Rejected records are skipped.
  explicit ZELPrivilegedOperationSetVNT(const _ZELPrivilegedOperationDescription* catalogue);

  std::optional<std::string> implementationCode() const override { return _implementationCode; }
  std::optional<std::string> implementationVersion() const override {
    return _implementationVersion;
  }
  const Operations* implementedOperations() const override { return &_implementedOperations; }
  const Identifiers* opIdentifiersByCode() const override { return &_opIdentifiersByCode; }
  float minimumHelperVersionImplementingSelfUninstall() const override { return 1.3F; }

  bool respondsToSelector(std::string_view selector) const override;
  std::optional<Error> performSelector(std::string_view selector, const Array& arguments,
                                       const FeedbackConnection& feedbackConnection) override;

  // Enforced removal. `error` may be null; it receives a failure, and a success leaves it alone.

  /// "delete-fileobjects": recursive and stop-on-first-error, each "0" or "1", then the paths.
  std::optional<Error> performOperationDeleteFileobjectsWithArguments(
      const Array& arguments, const FeedbackConnection& feedbackConnection);
  /// Removes the objects in their order and reports the progress after each. The result is the
  /// error of the last object that failed, or of the first, which then ends the run in silence.
  std::optional<Error> deleteFileSystemObjectsAtPaths(const Array& paths, bool recursive,
                                                      bool stopOnFirstError,
                                                      const FeedbackConnection& feedbackConnection);
  bool enforceRemovalOfFileSystemObjectAtPath(const std::string& path, bool recursive,
                                              std::optional<Error>* error);
  /// Removes a file, a link itself or an empty directory, clearing its user flags.
  bool enforceSingleRemovalOfFileSystemObjectAtPath(const std::string& path,
                                                    std::optional<Error>* error);
  /// Removes an object with all that is below it, clearing UF_IMMUTABLE everywhere first. What
  /// does not exist is a success, and so is a link without a target, which stays.
  bool enforceRecursiveRemovalOfFileSystemObjectAtPath(const std::string& path,
                                                       std::optional<Error>* error);
  /// Sets or clears UF_IMMUTABLE of the object that `path` leads to, links followed. A link
  /// without a target is a success unless its existence is to be checked.
  bool setImmutableFlag(bool set, const std::string& path, bool checkingExistenceOfLinkTarget,
                        std::optional<Error>* error);
  /// True if the object is protected by System Integrity Protection; `error` is then replaced by
  /// one that says so and holds the former.
  bool isSIPRestrictedObjectAtPath(const std::string& path, std::optional<Error>* error);
  /// Reads exactly "0" or "1"; for anything else it returns false and leaves `value` alone.
  bool getBool(bool& value, std::string_view argument);

 private:
  static const _ZELPrivilegedOperationDescription staticCatalogue[];

  std::string _implementationCode;
  std::string _implementationVersion;
  Operations _implementedOperations;
  Identifiers _opIdentifiersByCode;
};

}  // namespace corvane

#endif
