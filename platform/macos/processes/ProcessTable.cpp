#include "platform/ProcessTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/sysctl.h>

namespace corvane {

namespace {

// What the kernel gives for each process.
static_assert(sizeof(kinfo_proc) == 648);
static_assert(sizeof(kinfo_proc::kp_proc.p_comm) == ZELShortProcessNameLength + 1);

// Processes that may begin between the question how many there are and the answer who.
constexpr std::size_t roomForMore = 64;
// How often the table may have outgrown its room.
constexpr int attempts = 8;

std::optional<std::vector<kinfo_proc>> query(std::array<int, 4> name, unsigned length) {
  for (int attempt = 0; attempt < attempts; ++attempt) {
    std::size_t size = 0;
    if (::sysctl(name.data(), length, nullptr, &size, nullptr, 0) != 0) return std::nullopt;
    std::vector<kinfo_proc> records(size / sizeof(kinfo_proc) + roomForMore);
    size = records.size() * sizeof(kinfo_proc);
    if (::sysctl(name.data(), length, records.data(), &size, nullptr, 0) == 0) {
      records.resize(size / sizeof(kinfo_proc));
      return records;
    }
    if (errno != ENOMEM) return std::nullopt;
  }
  return std::nullopt;
}

bool hasEnded(const kinfo_proc& record) {
  return record.kp_proc.p_stat == SZOMB;
}

}  // namespace

std::optional<std::vector<ProcessRecord>> readProcessTable() {
  const auto records = query({CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0}, 3);
  if (!records) return std::nullopt;
  std::vector<ProcessRecord> table;
  table.reserve(records->size());
  for (const kinfo_proc& record : *records) {
    if (hasEnded(record)) continue;
    const char* const name = record.kp_proc.p_comm;
    table.push_back({record.kp_proc.p_pid,
                     std::string(name, ::strnlen(name, ZELShortProcessNameLength)),
                     record.kp_eproc.e_ucred.cr_uid});
  }
  return table;
}

bool hasProcessEnded(std::int32_t pid) {
  if (pid <= 0) return true;
  const auto records = query({CTL_KERN, KERN_PROC, KERN_PROC_PID, pid}, 4);
  return records && std::all_of(records->begin(), records->end(), hasEnded);
}

}  // namespace corvane
