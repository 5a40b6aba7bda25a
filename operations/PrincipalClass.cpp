#include "operations/PrincipalClass.h"

#include "foundation/PropertyList.h"
#include "platform/EmbeddedPropertyLists.h"

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

const PrincipalClass* PrincipalClass::ofThisProgram() {
  const Result<Dictionary> info = readDictionary(embeddedInfoPropertyList());
  return info ? named(info->text("NSPrincipalClass").value_or("")) : nullptr;
}

}  // namespace corvane
