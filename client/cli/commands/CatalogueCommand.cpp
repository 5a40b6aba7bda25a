#include <array>
#include <cstdio>
#include <string>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Translation.h"
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

void printRow(const std::array<std::string, 6>& cells) {
  constexpr std::array<std::size_t, 6> widths = {5, 19, 35, 10, 8, 0};
  std::string row;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    row += (row.empty() ? "" : " ") + padded(cells[i], widths[i]);
  }
  std::printf("%s\n", row.c_str());
}

}  // namespace

int listOperations(const Context& context) {
  const ZELPrivilegedOperationSet& set = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  nlohmann::ordered_json rows = nlohmann::json::array();
  if (!context.isJSON) {
    printRow({translated("CODE"), translated("IDENTIFIER"), translated("RIGHT"),
              translated("ARGUMENTS"), translated("RULE"), translated("REGISTERED")});
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
      printRow({std::to_string(code), identifier, right, arguments, rule, translated(registered)});
    }
  }
  if (context.isJSON) printResult(rows);
  return ExitDone;
}

}  // namespace corvane::cli
