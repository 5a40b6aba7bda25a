#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_ACTIONFILE_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_ACTIONFILE_H

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/authorization/Authority.h"

namespace corvane {

/// The sentence of a dialog by language, as languages are named in locales ("de", "pt_BR").
using Translations = std::map<std::string, std::string>;

/// The action that is asked for in the place of a right whose kept authorization was discarded:
/// the same, except that it is never kept.
std::string anewActionOf(const std::string& rightName);

/// The polkit action file that defines `rightName`: an action of that name, and for a rule that
/// keeps authorizations the action of `anewActionOf`. Well-formed for any text. Nothing for a rule
/// that actions cannot express.
std::optional<std::string> actionFile(const std::string& rightName,
                                      const RightDefinition& definition,
                                      const Translations& translations);

/// What polkit calls a rule; the rule itself if it is none of ours.
std::string implicitOf(const std::string& rule);

/// What an action file says of `rightName`; nothing if it is none or does not define it. A rule
/// that someone else wrote into it is given as it stands there.
std::optional<RightDefinition> readActionFile(std::string_view text, const std::string& rightName);

}  // namespace corvane

#endif
