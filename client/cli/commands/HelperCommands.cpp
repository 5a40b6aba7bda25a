#include <cstdio>
#include <filesystem>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Prompt.h"
#include "client/cli/output/Translation.h"

namespace corvane::cli {

int nop(const Context& context) {
  return report(context, Action::ContactHelper, "", PrivilegedHelperClient(context.client).nop());
}

int deleteFiles(const Context& context, const std::vector<std::string>& paths) {
  std::vector<std::string> absolute;
  absolute.reserve(paths.size());
  for (const std::string& path : paths) {
    absolute.push_back(path.empty() ? path : std::filesystem::absolute(path).string());
  }
  return report(context, paths.size() > 1 ? Action::DeleteSeveral : Action::Delete, paths.front(),
                PrivilegedHelperClient(asking(context, promptToDelete(absolute, false)))
                    .deleteFiles(absolute));
}

int discardAuthorization(const Context& context) {
  return report(context, Action::DiscardAuthorization, "",
                PrivilegedHelperClient(context.client).discardAuthorization());
}

int showVersion(const Context& context) {
  const auto version = PrivilegedHelperClient(context.client).helperVersion();
  if (!version) return report(context, Action::AskForVersion, "", version.error());
  if (context.isJSON) {
    printResult({{"version", *version}});
  } else {
    std::printf("%s\n", printable(*version).c_str());
  }
  return ExitDone;
}

int setDebugMode(const Context& context, const std::string& state) {
  if (state != "on" && state != "off") return reportUsage(context, translated(noSwitchText, state));
  const auto done = PrivilegedHelperClient(context.client).enableDebugMode(state == "on");
  if (!done) return report(context, Action::SwitchDebugMessages, "", done.error());
  return report(context, Action::SwitchDebugMessages, "", Outcome());
}

}  // namespace corvane::cli
