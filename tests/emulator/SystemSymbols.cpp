#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

namespace fs = std::filesystem;

struct DarwinUser {
  char* name;
  char* password;
  std::uint32_t user;
  std::uint32_t group;
  std::int64_t change;
  char* accessClass;
  char* information;
  char* folder;
  char* shell;
  std::int64_t expiry;
};
static_assert(sizeof(DarwinUser) == 72 && offsetof(DarwinUser, folder) == 48);

int userOf(uid_t uid, DarwinUser* result, char* buffer, std::size_t size, DarwinUser** found) {
  passwd entry{};
  passwd* host = nullptr;
  *found = nullptr;
  const int error = ::getpwuid_r(uid, &entry, buffer, size, &host);
  if (error != 0) return darwinError(error);
  if (host == nullptr) return 0;
  static char none[] = "";
  *result = {host->pw_name, host->pw_passwd, host->pw_uid, host->pw_gid,   0,
             none,          host->pw_gecos,  host->pw_dir, host->pw_shell, 0};
  *found = result;
  return 0;
}

int limitOf(int resource, rlimit* limit) {
  constexpr int descriptors = 8;
  if (resource != descriptors) fail("a limit that is not known: " + std::to_string(resource));
  return ::getrlimit(RLIMIT_NOFILE, limit);
}
int setLimit(int resource, const rlimit* limit) {
  constexpr int descriptors = 8;
  constexpr rlim_t infinity = (rlim_t{1} << 63) - 1;
  if (resource != descriptors) fail("a limit that is not known: " + std::to_string(resource));
  if (limit->rlim_cur == infinity) {
    errno = EINVAL;
    return -1;
  }
  return ::setrlimit(RLIMIT_NOFILE, limit);
}

struct DarwinUsage {
  std::array<std::int64_t, 4> times;
  std::int64_t largestSize;
  std::array<std::int64_t, 13> rest;
};
static_assert(sizeof(DarwinUsage) == 144);

// The size alone, which is in bytes there.
int usageOf(int who, DarwinUsage* result) {
  rusage usage{};
  if (::getrusage(who == 0 ? RUSAGE_SELF : RUSAGE_CHILDREN, &usage) != 0) return -1;
  *result = {};
  result->largestSize = usage.ru_maxrss * 1024;
  return 0;
}

// What ignores and what is the default are the same numbers.
sighandler_t handleSignal(int signal, sighandler_t handler) {
  return ::signal(hostSignal(signal), handler);
}

std::string firstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The kernel's record of a process, of which programs read the parts that are named here.
struct ProcessRecord {
  std::array<std::byte, 36> begin;
  char state;
  std::array<std::byte, 3> gap;
  std::int32_t pid;
  std::array<std::byte, 199> middle;
  std::array<char, 17> name;
  std::array<std::byte, 160> more;
  std::uint32_t user;
  std::array<std::byte, 224> rest;
};
static_assert(sizeof(ProcessRecord) == 648 && offsetof(ProcessRecord, pid) == 40 &&
              offsetof(ProcessRecord, name) == 243 && offsetof(ProcessRecord, user) == 420);

// A name is cut one character later there than here.
std::string nameOf(const fs::path& folder, const std::string& cut) {
  constexpr std::size_t longest = 15;
  std::error_code failure;
  std::string program = fs::read_symlink(folder / "exe", failure).filename();
  constexpr std::string_view removed = " (deleted)";
  if (program.ends_with(removed)) program.resize(program.size() - removed.size());
  const bool isCut = cut.size() == longest && program.starts_with(cut);
  return isCut ? program.substr(0, longest + 1) : cut;
}

bool readRecord(pid_t pid, ProcessRecord& record) {
  constexpr char running = 2;
  constexpr char zombie = 5;
  const fs::path folder = "/proc/" + std::to_string(pid);
  struct stat attributes {};
  const std::string line = firstLine(folder / "stat");
  const std::size_t name = line.find('(');
  const std::size_t end = line.rfind(')');
  if (::stat(folder.c_str(), &attributes) != 0 || name == std::string::npos || end < name) {
    return false;
  }
  record = {};
  record.pid = pid;
  record.state = line.compare(end, 3, ") Z") == 0 ? zombie : running;
  nameOf(folder, line.substr(name + 1, end - name - 1))
      .copy(record.name.data(), record.name.size() - 1);
  record.user = attributes.st_uid;
  return true;
}

