#ifndef CORVANE_PLATFORM_CHILDENVIRONMENT_H
#define CORVANE_PLATFORM_CHILDENVIRONMENT_H

#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// The environment that child programs inherit. It begins as the process's own and is changed
/// here, from any thread. The process's own block stays as it is: libraries read that at any time
/// in any thread without a lock, so nothing may write to it once there is a second thread.
namespace ChildEnvironment {

/// Gives `name`, which holds no "=", this value.
void set(std::string_view name, std::string_view value);
/// Takes `name` out, if it is there.
void remove(std::string_view name);

/// The entries, each "name=value".
std::vector<std::string> entries();

}  // namespace ChildEnvironment
}  // namespace corvane

#endif
