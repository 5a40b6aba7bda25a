#ifndef CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONFOLDER_H
#define CORVANE_TESTS_PLATFORM_LINUX_AUTHORIZATION_AUTHORIZATIONFOLDER_H

#include "tests/support/TemporaryFolder.h"

namespace corvane {

/// The folder that the process's own authorization service works in during the tests.
const TemporaryFolder& authorizationFolder();

}  // namespace corvane

#endif
