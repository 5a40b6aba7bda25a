#include <algorithm>
#include <cstdio>
#include <iterator>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Translation.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/AuthenticationAgent.h"

namespace corvane::cli {

namespace {

// What people are told, in the order of the enumeration.
constexpr const char* texts[] = {grantedText, wouldAskText, deniedText, nobodyToAskText};

std::optional<std::uint64_t> codeOf(const std::string& identifier) {
  const auto& identifiers =
      *ZELPrivilegedOperationSetVNT::privilegedOperationSet().opIdentifiersByCode();
  const auto found = std::find_if(identifiers.begin(), identifiers.end(),
                                  [&](const auto& entry) { return entry.second == identifier; });
  return found == identifiers.end() ? std::nullopt : std::optional(found->first);
}

// Whether this program would ask where the helper finds nobody who could.
bool asksItself(const Context& context) {
  return context.client.asksOnTerminal && context.client.isInteractionAllowed &&
         authorizationDialogsOfThisProcess() == AuthorizationDialogs::OnTerminal;
}

}  // namespace

int tellWhetherAllowed(const Context& context, const std::string& operation) {
  const auto code = codeOf(operation);
  if (!code) {
    return reportUsage(context, translated(noSuchOperationText, operation));
  }
  const auto answer = PrivilegedHelperClient(context.client).queryAuthorization(*code);
  if (!answer) return report(context, Action::AskWhetherAllowed, operation, answer.error());
  AuthorizationState state = *answer;
  if (state == AuthorizationState::Unavailable && asksItself(context)) {
    state = AuthorizationState::Challenge;
  }
  if (state == AuthorizationState::Challenge && !context.client.isInteractionAllowed) {
    state = AuthorizationState::Unavailable;
  }
  if (context.isJSON) {
    printResult({{"operation", operation}, {"authorization", nameOf(state)}});
  } else {
    std::printf("%s\n", translated(texts[static_cast<std::size_t>(state)]).c_str());
  }
  const bool isPossible =
      state == AuthorizationState::Granted || state == AuthorizationState::Challenge;
  return isPossible ? ExitDone : ExitNotAuthorized;
}

}  // namespace corvane::cli
