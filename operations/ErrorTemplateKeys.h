#ifndef CORVANE_OPERATIONS_ERRORTEMPLATEKEYS_H
#define CORVANE_OPERATIONS_ERRORTEMPLATEKEYS_H

#include <string_view>

namespace corvane {

/// The keys of an error's user information under which a text stands as a template, with the
/// placeholders "$1$", "$2$" and so on, and, in an array of strings, what takes their places.
inline constexpr std::string_view ZELLocalizedDescriptionTemplateKey =
    "ZELLocalizedDescriptionTemplate";
inline constexpr std::string_view ZELLocalizedDescriptionParametersKey =
    "ZELLocalizedDescriptionParameters";
inline constexpr std::string_view ZELLocalizedRecoverySuggestionTemplateKey =
    "ZELLocalizedRecoverySuggestionTemplate";
inline constexpr std::string_view ZELLocalizedRecoverySuggestionParametersKey =
    "ZELLocalizedRecoverySuggestionParameters";

}  // namespace corvane

#endif
