#ifndef CORVANE_PLATFORM_PROCESSTABLE_H
#define CORVANE_PLATFORM_PROCESSTABLE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

/// The length of the longest short name, in bytes.
inline constexpr std::size_t ZELShortProcessNameLength = 16;

/// One process as the kernel's table has it.
struct ProcessRecord {
  std::int32_t pid;
  /// The first bytes of the program's file name, at most ZELShortProcessNameLength of them.
  std::string shortName;
  std::uint32_t effectiveUserID;
};

/// The running processes of the system, read afresh, in the table's order; nothing if the table
/// cannot be read, or not wholly. A process that ends while the table is read may be in it or not;
/// one that has ended and that nobody has collected yet is not.
std::optional<std::vector<ProcessRecord>> readProcessTable();

/// Whether it is certain that no process of this number runs: there is none, or it has ended and
/// only waits to be collected. False where that cannot be told, as when descriptors have run out.
bool hasProcessEnded(std::int32_t pid);

}  // namespace corvane

#endif
