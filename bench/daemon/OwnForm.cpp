#include "bench/daemon/OwnForm.h"

#include <iterator>

#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

namespace corvane::bench {

Data ownForm() {
  const auto key = AuthorizationKeyFile(authorizationKeyDirectory()).key();
  const AuthorizationExternalForm form =
      makeExternalForm(ProcessIdentity::ofThisProcess(), std::get<AuthorizationKey>(key));
  return {std::begin(form.bytes), std::end(form.bytes)};
}

}  // namespace corvane::bench
