#ifndef CORVANE_OPERATIONSET_VNT_OPERATIONERRORS_H
#define CORVANE_OPERATIONSET_VNT_OPERATIONERRORS_H

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane {

/// What one error of the operation set's own domain says, in English; both texts are keys of the
/// strings table of errors. The recovery text may have the placeholders "$1$" and "$2$".
struct OperationErrorText {
  std::int64_t code;
  const char* description;
  const char* recovery;
};

extern const OperationErrorText missingUtilityError;  ///< $1$ its name, $2$ its path
extern const OperationErrorText unsafeUtilityError;   ///< $1$ its path
extern const OperationErrorText failedRunError;       ///< $1$ the exit status
extern const OperationErrorText whiteoutError;        ///< $1$ the path, as in those that follow
extern const OperationErrorText flagsError;
extern const OperationErrorText singleUserModeError;
extern const OperationErrorText preferencesWriteError;  ///< no placeholder
extern const OperationErrorText integrityProtectionError;

/// All of them, in the order of their codes.
std::span<const OperationErrorText* const> operationErrorTexts();

/// The error with its recovery text as a template and `parameters` for the placeholders.
Error operationError(const OperationErrorText& text, Array parameters,
                     const std::optional<std::string>& path = std::nullopt,
                     const std::optional<Error>& underlying = std::nullopt);

}  // namespace corvane

#endif
