#ifndef CORVANE_PLATFORM_LINUX_TRANSPORT_ANSWERABLEERROR_H
#define CORVANE_PLATFORM_LINUX_TRANSPORT_ANSWERABLEERROR_H

#include "foundation/Error.h"

namespace corvane {

/// `error` as far as a message can hold it, so that whoever waits learns at least what failed: with
/// texts that are not UTF-8 or have a zero byte, with more nesting than D-Bus has or with more
/// bytes than a peer takes, it is without its user information. EILSEQ (92) in the place of one
/// whose domain is such a text.
Error answerableError(const Error& error);

}  // namespace corvane

#endif
