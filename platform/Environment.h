#ifndef CORVANE_PLATFORM_ENVIRONMENT_H
#define CORVANE_PLATFORM_ENVIRONMENT_H

#include <string>
#include <vector>

namespace corvane {

/// The environment that child programs inherit. It begins as the process's own and is changed
/// here, from any thread. The process's own block stays as it is: libraries read that at any time
/// in any thread without a lock, so nothing may write to it once there is a second thread.

/// Sets `name`, which holds no "=", to `value`; one that is set stays unless `overwrite`. 0 on
/// success.
int setenv(const char* name, const char* value, int overwrite);
/// Removes `name`; 0 on success, whether or not it was set.
int unsetenv(const char* name);

/// The entries, each "name=value".
std::vector<std::string> environment();

}  // namespace corvane

#endif
