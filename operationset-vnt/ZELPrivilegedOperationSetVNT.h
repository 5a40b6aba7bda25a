#ifndef CORVANE_OPERATIONSET_VNT_ZELPRIVILEGEDOPERATIONSETVNT_H
#define CORVANE_OPERATIONSET_VNT_ZELPRIVILEGEDOPERATIONSETVNT_H

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Atomic.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "process/ZELTaskExecutorDelegate.h"

namespace corvane {

/// The one concrete operation set: the static catalogue, and the methods that carry it out. Each
/// working operation has a file of its own.
class ZELPrivilegedOperationSetVNT : public ZELPrivilegedOperationSet,
                                     public ZELTaskExecutorDelegate {
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

  /// All but the value of a preference.
  Array loggableArguments(std::uint64_t code, const Array& arguments) const override;

  bool respondsToSelector(std::string_view selector) const override;
  std::optional<Error> performSelector(std::string_view selector, const Array& arguments,
                                       const FeedbackConnection& feedbackConnection,
                                       const std::stop_token& stop) override;

  // Enforced removal. `error` may be null; it receives a failure, and a success leaves it alone.
  // Once `stop` is requested nothing more is removed, and the failure is ECANCELED.

  /// "delete-fileobjects": recursive and stop-on-first-error, each "0" or "1", then the paths.
  std::optional<Error> performOperationDeleteFileobjectsWithArguments(
      const Array& arguments, const FeedbackConnection& feedbackConnection,
      const std::stop_token& stop = {});
  /// Removes the objects in their order and reports the progress after each. The result is the
  /// error of the last object that failed, or of the first, which then ends the run in silence.
  std::optional<Error> deleteFileSystemObjectsAtPaths(const Array& paths, bool recursive,
                                                      bool stopOnFirstError,
                                                      const FeedbackConnection& feedbackConnection,
                                                      const std::stop_token& stop = {});
  bool enforceRemovalOfFileSystemObjectAtPath(const std::string& path, bool recursive,
                                              std::optional<Error>* error,
                                              const std::stop_token& stop = {});
  /// Removes a file, a link itself or an empty directory, clearing its user flags.
  bool enforceSingleRemovalOfFileSystemObjectAtPath(const std::string& path,
                                                    std::optional<Error>* error);
  /// Removes an object with all that is below it, clearing FileFlag::UserImmutable everywhere
  /// first. What does not exist is a success, and so is a link without a target, which stays.
  bool enforceRecursiveRemovalOfFileSystemObjectAtPath(const std::string& path,
                                                       std::optional<Error>* error,
                                                       const std::stop_token& stop = {});
  /// Sets or clears FileFlag::UserImmutable of the object that `path` leads to, links followed. A
  /// link without a target is a success unless its existence is to be checked.
  bool setImmutableFlag(bool set, const std::string& path, bool checkingExistenceOfLinkTarget,
                        std::optional<Error>* error);
  /// True if the object is protected by System Integrity Protection; `error` is then replaced by
  /// one that says so and holds the former.
  bool isSIPRestrictedObjectAtPath(const std::string& path, std::optional<Error>* error);
  /// Reads exactly "0" or "1"; for anything else it returns false and leaves `value` alone.
  bool getBool(bool& value, std::string_view argument);

  // Utility execution.

  /// "execute-utility": the path of the client application's bundle, the utility's name, and the
  /// utility's own arguments. Blocks until the utility has ended; what it writes goes to
  /// `feedbackConnection`, which may be null, while it runs. A launch that fails is raised as
  /// NSInvalidArgumentException. Once `stop` is requested the utility is asked to end, and killed
  /// if it has not after ten seconds; the failure is ECANCELED.
  std::optional<Error> performOperationExecuteUtilityWithArguments(
      const Array& arguments, const FeedbackConnection& feedbackConnection,
      const std::stop_token& stop = {});
  /// The names of the utilities that may be run, those that come with the client application
  /// included.
  static std::vector<std::string> utilityNames();
  /// The path of the utility; nothing for one that may not be run. `isExternal` is false for a
  /// part of the client application. Either pointer may be null; nothing is written if an argument
  /// is empty.
  std::optional<std::string> trustedPathForApplicationPath(const std::string& applicationPath,
                                                           const std::string& utilityName,
                                                           bool* isExternal,
                                                           bool* needsSafePathEnvironment);
  /// Runs a program, one that is not trusted only if nobody but the system can change it. From
  /// then on child programs have a safe PATH, or none.
  std::optional<Error> executeTrusted(bool trusted, const std::string& systemProgramAtPath,
                                      const std::vector<std::string>& withArguments,
                                      bool safePathEnvironment,
                                      const FeedbackConnection& forwardingOutputToConnection,
                                      const std::stop_token& stop = {});

  /// The connection of the utility that was started last, until a utility ends with status 0. Null
  /// at first. Each run sends its output to the connection that it was started with, whatever this
  /// is.
  FeedbackConnection outputConnection() const { return _outputConnection.load(); }
  void setOutputConnection(FeedbackConnection connection) {
    _outputConnection.store(std::move(connection));
  }
  /// Sends a chunk of output to `outputConnection`, for an executor whose delegate is the set.
  void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override;

  // Preference modification.

  /// "modify-preferences": sets or removes one, given as five strings, the key, the application,
  /// the user, the host and the value as the text of a property list, empty to remove the key.
  std::optional<Error> performOperationModifyPreferencesWithArguments(const Array& arguments);

 private:
  static const _ZELPrivilegedOperationDescription staticCatalogue[];

  std::string _implementationCode;
  std::string _implementationVersion;
  Operations _implementedOperations;
  Identifiers _opIdentifiersByCode;
  Atomic<FeedbackConnection> _outputConnection;
};

}  // namespace corvane

#endif
