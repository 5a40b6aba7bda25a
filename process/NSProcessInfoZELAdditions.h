#ifndef CORVANE_PROCESS_NSPROCESSINFOZELADDITIONS_H
#define CORVANE_PROCESS_NSPROCESSINFOZELADDITIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

/// Questions about the operating system and its processes. Any thread may ask them.

/// Reads the facts about the version afresh. The first question makes this call, later ones are
/// answered from what it read.
void updateVersionInfo();
/// The version's numbers as hexadecimal digits: 0x10D6 is 10.13.6, 0x1000 an unknown version.
std::int64_t operatingSystemVersionCode();
std::optional<std::string> operatingSystemProductName();
std::string operatingSystemMarketingName();
std::optional<std::string> operatingSystemVersionNumberString();
std::optional<std::string> operatingSystemBuildCode();
/// Whether texts for people take their polite variants.
bool shouldUIUsePoliteForms();

/// The processes whose short name is `name`, of which the first 16 bytes count. Nothing for an
/// empty name or if the process table cannot be read.
std::optional<std::vector<std::int32_t>> identifiersForRunningProcessesNamed(std::string_view name);
bool isProcessRunningWithName(std::string_view name);
/// The short name of the process; nothing if there is no such process or the table cannot be read.
/// What of a name is not UTF-8 is replaced by U+FFFD, one for each byte.
/// `effectiveUserID`, if not null, is written only with a name returned.
std::optional<std::string> processNameForProcessID(std::int32_t pid,
                                                   std::uint32_t* effectiveUserID);

}  // namespace corvane

#endif
