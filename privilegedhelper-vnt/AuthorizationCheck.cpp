#include <cstring>

#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "platform/Authorization.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

namespace corvane {

namespace {

void readText(const Dictionary& metadata, const char* key, std::optional<std::string>* out) {
  auto text = metadata.text(key);
  if (out != nullptr && text) *out = std::move(text);
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

// The authorization whose external form `data` are.
OSStatus authorizationFromData(const Data& data, AuthorizationRef* authorization) {
  AuthorizationExternalForm form{};
  std::memcpy(form.bytes, data.data(), sizeof(form.bytes));
  return AuthorizationCreateFromExternalForm(&form, authorization);
}

// Asks for the one right. Waits while the system shows its dialog.
OSStatus copyRight(AuthorizationRef authorization, const std::string& rightName,
                   const std::optional<std::string>& prompt,
                   const std::optional<std::string>& iconPath, bool isInteractionAllowed,
                   const std::stop_token& stop) {
  AuthorizationItem right{rightName.c_str(), 0, nullptr, 0};
  const AuthorizationRights rights{1, &right};
  AuthorizationEnvironment* environment =
      ZELPrivilegedOperationSet::createAuthorizationEnvironmentForRightPrompt(prompt, iconPath);
  const AuthorizationFlags interaction =
      isInteractionAllowed ? kAuthorizationFlagInteractionAllowed : kAuthorizationFlagDefaults;
  const OSStatus status =
      AuthorizationCopyRights(authorization, &rights, environment,
                              interaction | kAuthorizationFlagExtendRights, nullptr, stop);
  ZELPrivilegedOperationSet::freeAuthorizationEnvironment(environment);
  return status;
}

}  // namespace

void ZELPrivilegedHelper::processMetadataDictionary(const Dictionary& metadata,
                                                    std::optional<std::string>* prompt,
                                                    std::optional<std::string>* iconPath) const {
  readText(metadata, AuthorizationPromptKey, prompt);
  readText(metadata, AuthorizationIconKey, iconPath);
}

std::optional<std::string> ZELPrivilegedHelper::rightNameForCode(std::uint64_t code) const {
  const std::string* identifier = operationSet()->identifierForCode(code);
  if (identifier == nullptr || identifier->empty()) return std::nullopt;
  return operationSet()->authorizationRightNameForOperationWithIdentifier(*identifier);
}

std::optional<Error> ZELPrivilegedHelper::checkAuthorization(
    const Data& authorizationData, std::uint64_t code, const std::optional<std::string>& prompt,
    const std::optional<std::string>& iconPath, bool destroyRights, bool isInteractionAllowed,
    const std::stop_token& stop) const {
  const auto rightName = rightNameForCode(code);
  if (authorizationData.size() != kAuthorizationExternalFormLength || !rightName) {
    return posixError(POSIXErrorCode::Invalid);
  }
  AuthorizationRef authorization = nullptr;
  OSStatus status = authorizationFromData(authorizationData, &authorization);
  if (status == errAuthorizationSuccess) {
    status = isUTF8(*rightName) ? copyRight(authorization, *rightName, prompt, iconPath,
                                            isInteractionAllowed, stop)
                                : errAuthorizationInvalidPointer;
  }
  // Rights are destroyed whether or not this one was granted.
  if (authorization != nullptr) {
    AuthorizationFree(authorization,
                      destroyRights ? kAuthorizationFlagDestroyRights : kAuthorizationFlagDefaults);
  }
  return errorForStatus(status);
}

Result<AuthorizationState> ZELPrivilegedHelper::queryAuthorization(std::uint64_t code,
                                                                   const Data& authorizationData) {
  const auto rightName = rightNameForCode(code);
  if (authorizationData.size() != kAuthorizationExternalFormLength || !rightName) {
    return posixError(POSIXErrorCode::Invalid);
  }
  AuthorizationRef authorization = nullptr;
  const OSStatus formStatus = authorizationFromData(authorizationData, &authorization);
  if (formStatus != errAuthorizationSuccess) return Error(NSOSStatusErrorDomain, formStatus);
  const OSStatus status = copyRight(authorization, *rightName, {}, {}, false, {});
  Result<AuthorizationState> answer = Error(NSOSStatusErrorDomain, status);
  if (status == errAuthorizationSuccess) {
    answer = AuthorizationState::Granted;
  } else if (status == errAuthorizationDenied) {
    answer = AuthorizationState::Denied;
  } else if (status == errAuthorizationInteractionNotAllowed) {
    answer = AuthorizationCanShowDialog(authorization) ? AuthorizationState::Challenge
                                                       : AuthorizationState::Unavailable;
  }
  AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  return answer;
}

}  // namespace corvane
