#ifndef CORVANE_OPERATIONS_TABLEOPERATIONSET_H
#define CORVANE_OPERATIONS_TABLEOPERATIONSET_H

#include <cstdint>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "operations/OperationMethod.h"
#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

/// Who is authorized for an operation.
enum class OperationPolicy : std::uint8_t {
  Allow = 0,              ///< everybody
  DefaultRule = 1,        ///< an administrator, who is not asked again for some minutes
  AuthenticateAdmin = 2,  ///< an administrator, who is asked each time
};

/// One operation of a table.
struct OperationRow {
  /// What requests carry, so it never changes: below 9000.
  std::uint64_t code;
  /// Lower-case words joined by "-", which become part of the names of a right and of files.
  std::string identifier;
  OperationPolicy policy;
  /// What the dialog says, in English; UTF-8. It is the key of its translations.
  std::string sentence;
  OperationMethod method;
};

/// Whose helper it is, as its build says: `corvane_add_helper` writes them into corvane-helper.h.
struct HelperNames {
  const char* code;     ///< lower-case letters and digits, at most 24, beginning with a letter
  const char* version;  ///< "1.0"
  const char* vendor;   ///< who asks, in the sentences of the operations that all helpers have
  const char* principalClass;  ///< the name by which the set is found
};

/// A set made of a table: the catalogue follows from the rows, and their methods carry them out.
/// Besides the rows it has what every helper has: "nop", "discard-auth", "delete-files" and
/// "perform-uninstall".
///
///     class ClockOperations : public TableOperationSet {
///      public:
///       ClockOperations() : TableOperationSet(thisHelper, {{0, "set-clock", …, &setClock}}) {}
///     };
class TableOperationSet : public ZELPrivilegedOperationSet {
 public:
  TableOperationSet(const HelperNames& names, const std::vector<OperationRow>& rows);

  std::optional<std::string> implementationCode() const override { return _names.code; }
  std::optional<std::string> implementationVersion() const override { return _names.version; }
  const Operations* implementedOperations() const override { return &_operations; }
  const Identifiers* opIdentifiersByCode() const override { return &_identifiers; }
  std::vector<std::string> faults() const override { return _faults; }

  bool respondsToSelector(std::string_view selector) const override;
  std::optional<Error> performSelector(std::string_view selector, const Array& arguments,
                                       const FeedbackConnection& feedbackConnection,
                                       const std::stop_token& stop) override;

 private:
  void addHousekeeping(std::uint64_t code, const char* identifier, OperationPolicy policy,
                       std::uint64_t argumentCount, const char* argumentTypes, const char* purpose);
  void checkNames();
  void addWhatEveryHelperHas();
  void add(const OperationRow& row);
  /// What keeps the row out of the catalogue; empty if nothing does.
  std::string faultOf(const OperationRow& row) const;

  HelperNames _names;
  Operations _operations;
  Identifiers _identifiers;
  std::map<Selector, OperationMethod, std::less<>> _methods;
  std::vector<std::string> _faults;
};

}  // namespace corvane

#endif
