#include <cstring>

#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "platform/Authorization.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

namespace {

constexpr const char* promptKey = "ZELAuthorizationPrompt";
constexpr const char* iconKey = "ZELAuthorizationIcon";

void readString(const Dictionary& metadata, const char* key, std::optional<std::string>* out) {
  const Value* value = metadata.find(key);
  if (out != nullptr && value != nullptr && value->string() != nullptr) *out = *value->string();
}

std::optional<Error> errorForStatus(OSStatus status) {
  switch (status) {
    case errAuthorizationSuccess:
      return std::nullopt;
    case errAuthorizationDenied:
      return posixError(POSIXErrorCode::NotPermitted);
    case errAuthorizationCanceled:
      return posixError(POSIXErrorCode::Canceled);
    default:
      return Error(NSOSStatusErrorDomain, status);
  }
}

// Asks for the one right. Waits while the system shows its dialog.
OSStatus copyRight(AuthorizationRef authorization, const std::string& rightName,
                   const std::optional<std::string>& prompt,
                   const std::optional<std::string>& iconPath) {
  AuthorizationItem right{rightName.c_str(), 0, nullptr, 0};
  const AuthorizationRights rights{1, &right};
  AuthorizationEnvironment* environment =
      ZELPrivilegedOperationSet::createAuthorizationEnvironmentForRightPrompt(prompt, iconPath);
  const OSStatus status = AuthorizationCopyRights(
      authorization, &rights, environment,
      kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights, nullptr);
  ZELPrivilegedOperationSet::freeAuthorizationEnvironment(environment);
  return status;
}

}  // namespace

void ZELPrivilegedHelper::processMetadataDictionary(const Dictionary& metadata,
                                                    std::optional<std::string>* prompt,
                                                    std::optional<std::string>* iconPath) const {
  readString(metadata, promptKey, prompt);
  readString(metadata, iconKey, iconPath);
}

std::optional<Error> ZELPrivilegedHelper::checkAuthorization(
    const Data& authorizationData, std::uint64_t code, const std::optional<std::string>& prompt,
    const std::optional<std::string>& iconPath, bool destroyRights) const {
  AuthorizationExternalForm form{};
  if (authorizationData.size() != sizeof(form.bytes)) return posixError(POSIXErrorCode::Invalid);
  const std::string* identifier = operationSet()->identifierForCode(code);
  if (identifier == nullptr || identifier->empty()) return posixError(POSIXErrorCode::Invalid);
  const auto rightName =
      operationSet()->authorizationRightNameForOperationWithIdentifier(*identifier);
  if (!rightName || rightName->empty()) return posixError(POSIXErrorCode::Invalid);

  std::memcpy(form.bytes, authorizationData.data(), sizeof(form.bytes));
  AuthorizationRef authorization = nullptr;
  OSStatus status = AuthorizationCreateFromExternalForm(&form, &authorization);
  if (status == errAuthorizationSuccess) {
    status = isUTF8(*rightName) ? copyRight(authorization, *rightName, prompt, iconPath)
                                : errAuthorizationInvalidPointer;
  }
  // Rights are destroyed whether or not this one was granted.
  if (authorization != nullptr) {
    AuthorizationFree(authorization,
                      destroyRights ? kAuthorizationFlagDestroyRights : kAuthorizationFlagDefaults);
  }
  return errorForStatus(status);
}

}  // namespace corvane
