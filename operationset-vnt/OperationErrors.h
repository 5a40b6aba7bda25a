#ifndef CORVANE_OPERATIONSET_VNT_OPERATIONERRORS_H
#define CORVANE_OPERATIONSET_VNT_OPERATIONERRORS_H

#include <span>

#include "operations/OperationError.h"

namespace corvane {

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

}  // namespace corvane

#endif
