#ifndef CORVANE_TESTS_SUPPORT_LOCALE_H
#define CORVANE_TESTS_SUPPORT_LOCALE_H

#include <map>
#include <string>

namespace corvane::tests {

/// Gives the variables that tell the user's language these values; those not named are unset.
void useLocale(const std::map<std::string, std::string>& variables);

}  // namespace corvane::tests

#endif
