// Puts the rights of a helper's operations into the authorization database where the helper is
// served without being installed, and into the files that packages bring: com.corvane.rights-<code>
// register|remove|list.

#include "operations/Rights.h"

#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/LocalizedStrings.h"
#include "operations/PrincipalClass.h"
#include "platform/Authorization.h"
#include "platform/linux/authorization/polkit/ActionFile.h"

using namespace corvane;

namespace {

enum ExitStatus : int { Done = 0, Failed = 1, Usage = 2 };

// Which helper's this program is.
std::string programName(const ZELPrivilegedOperationSet& set) {
  return "com.corvane.rights-" + set.implementationCode().value_or("");
}

void tell(const ZELPrivilegedOperationSet& set, const std::string& what) {
  std::fprintf(stderr, "%s: %s.\n", programName(set).c_str(), what.c_str());
}

void tell(const ZELPrivilegedOperationSet& set, const std::vector<std::string>& rights,
          const std::string& what) {
  for (const std::string& right : rights) {
    tell(set, std::string("'").append(right).append("' ").append(what));
  }
}

// The set's own functions report failures to the standard log alone, so the result is looked at.
ExitStatus change(const ZELPrivilegedOperationSet& set, bool isRegistering) {
  if (!(isRegistering ? registerRights(set) : removeRights(set))) {
    tell(set, "no authorization could be made");
    return Failed;
  }
  const Rights rights = examineRights(set);
  const auto& left = isRegistering ? rights.missing : rights.registered;
  tell(set, left, isRegistering ? "could not be registered" : "could not be removed");
  tell(set, rights.unknown, "is there and cannot be read; remove the rights first");
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
      tell(set, "'" + *rightName + "' cannot be read (" + std::to_string(found) + ")");
      status = Failed;
    }
    const std::string rule = definition ? *definition->dictionary()->find("rule")->string() : "-";
    std::printf("%s\t%s\t%s\n", rightName->c_str(), rule.c_str(), description.c_str());
  });
  return status;
}

// Writes the files that define the rights for polkit into `folder`, which takes no rights.
ExitStatus write(const ZELPrivilegedOperationSet& set, const std::string& folder) {
  ExitStatus status = Done;
  const std::string table = ZELPrivilegedOperationSet::nameOfAuthorizationRightLocalizationTable();
  set.enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& rightName,
                                              const Value& rule, const std::string& description) {
    const std::string name =
        rule.string() ? *rule.string() : rule.dictionary()->text("rule").value_or("");
    const auto text =
        actionFile(*rightName, {name, description, table}, translations(description, table));
    const std::string path = folder + "/" + *rightName + ".policy";
    if (text && (std::ofstream(path) << *text).flush()) return;
    tell(set, "'" + path + "' cannot be written");
    status = Failed;
  });
  return status;
}

}  // namespace

int main(int argc, char* argv[]) {
  const std::string_view command = argc >= 2 ? argv[1] : "";
  const PrincipalClass* principalClass = PrincipalClass::ofThisProgram();
  if (principalClass == nullptr) {
    std::fputs("The set of operations that the property list names is not linked in.\n", stderr);
    return Failed;
  }
  const ZELPrivilegedOperationSet& set = principalClass->privilegedOperationSet();
  const std::vector<std::string> faults = set.faults();
  for (const std::string& fault : faults) tell(set, fault);
  if (!faults.empty()) return Failed;
  const bool isChange = command == "register" || command == "remove";
  if (argc == 2 && isChange) return change(set, command == "register");
  if (argc == 2 && command == "list") return list(set);
  if (argc == 3 && command == "write") return write(set, argv[2]);
  std::fprintf(stderr, "usage: %s register|remove|list|write FOLDER\n", programName(set).c_str());
  return Usage;
}
