#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_DIALOGTEXT_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_DIALOGTEXT_H

#include <string>
#include <string_view>

namespace corvane {

/// How much of a client's text a dialog shows, in characters.
inline constexpr std::size_t dialogTextLimit = 400;

/// A client's text as a dialog may show it: one line of bounded length in UTF-8, without control
/// and formatting characters, with look-alikes in the place of the characters of markup. Empty if
/// nothing visible is left of it.
std::string dialogText(std::string_view clientText);

/// A client's icon, the path of a file or the name of one of a theme, as it is; empty if it holds
/// anything that `dialogText` would change or is longer than a path can be.
std::string dialogIcon(std::string_view clientIcon);

}  // namespace corvane

#endif
