#ifndef CORVANE_PLATFORM_ZELPRIVILEGEDOPERATIONFEEDBACKPROTOCOL_H
#define CORVANE_PLATFORM_ZELPRIVILEGEDOPERATIONFEEDBACKPROTOCOL_H

#include "foundation/Value.h"

namespace corvane {

/// The keys of feedback messages.
/// A number holding a double from 0.0 to 1.0: the part of the work that is done.
inline constexpr const char* ProgressFractionKey = "ProgressFraction";
/// Data: a chunk of a child program's standard output, possibly empty.
inline constexpr const char* OutputDataKey = "OutputData";
/// Data: a chunk of a child program's standard error, possibly empty.
inline constexpr const char* ErrorDataKey = "ErrorData";
/// The boolean true, in the last message of a request.
inline constexpr const char* FinalFeedbackMessageKey = "FinalFeedbackMessage";

/// What a client serves to be told of an operation while it runs. Messages go one way only.
class ZELPrivilegedOperationFeedbackProtocol {
 public:
  virtual ~ZELPrivilegedOperationFeedbackProtocol() = default;
  virtual void processPrivilegedOperationFeedback(const Dictionary& feedback) = 0;
};

}  // namespace corvane

#endif
