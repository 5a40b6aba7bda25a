#ifndef CORVANE_OPERATIONS_OPERATIONCODES_H
#define CORVANE_OPERATIONS_OPERATIONCODES_H

#include <cstdint>

namespace corvane {

/// The codes of the operations, which never change: they are what requests carry.
inline constexpr std::uint64_t codeDeleteFileobjects = 0;
inline constexpr std::uint64_t codeModifyPreferences = 1;
inline constexpr std::uint64_t codeExecuteUtility = 2;
inline constexpr std::uint64_t codePerformUninstall = 9994;
inline constexpr std::uint64_t codePrepareUninstall = 9995;
inline constexpr std::uint64_t codeDeleteFiles = 9996;
inline constexpr std::uint64_t codeDiscardAuth = 9997;
inline constexpr std::uint64_t codeNop = 9998;

}  // namespace corvane

#endif
