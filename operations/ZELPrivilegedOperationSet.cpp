#include "operations/ZELPrivilegedOperationSet.h"

#include <algorithm>

#include "foundation/NoDestructor.h"
#include "foundation/POSIXError.h"
#include "platform/StandardLog.h"

namespace corvane {

ZELPrivilegedOperationSet& ZELPrivilegedOperationSet::sharedSet(
    std::unique_ptr<ZELPrivilegedOperationSet> (*make)()) {
  // Never destroyed: threads may still ask it while the process ends.
  static NoDestructor<std::unique_ptr<ZELPrivilegedOperationSet>> set(make());
  return **set;
}

ZELPrivilegedOperationSet& ZELPrivilegedOperationSet::privilegedOperationSet() {
  return sharedSet([] { return std::make_unique<ZELPrivilegedOperationSet>(); });
}

std::string ZELPrivilegedOperationSet::serviceIdentifierForHelper() const {
  return "com.corvane.system.privilegedhelper-" + implementationCode().value_or("(null)");
}

std::string ZELPrivilegedOperationSet::nameOfXPCRequestorForHelper() const {
  return "com.corvane.xpc.privilegerequestor-" + implementationCode().value_or("(null)");
}

const std::string* ZELPrivilegedOperationSet::identifierForCode(std::uint64_t code) const {
  const Identifiers* identifiers = opIdentifiersByCode();
  if (identifiers == nullptr) return nullptr;
  const auto entry = identifiers->find(code);
  return entry == identifiers->end() ? nullptr : &entry->second;
}

const ZELPrivilegedOperation* ZELPrivilegedOperationSet::operationWithIdentifier(
    std::string_view identifier) const {
  const Operations* operations = implementedOperations();
  if (operations == nullptr) return nullptr;
  const auto entry = operations->find(identifier);
  return entry == operations->end() ? nullptr : &entry->second;
}

std::optional<std::string>
ZELPrivilegedOperationSet::authorizationRightNameForOperationWithIdentifier(
    std::string_view identifier) const {
  const ZELPrivilegedOperation* operation = operationWithIdentifier(identifier);
  if (operation == nullptr) return std::nullopt;
  return operation->authenticationRightNameForImplementationIdentifier(implementationCode());
}

std::uint64_t ZELPrivilegedOperationSet::opCodeForOperation(
    const ZELPrivilegedOperation* operation) const {
  const Identifiers* identifiers = opIdentifiersByCode();
  if (operation == nullptr || identifiers == nullptr) return ZELNoSuchOperation;
  const auto entry = std::find_if(
      identifiers->begin(), identifiers->end(),
      [operation](const auto& candidate) { return candidate.second == operation->identifier(); });
  return entry == identifiers->end() ? ZELNoSuchOperation : entry->first;
}

void ZELPrivilegedOperationSet::enumerateRightDefinitionsUsingBlock(
    const RightDefinitionBlock& block) const {
  const Operations* operations = implementedOperations();
  if (operations == nullptr) return;
  for (const auto& [identifier, operation] : *operations) {
    block(authorizationRightNameForOperationWithIdentifier(operation.identifier()),
          operation.authenticationPolicy(), operation.presentationString());
  }
}

void ZELPrivilegedOperationSet::setAuthorizationRightsForImplementedOperationsUsingAuthorization(
    AuthorizationRef authorization) const {
  if (authorization == nullptr) return;
  enumerateRightDefinitionsUsingBlock([&](const std::optional<std::string>& rightName,
                                          const Value& rule, const std::string& description) {
    const std::string name = rightName.value_or("");
    if (AuthorizationRightGet(name.c_str(), nullptr) != errAuthorizationDenied) return;
    if (AuthorizationRightSet(authorization, name.c_str(), rule, description,
                              nameOfAuthorizationRightLocalizationTable().c_str()) !=
        errAuthorizationSuccess) {
      NSLog("WARNING: authorization database did not accept right definition for '%s'!\n",
            name.c_str());
    }
  });
}

void ZELPrivilegedOperationSet::removeAuthorizationRightsForImplementedOperationsUsingAuthorization(
    AuthorizationRef authorization) const {
  enumerateRightDefinitionsUsingBlock(
      [&](const std::optional<std::string>& rightName, const Value&, const std::string&) {
        const std::string name = rightName.value_or("");
        if (AuthorizationRightGet(name.c_str(), nullptr) != errAuthorizationSuccess) return;
        if (AuthorizationRightRemove(authorization, name.c_str()) != errAuthorizationSuccess) {
          NSLog("WARNING: authorization database did not remove right definition for '%s'!\n",
                name.c_str());
        }
      });
}

std::optional<Selector>
ZELPrivilegedOperationSet::selectorForExecutionOfPrivilegedOperationWithCode(
    std::uint64_t code, bool feedbackOption) const {
  const std::string* identifier = identifierForCode(code);
  if (identifier == nullptr) return std::nullopt;
  const ZELPrivilegedOperation* operation = operationWithIdentifier(*identifier);
  if (operation == nullptr) return std::nullopt;
  Selector selector = "performOperation" + operation->operationIdentifierForExecutionSelector() +
                      "WithArguments:" + (feedbackOption ? "feedbackConnection:" : "");
  if (!respondsToSelector(selector)) return std::nullopt;
  return selector;
}

bool ZELPrivilegedOperationSet::respondsToSelector(std::string_view /*selector*/) const {
  return false;
}

std::optional<Error> ZELPrivilegedOperationSet::performSelector(
    std::string_view /*selector*/, const Array& /*arguments*/,
    const FeedbackConnection& /*feedbackConnection*/, const std::stop_token& /*stop*/) {
  return posixError(POSIXErrorCode::NotImplemented);
}

Array ZELPrivilegedOperationSet::loggableArguments(std::uint64_t /*code*/,
                                                   const Array& arguments) const {
  return arguments;
}

XPCInterface ZELPrivilegedOperationSet::interfaceForFeedbackProtocol() const {
  return {"ZELPrivilegedOperationFeedbackProtocol"};
}

}  // namespace corvane
