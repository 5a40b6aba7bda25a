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

 private:
  static const _ZELPrivilegedOperationDescription staticCatalogue[];

  std::string _implementationCode;
  std::string _implementationVersion;
  Operations _implementedOperations;
  Identifiers _opIdentifiersByCode;
};

}  // namespace corvane

#endif
