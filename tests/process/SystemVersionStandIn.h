#ifndef CORVANE_TESTS_PROCESS_SYSTEMVERSIONSTANDIN_H
#define CORVANE_TESTS_PROCESS_SYSTEMVERSIONSTANDIN_H

#include <string>

namespace corvane::tests {

/// Makes `path` the system version file and forgets what was read before.
void useSystemVersionFile(const std::string& path);
/// The same with a file of this product version.
void useSystemVersion(const std::string& productVersion);

}  // namespace corvane::tests

#endif
