// Puts the rights of the operation catalogue into the authorization database where the helper is
// served without being installed: com.corvane.rights-vnt register|remove|list.

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "client/cli/setup/Rights.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Authorization.h"

using namespace corvane;

namespace {

enum ExitStatus : int { Done = 0, Failed = 1, Usage = 2 };

void tell(const std::vector<std::string>& rights, const char* what) {
  for (const std::string& right : rights) {
    std::fprintf(stderr, "com.corvane.rights-vnt: '%s' %s.\n", right.c_str(), what);
  }
}

// The set's own functions report failures to the standard log alone, so the result is looked at.
ExitStatus change(bool isRegistering) {
  if (!(isRegistering ? cli::registerRights() : cli::removeRights())) {
    std::fputs("com.corvane.rights-vnt: no authorization could be made.\n", stderr);
    return Failed;
  }
  const cli::Rights rights = cli::examineRights();
  const auto& left = isRegistering ? rights.missing : rights.registered;
  tell(left, isRegistering ? "could not be registered" : "could not be removed");
  tell(rights.unknown, "is there and cannot be read; remove the rights first");
  return left.empty() && rights.unknown.empty() ? Done : Failed;
}

// A line a right: name, rule and sentence, separated by tabulators; "-" for one that is missing.
ExitStatus list(const ZELPrivilegedOperationSet& set) {
  ExitStatus status = Done;
  set.enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& rightName,
                                              const Value&, const std::string& description) {
    std::optional<Value> definition;
    const OSStatus found = AuthorizationRightGet(rightName->c_str(), &definition);
    if (found != errAuthorizationSuccess && found != errAuthorizationDenied) {
      std::fprintf(stderr, "com.corvane.rights-vnt: '%s' cannot be read (%d).\n",
                   rightName->c_str(), found);
      status = Failed;
    }
    const std::string rule = definition ? *definition->dictionary()->find("rule")->string() : "-";
    std::printf("%s\t%s\t%s\n", rightName->c_str(), rule.c_str(), description.c_str());
  });
  return status;
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string_view command = argc == 2 ? argv[1] : "";
  const auto& set = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  if (command == "register" || command == "remove") return change(command == "register");
  if (command == "list") return list(set);
  std::fputs("usage: com.corvane.rights-vnt register|remove|list\n", stderr);
  return Usage;
}
