#ifndef CORVANE_FOUNDATION_COMMUNICATIONFAILURE_H
#define CORVANE_FOUNDATION_COMMUNICATIONFAILURE_H

#include <string>

#include "foundation/Result.h"

namespace corvane {

/// Why a call to another process brought no answer.
struct CommunicationFailure {
  enum class Kind {
    Refused,     ///< nobody could be reached: nothing listens, or the caller may not connect
    Lost,        ///< the connection ended before the answer came
    TimedOut,    ///< no answer came in time
    BadMessage,  ///< the other side did not understand the message, or sent one that is not
    TooLarge,    ///< the message is larger than the other side takes
  };

  Kind kind;
  /// In English, naming what could not be reached.
  std::string description;
};

/// What such a call gives: what was answered, be it an error, or why nothing was.
template <typename T>
using Answer = Result<T, CommunicationFailure>;

}  // namespace corvane

#endif
