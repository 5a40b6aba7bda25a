#include "operations/PrincipalClass.h"
#include "operations/TableOperationSet.h"

namespace corvane {

namespace {

std::optional<Error> nothing(const OperationRun& /*run*/) {
  return std::nullopt;
}

/// A table that contradicts itself, twice.
class FaultyOperationSet : public TableOperationSet {
 public:
  FaultyOperationSet()
      : TableOperationSet({"vnt", "1.3", "Tester", "TestOperationSet"},
                          {{1, "one", OperationPolicy::Allow, "One.", &nothing},
                           {1, "two", OperationPolicy::Allow, "Two.", &nothing},
                           {3, "Three", OperationPolicy::Allow, "Three.", &nothing}}) {}
};

const PrincipalClass principalClass(
    "TestOperationSet", &ZELPrivilegedOperationSet::privilegedOperationSetOf<FaultyOperationSet>);

}  // namespace

}  // namespace corvane
