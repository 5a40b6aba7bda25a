#ifndef CORVANE_PLATFORM_HELPERADDRESS_H
#define CORVANE_PLATFORM_HELPERADDRESS_H

#include <string>

namespace corvane {

/// Where the system has the helper with this service identifier listen, in the words of the system:
/// on Linux the path of a socket, elsewhere maybe the identifier itself.
std::string helperAddressOf(const std::string& serviceIdentifier);

}  // namespace corvane

#endif
