#ifndef CORVANE_PRIVILEGEDHELPER_VNT_REQUESTCONTROL_H
#define CORVANE_PRIVILEGEDHELPER_VNT_REQUESTCONTROL_H

#include <optional>
#include <string>

#include "foundation/Value.h"

namespace corvane {

/// What a client may lay down about one request beside the texts of its dialog.
struct RequestControl {
  /// By which the request can be cancelled; 1 to 64 characters.
  std::optional<std::string> token;
  /// Without, a request that would need a dialog is refused.
  bool isInteractionAllowed = true;
};

/// Reads it out of a request's metadata; nothing if one of the values is not what it has to be. A
/// client that takes its request for one that can be cancelled, or for one that asks nobody, must
/// not be wrong about it.
std::optional<RequestControl> readRequestControl(const Dictionary& metadata);

}  // namespace corvane

#endif
