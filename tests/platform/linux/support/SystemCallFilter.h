#ifndef CORVANE_TESTS_PLATFORM_LINUX_SUPPORT_SYSTEMCALLFILTER_H
#define CORVANE_TESTS_PLATFORM_LINUX_SUPPORT_SYSTEMCALLFILTER_H

#include <initializer_list>

namespace corvane {

/// From now on lets these system calls (SYS_...) fail with the host's `error`, for the calling
/// thread, for those that it starts and for its children. Throws std::system_error.
void refuseSystemCalls(std::initializer_list<long> calls, int error);

}  // namespace corvane

#endif
