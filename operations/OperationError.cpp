#include "operations/OperationError.h"

#include <utility>

#include "operations/ErrorTemplateKeys.h"
#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

Error operationError(const OperationErrorText& text, Array parameters,
                     const std::optional<std::string>& path,
                     const std::optional<Error>& underlying) {
  Dictionary userInfo;
  userInfo.set(NSLocalizedDescriptionKey, text.description);
  userInfo.set(ZELLocalizedRecoverySuggestionTemplateKey, text.recovery);
  userInfo.set(ZELLocalizedRecoverySuggestionParametersKey, std::move(parameters));
  if (path) userInfo.set(NSFilePathErrorKey, *path);
  if (underlying) userInfo.set(NSUnderlyingErrorKey, *underlying);
  return Error(ZELPrivilegedOperationSet::errorDomain(), text.code, std::move(userInfo));
}

}  // namespace corvane
