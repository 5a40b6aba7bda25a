#include <algorithm>
#include <array>

#include "operations/OperationCodes.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {

// The order of the rows is the order in which rejected ones are reported.
const _ZELPrivilegedOperationDescription ZELPrivilegedOperationSetVNT::staticCatalogue[] = {
    {codeNop, "nop", 0, 0, 0, 0, nullptr,
     "Vantor likes to perform an empty operation to contact its privileged component."},
    {codeDiscardAuth, "discard-auth", 0, 0, 0, 0, nullptr,
     "Vantor likes to enforce that future privileged commands require new authorization."},
    {codeDeleteFiles, "delete-files", 1, 0, 0, ZELVariableArgumentCount, nullptr,
     "Vantor likes to delete files of the privileged auxiliary program."},
    {codePrepareUninstall, "prepare-uninstall", 1, 0, 0, 0, nullptr,
     "Vantor likes to prepare the privileged auxiliary program for removal."},
    {codePerformUninstall, "perform-uninstall", 1, 0, 0, 3, "NSS",
     "Vantor likes to uninstall the privileged auxiliary program."},
    {codeDeleteFileobjects, "delete-fileobjects", 1, 1, 0, ZELVariableArgumentCount, nullptr,
     "Vantor likes to delete file system objects independent of their permission settings."},
    {codeModifyPreferences, "modify-preferences", 1, 0, 0, 5, "SSSSS",
     "Vantor likes to change a preference value affecting a different user or all users."},
    {codeExecuteUtility, "execute-utility", 1, 0, 1, ZELVariableArgumentCount, nullptr,
     "Vantor likes to run a utility program of the operating system."},
    {ZELEndOfDescriptions, nullptr, 0, 0, 0, 0, nullptr, nullptr},
};

namespace {

// The method that does what a row says, under its full name. Each entry fills in one of the two
// forms. The other operations are done by the helper itself.
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