int systemControl(const int* name, unsigned length, void* result, std::size_t* size,
                  const void* change, std::size_t /*changeSize*/) {
  constexpr int kernel = 1;
  constexpr int processes = 14;
  constexpr int all = 0;
  constexpr int one = 1;
  const bool isKnown = length >= 3 && name[0] == kernel && name[1] == processes &&
                       (name[2] == all || (name[2] == one && length == 4)) && change == nullptr;
  if (!isKnown) fail("a question to the system that is not known");
  std::vector<ProcessRecord> records;
  ProcessRecord record{};
  if (name[2] == one) {
    if (readRecord(name[3], record)) records.push_back(record);
  } else {
    for (const fs::directory_entry& entry : fs::directory_iterator("/proc")) {
      const std::string text = entry.path().filename();
      const bool isProcess = text.find_first_not_of("0123456789") == std::string::npos;
      if (isProcess && readRecord(std::stoi(text), record)) records.push_back(record);
    }
  }
  const std::size_t needed = records.size() * sizeof record;
  if (result != nullptr && *size < needed) {
    errno = ENOMEM;
    return -1;
  }
  if (result != nullptr) std::memcpy(result, records.data(), needed);
  *size = needed;
  return 0;
}

struct TaskInformation {
  std::array<std::uint64_t, 6> sizesAndTimes;
  std::array<std::int32_t, 9> counts;
  std::int32_t threads;
  std::int32_t runningThreads;
  std::int32_t priority;
};
static_assert(sizeof(TaskInformation) == 96 && offsetof(TaskInformation, threads) == 84);

int informationOf(pid_t pid, int kind, std::uint64_t /*argument*/, TaskInformation* result,
                  int size) {
  constexpr int ofTask = 4;
  if (kind != ofTask || size != sizeof *result) fail("information that is not known");
  const fs::directory_iterator tasks("/proc/" + std::to_string(pid) + "/task");
  *result = {};
  result->threads = static_cast<std::int32_t>(std::distance(begin(tasks), end(tasks)));
  return sizeof *result;
}
// How many threads there are, as the kernel's own word for them; what they are is nothing to look
// at.
std::uint32_t thisTask = 1;
int threadsOf(std::uint32_t /*task*/, void** threads, std::uint32_t* count) {
  TaskInformation task{};
  informationOf(::getpid(), 4, 0, &task, sizeof task);
  *threads = nullptr;
  *count = static_cast<std::uint32_t>(task.threads);
  return 0;
}
int freePages(std::uint32_t /*task*/, std::uintptr_t address, std::uintptr_t /*size*/) {
  if (address != 0) fail("pages that were not given");
  return 0;
}
int pathOf(pid_t pid, char* path, std::uint32_t size) {
  const std::string link = "/proc/" + std::to_string(pid) + "/exe";
  const ssize_t length = ::readlink(link.c_str(), path, size);
  return length > 0 ? static_cast<int>(length) : 0;
}

int exchangeNames(const char* one, const char* other, unsigned flags) {
  constexpr unsigned swap = 2;
  if (flags != swap) fail("flags of renamex_np that are not known");
  return ::renameat2(AT_FDCWD, one, AT_FDCWD, other, RENAME_EXCHANGE);
}
int makeNode(const char* path, std::uint16_t mode, std::int32_t /*device*/) {
  constexpr std::uint16_t whiteout = 0160000;
  if ((mode & whiteout) != whiteout) fail("a kind of object that is not known");
  return ::mknod(path, static_cast<mode_t>(S_IFCHR | (mode & 0777)), 0);
}

}  // namespace

std::span<const Symbol> systemSymbols() {
  static const Symbol symbols[] = {
      {"_mach_task_self_", &thisTask},        function("_task_threads", &threadsOf),
      function("_vm_deallocate", &freePages), function("_getpwuid_r", &userOf),
      function("_getrlimit", &limitOf),       function("_setrlimit", &setLimit),
      function("_getrusage", &usageOf),       function("_signal", &handleSignal),
      function("_sysctl", &systemControl),    function("_proc_pidinfo", &informationOf),
      function("_proc_pidpath", &pathOf),     function("_renamex_np", &exchangeNames),
      function("_mknod", &makeNode),
  };
  return symbols;
}

}  // namespace emulator
