#include <cstdio>

#include "client/cli/commands/Commands.h"
#include "operations/Rights.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

namespace {

std::string argumentsOf(const ZELPrivilegedOperation& operation) {
  if (operation.argumentCount() == ZELVariableArgumentCount) return "S...";
  return operation.argumentTypeCodes().value_or("-");
}

std::string ruleOf(const ZELPrivilegedOperation& operation) {
  const Value& policy = operation.authenticationPolicy();
  if (const std::string* rule = policy.string()) return *rule;
  return policy.dictionary()->text("rule").value_or("?");
}

const char* textFor(Registration registration) {
  switch (registration) {
    case Registration::Yes:
      return "yes";
    case Registration::No:
      return "no";
    case Registration::Unknown:
      break;
  }
  return "unknown";
}

}  // namespace

int listOperations(const Context& context) {
  const ZELPrivilegedOperationSet& set = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  nlohmann::ordered_json rows = nlohmann::json::array();
  if (!context.isJSON) {
    std::printf("%-5s %-19s %-35s %-10s %-8s %s\n", "CODE", "IDENTIFIER", "RIGHT", "ARGUMENTS",
                "RULE", "REGISTERED");
  }
  for (const auto& [code, identifier] : *set.opIdentifiersByCode()) {
    const ZELPrivilegedOperation& operation = *set.operationWithIdentifier(identifier);
    const std::string right =
        set.authorizationRightNameForOperationWithIdentifier(identifier).value_or("");
    const std::string arguments = argumentsOf(operation);
    const std::string rule = ruleOf(operation);
    const char* registered = textFor(registrationOf(right));
    if (context.isJSON) {
      rows.push_back({{"code", code},
                      {"identifier", identifier},
                      {"right", right},
                      {"arguments", arguments},
                      {"rule", rule},
                      {"registered", registered}});
    } else {
      std::printf("%-5llu %-19s %-35s %-10s %-8s %s\n", static_cast<unsigned long long>(code),
                  identifier.c_str(), right.c_str(), arguments.c_str(), rule.c_str(), registered);
    }
  }
  if (context.isJSON) printResult(rows);
  return ExitDone;
}

}  // namespace corvane::cli
