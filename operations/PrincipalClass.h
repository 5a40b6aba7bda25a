#ifndef CORVANE_OPERATIONS_PRINCIPALCLASS_H
#define CORVANE_OPERATIONS_PRINCIPALCLASS_H

#include <string_view>

#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

/// A class of operation sets that is linked into the program and can be found by its name, which
/// the program's information property list gives under `NSPrincipalClass`.
class PrincipalClass {
 public:
  using SetFunction = ZELPrivilegedOperationSet& (*)();

  /// Makes the class known; meant for one static object per class. `name` is a literal.
  PrincipalClass(std::string_view name, SetFunction privilegedOperationSet);
  PrincipalClass(const PrincipalClass&) = delete;
  PrincipalClass& operator=(const PrincipalClass&) = delete;

  /// The class called `name`, or null if no such class is linked into the program.
  static const PrincipalClass* named(std::string_view name);
  /// The class that the property list of this program gives; null if it gives none that is linked
  /// in.
  static const PrincipalClass* ofThisProgram();

  ZELPrivilegedOperationSet& privilegedOperationSet() const { return _privilegedOperationSet(); }

 private:
  std::string_view _name;
  SetFunction _privilegedOperationSet;
  const PrincipalClass* _next;
};

}  // namespace corvane

#endif
