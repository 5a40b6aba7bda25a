#include "platform/RightFaults.h"

#include "platform/Authorization.h"

namespace corvane {

namespace {

constexpr const char* database = "/var/db/auth.db";

// The name of the rule that a definition stands for.
std::optional<std::string> ruleOf(const Value& definition) {
  if (const std::string* name = definition.string()) return *name;
  return definition.dictionary() != nullptr ? definition.dictionary()->text("rule") : std::nullopt;
}

}  // namespace

// The system keeps its database from everybody else, so a right is there or not, and defined by one
// rule or another. Its sentence is in as many languages as it was defined in, and is not looked at.
std::vector<RightFault> faultsOfRight(const std::string& rightName, const Value& definition,
                                      const std::string& /*descriptionKey*/,
                                      const std::string& /*localeTableName*/) {
  const auto fault = [&](RightFault::Kind kind, const std::string& description) {
    return std::vector<RightFault>{{kind, rightName, database, description}};
  };
  std::optional<Value> found;
  const OSStatus status = AuthorizationRightGet(rightName.c_str(), &found);
  if (status == errAuthorizationDenied) {
    return fault(RightFault::Kind::Missing, "does not define the right " + rightName);
  }
  if (status != errAuthorizationSuccess || !found) {
    return fault(RightFault::Kind::Unknown, "cannot be asked for the right " + rightName + " (" +
                                                std::to_string(status) + ")");
  }
  if (ruleOf(*found) == ruleOf(definition)) return {};
  return fault(RightFault::Kind::Changed, "defines the right " + rightName + " by another rule: " +
                                              ruleOf(*found).value_or("none that has a name"));
}

}  // namespace corvane
