#include "client/cli/output/Action.h"

#include <iterator>

#include "client/cli/output/Translation.h"

namespace corvane::cli {

namespace {

// In the order of the enumeration.
constexpr const char* texts[] = {
    "Cannot contact the helper",
    "Cannot ask the helper for its version",
    "Cannot find out whether '$1$' is allowed",
    "Cannot switch the helper's debug messages",
    "Cannot discard the authorization",
    "Cannot delete '$1$'",
    "Cannot delete '$1$'",
    "Cannot delete '$1$' and others",
    "Cannot read the list '$1$'",
    "Cannot run '$1$'",
    "Cannot pass on all output of '$1$'",
    "Cannot set the preference '$1$'",
    "Cannot remove the preference '$1$'",
    "Cannot read the preference '$1$'",
    "Cannot install the helper",
    "Cannot uninstall the helper",
};
static_assert(std::size(texts) == static_cast<std::size_t>(Action::Uninstall) + 1);

}  // namespace

std::string failureOf(Action action, const std::string& subject) {
  return translated(texts[static_cast<std::size_t>(action)], subject);
}

}  // namespace corvane::cli
