#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

#include <algorithm>
#include <array>

#include "operations/PrincipalClass.h"

namespace corvane {

namespace {

const PrincipalClass principalClass("ZELPrivilegedOperationSetVNT",
                                    &ZELPrivilegedOperationSetVNT::privilegedOperationSet);

// An implementing method under its full name. Each entry fills in one of the two forms.
struct Method {
  using Plain = std::optional<Error> (ZELPrivilegedOperationSetVNT::*)(const Array& arguments);
  using WithFeedback = std::optional<Error> (ZELPrivilegedOperationSetVNT::*)(
      const Array& arguments, const FeedbackConnection& feedbackConnection,
      const std::stop_token& stop);

  std::string_view selector;
  Plain plain;
  WithFeedback withFeedback;
};

constexpr auto methods = std::to_array<Method>({
    {"performOperationDeleteFileobjectsWithArguments:feedbackConnection:", nullptr,
     &ZELPrivilegedOperationSetVNT::performOperationDeleteFileobjectsWithArguments},
    {"performOperationExecuteUtilityWithArguments:feedbackConnection:", nullptr,
     &ZELPrivilegedOperationSetVNT::performOperationExecuteUtilityWithArguments},
    {"performOperationModifyPreferencesWithArguments:",
     &ZELPrivilegedOperationSetVNT::performOperationModifyPreferencesWithArguments, nullptr},
});

const Method* methodNamed(std::string_view selector) {
  const auto* method = std::find_if(methods.begin(), methods.end(),
                                    [selector](const Method& m) { return m.selector == selector; });
  return method == methods.end() ? nullptr : method;
}

}  // namespace

ZELPrivilegedOperationSet& ZELPrivilegedOperationSetVNT::privilegedOperationSet() {
  return sharedSet([]() -> std::unique_ptr<ZELPrivilegedOperationSet> {
    return std::make_unique<ZELPrivilegedOperationSetVNT>();
  });
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

bool ZELPrivilegedOperationSetVNT::respondsToSelector(std::string_view selector) const {
  return methodNamed(selector) != nullptr;
}

std::optional<Error> ZELPrivilegedOperationSetVNT::performSelector(
    std::string_view selector, const Array& arguments, const FeedbackConnection& feedbackConnection,
    const std::stop_token& stop) {
  const Method* method = methodNamed(selector);
  if (method == nullptr) {
    return ZELPrivilegedOperationSet::performSelector(selector, arguments, feedbackConnection,
                                                      stop);
  }
  return method->plain != nullptr
             ? (this->*method->plain)(arguments)
             : (this->*method->withFeedback)(arguments, feedbackConnection, stop);
}

}  // namespace corvane
