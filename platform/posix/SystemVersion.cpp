#include "platform/SystemVersion.h"

namespace corvane {

std::string systemVersionPath() {
  return "/System/Library/CoreServices/SystemVersion.plist";
}

}  // namespace corvane
