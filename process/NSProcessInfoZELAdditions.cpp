#include "process/NSProcessInfoZELAdditions.h"

#include <algorithm>
#include <memory>

#include "foundation/Atomic.h"
#include "foundation/NoDestructor.h"
#include "foundation/Unicode.h"
#include "platform/ProcessTable.h"
#include "platform/SystemVersion.h"
#include "process/ZELOSVersionInfoCache.h"

namespace corvane {

namespace {

using CachePointer = std::shared_ptr<const ZELOSVersionInfoCache>;

Atomic<CachePointer>& sharedCache() {
  // Never destroyed: threads may ask while the process ends.
  static NoDestructor<Atomic<CachePointer>> shared;
  return *shared;
}

CachePointer versionInfo() {
  // Two first questions at once both read the file, with the same result.
  if (!sharedCache().load()) updateVersionInfo();
  return sharedCache().load();
}

// What is not UTF-8 in a name shows as the replacement character.
std::string decodedName(std::string_view bytes) {
  std::string name;
  while (!bytes.empty()) appendUTF8(name, takeCharacter(bytes));
  return name;
}

}  // namespace

void updateVersionInfo() {
  sharedCache().store(std::make_shared<const ZELOSVersionInfoCache>(
      ZELOSVersionInfoCache::initWithContentsOfFile(systemVersionPath())));
}

std::int64_t operatingSystemVersionCode() {
  return versionInfo()->osVersionCode;
}

std::optional<std::string> operatingSystemProductName() {
  return versionInfo()->osName;
}

std::string operatingSystemMarketingName() {
  return versionInfo()->osMarketingName;
}

std::optional<std::string> operatingSystemVersionNumberString() {
  return versionInfo()->osVersion;
}

std::optional<std::string> operatingSystemBuildCode() {
  return versionInfo()->osBuild;
}

bool shouldUIUsePoliteForms() {
  return versionInfo()->shouldUIUsePoliteForms;
}

std::optional<std::vector<std::int32_t>> identifiersForRunningProcessesNamed(
    std::string_view name) {
  if (name.empty()) return std::nullopt;
  const auto records = readProcessTable();
  if (!records) return std::nullopt;
  const std::string_view shortName = name.substr(0, ZELShortProcessNameLength);
  std::vector<std::int32_t> identifiers;
  for (const ProcessRecord& record : *records) {
    if (record.pid > 0 && record.shortName == shortName) identifiers.push_back(record.pid);
  }
  return identifiers;
}

bool isProcessRunningWithName(std::string_view name) {
  const auto identifiers = identifiersForRunningProcessesNamed(name);
  return identifiers && !identifiers->empty();
}

std::optional<std::string> processNameForProcessID(std::int32_t pid,
                                                   std::uint32_t* effectiveUserID) {
  const auto records = readProcessTable();
  if (!records) return std::nullopt;
  const auto record =
      std::find_if(records->begin(), records->end(),
                   [pid](const ProcessRecord& candidate) { return candidate.pid == pid; });
  if (record == records->end()) return std::nullopt;
  if (effectiveUserID != nullptr) *effectiveUserID = record->effectiveUserID;
  return decodedName(record->shortName);
}

}  // namespace corvane
