#include "operations/PrincipalClass.h"

namespace corvane {

namespace {

// A plain pointer is there before any static object of another file is made.
const PrincipalClass* firstClass = nullptr;

}  // namespace

PrincipalClass::PrincipalClass(std::string_view name, SetFunction privilegedOperationSet)
    : _name(name), _privilegedOperationSet(privilegedOperationSet), _next(firstClass) {
  firstClass = this;
}

const PrincipalClass* PrincipalClass::named(std::string_view name) {
  const PrincipalClass* candidate = firstClass;
  while (candidate != nullptr && candidate->_name != name) candidate = candidate->_next;
  return candidate;
}

}  // namespace corvane
