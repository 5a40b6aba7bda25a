#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

#include "operations/PrincipalClass.h"

namespace corvane {

namespace {

const PrincipalClass principalClass("ZELPrivilegedOperationSetVNT",
                                    &ZELPrivilegedOperationSetVNT::privilegedOperationSet);

}  // namespace

ZELPrivilegedOperationSet& ZELPrivilegedOperationSetVNT::privilegedOperationSet() {
  return privilegedOperationSetOf<ZELPrivilegedOperationSetVNT>();
}

ZELPrivilegedOperationSetVNT::ZELPrivilegedOperationSetVNT(
    const _ZELPrivilegedOperationDescription* catalogue)
    : _implementationCode("vnt"),
      _implementationVersion(std::to_string(1) + "." + std::to_string(3)) {
  // The test comes after the record: the first is always handled, the closing one never.
  const _ZELPrivilegedOperationDescription* record = catalogue;
  do {
    if (auto operation = ZELPrivilegedOperation::initWithStaticDescription(*record)) {
      const std::string identifier = operation->identifier();
      _implementedOperations.insert_or_assign(identifier, *std::move(operation));
      _opIdentifiersByCode.insert_or_assign(record->code, identifier);
    }
    ++record;
  } while (record->code != ZELEndOfDescriptions);
}

}  // namespace corvane
