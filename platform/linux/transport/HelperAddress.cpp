#include "platform/HelperAddress.h"

namespace corvane {

std::string helperAddressOf(const std::string& serviceIdentifier) {
  return "/run/" + serviceIdentifier + "/socket";
}

}  // namespace corvane
