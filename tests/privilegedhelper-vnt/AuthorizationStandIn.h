#ifndef CORVANE_TESTS_PRIVILEGEDHELPER_VNT_AUTHORIZATIONSTANDIN_H
#define CORVANE_TESTS_PRIVILEGEDHELPER_VNT_AUTHORIZATIONSTANDIN_H

#include <optional>
#include <string>
#include <vector>

#include "platform/Authorization.h"

namespace corvane {

/// In the place of Authorization Services: answers what a test wants and records what it is asked.
struct AuthorizationStandIn {
  OSStatus createStatus = errAuthorizationInternal;
  OSStatus formStatus = errAuthorizationSuccess;
  OSStatus rightsStatus = errAuthorizationSuccess;

  bool canShowDialog = false;

  int forms = 0;
  std::vector<std::string> rights;
  std::optional<AuthorizationFlags> requestFlags;
  /// The environment of the last request: names with the lengths of their values.
  std::vector<std::pair<std::string, std::size_t>> environment;
  bool hadEnvironment = false;
  bool hadItems = false;
  std::vector<AuthorizationFlags> freed;

  /// The one that the functions use; a test begins by assigning a new one to it.
  static AuthorizationStandIn current;
};

}  // namespace corvane

#endif
