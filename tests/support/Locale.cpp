#include "tests/support/Locale.h"

#include <cstdlib>

namespace corvane::tests {

void useLocale(const std::map<std::string, std::string>& variables) {
  for (const char* name : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) ::unsetenv(name);
  for (const auto& [name, value] : variables) ::setenv(name.c_str(), value.c_str(), 1);
}

}  // namespace corvane::tests
