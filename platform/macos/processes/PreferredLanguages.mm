#include "foundation/PreferredLanguages.h"

#include <algorithm>

#include "platform/macos/values/Guarded.h"

namespace corvane {

std::vector<std::string> preferredLanguages() {
  return guarded([] {
    std::vector<std::string> languages;
    NSArray* const names = (__bridge_transfer NSArray*)CFLocaleCopyPreferredLanguages();
    for (NSUInteger i = 0; i < names.count; ++i) {
      auto name = textFromObject([names objectAtIndex:i]);
      if (!name) continue;
      // "de-AT" there.
      std::replace(name->begin(), name->end(), '-', '_');
      languages.push_back(*std::move(name));
    }
    return languages;
  });
}

}  // namespace corvane
