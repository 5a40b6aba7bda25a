#ifndef CORVANE_OPERATIONS_OPERATIONERROR_H
#define CORVANE_OPERATIONS_OPERATIONERROR_H

#include <cstdint>
#include <optional>
#include <string>

#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane {

/// What one error of an operation set's own domain says, in English; both texts are keys of the
/// strings table of errors. The recovery text may have the placeholders "$1$", "$2$" and so on.
struct OperationErrorText {
  std::int64_t code;
  const char* description;
  const char* recovery;
};

/// The error with its recovery text as a template and `parameters`, strings, for the placeholders.
/// The side that shows it fills them in, in the language of who reads it; without any parameter it
/// leaves the recovery text out.
Error operationError(const OperationErrorText& text, Array parameters,
                     const std::optional<std::string>& path = std::nullopt,
                     const std::optional<Error>& underlying = std::nullopt);

}  // namespace corvane

#endif
