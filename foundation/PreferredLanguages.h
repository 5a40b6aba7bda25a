#ifndef CORVANE_FOUNDATION_PREFERREDLANGUAGES_H
#define CORVANE_FOUNDATION_PREFERREDLANGUAGES_H

#include <string>
#include <vector>

namespace corvane {

/// The languages that the user wants, the most wanted first: "de", or "de_AT" for Austria's. Told
/// by the operating system, anew at every call.
std::vector<std::string> preferredLanguages();

}  // namespace corvane

#endif
