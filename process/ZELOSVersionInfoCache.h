#ifndef CORVANE_PROCESS_ZELOSVERSIONINFOCACHE_H
#define CORVANE_PROCESS_ZELOSVERSIONINFOCACHE_H

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

/// What is known of the version of the operating system.
struct ZELOSVersionInfoCache {
  std::optional<std::string> osName;
  std::string osMarketingName;  ///< "Mac OS X", "OS X" or "macOS"; empty if nothing is known
  std::optional<std::string> osVersion;
  std::optional<std::string> osBuild;
  /// The numbers of the version as hexadecimal digits: 10.13.6 is 0x10D6. A number of 16 or more
  /// carries into the digit before it.
  std::int64_t osVersionCode = 0;
  /// Whether texts for people take their polite variants.
  bool shouldUIUsePoliteForms = false;

  /// Reads the system version file at `path`. A file that cannot be read or holds nothing gives
  /// empty texts, the code 0x1000 and polite forms; a single missing text is absent.
  static ZELOSVersionInfoCache initWithContentsOfFile(const std::string& path);
};

}  // namespace corvane

#endif
