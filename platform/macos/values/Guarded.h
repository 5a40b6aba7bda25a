#ifndef CORVANE_PLATFORM_MACOS_VALUES_GUARDED_H
#define CORVANE_PLATFORM_MACOS_VALUES_GUARDED_H

#include "foundation/Exception.h"
#include "platform/macos/values/ObjectValue.h"

namespace corvane {

/// Does `work` for a caller above the seam: in a pool of its own, so that nothing waits there for
/// the end of a thread, and with an exception of the system's runtime turned into one of ours.
template <typename Work>
auto guarded(Work work) {
  @autoreleasepool {
    @try {
      return work();
    } @catch (NSException* exception) {
      throw Exception(textFromObject(exception.name).value_or("NSException"),
                      textFromObject(exception.reason).value_or(""));
    }
  }
}

}  // namespace corvane

#endif
