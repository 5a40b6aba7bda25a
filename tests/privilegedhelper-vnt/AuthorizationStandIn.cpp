#include "tests/privilegedhelper-vnt/AuthorizationStandIn.h"

namespace corvane {

AuthorizationStandIn AuthorizationStandIn::current;

struct AuthorizationOpaqueRef {};

OSStatus AuthorizationCreate(const AuthorizationRights*, const AuthorizationEnvironment*,
                             AuthorizationFlags, AuthorizationRef* authorization) {
  const OSStatus status = AuthorizationStandIn::current.createStatus;
  if (status == errAuthorizationSuccess) *authorization = new AuthorizationOpaqueRef;
  return status;
}

OSStatus AuthorizationCreateFromExternalForm(const AuthorizationExternalForm*,
                                             AuthorizationRef* authorization) {
  AuthorizationStandIn& standIn = AuthorizationStandIn::current;
  ++standIn.forms;
  if (standIn.formStatus == errAuthorizationSuccess) *authorization = new AuthorizationOpaqueRef;
  return standIn.formStatus;
}

OSStatus AuthorizationCopyRights(AuthorizationRef, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights**,
                                 const std::stop_token&) {
  AuthorizationStandIn& standIn = AuthorizationStandIn::current;
  for (std::uint32_t i = 0; i < rights->count; ++i)
    standIn.rights.emplace_back(rights->items[i].name);
  standIn.requestFlags = flags;
  standIn.hadEnvironment = environment != nullptr;
  if (environment != nullptr) {
    standIn.hadItems = environment->items != nullptr;
    for (std::uint32_t i = 0; i < environment->count; ++i) {
      standIn.environment.emplace_back(environment->items[i].name,
                                       environment->items[i].valueLength);
    }
  }
  return standIn.rightsStatus;
}

bool AuthorizationCanShowDialog(AuthorizationRef) {
  return AuthorizationStandIn::current.canShowDialog;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags) {
  delete authorization;
  AuthorizationStandIn::current.freed.push_back(flags);
  return errAuthorizationSuccess;
}

OSStatus AuthorizationRightGet(const char*, std::optional<Value>*) {
  return errAuthorizationDenied;
}

OSStatus AuthorizationRightSet(AuthorizationRef, const char*, const Value&, const std::string&,
                               const char*) {
  return errAuthorizationDenied;
}

OSStatus AuthorizationRightRemove(AuthorizationRef, const char*) {
  return errAuthorizationDenied;
}

}  // namespace corvane
