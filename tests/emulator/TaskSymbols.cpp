#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

// The settings of a program are pointers on macOS; what they are at is this system's own.

int initializeActions(posix_spawn_file_actions_t** actions) {
  *actions = new posix_spawn_file_actions_t;
  return ::posix_spawn_file_actions_init(*actions);
}
int duplicateInChild(posix_spawn_file_actions_t** actions, int from, int to) {
  return ::posix_spawn_file_actions_adddup2(*actions, from, to);
}
int destroyActions(posix_spawn_file_actions_t** actions) {
  const int result = ::posix_spawn_file_actions_destroy(*actions);
  delete std::exchange(*actions, nullptr);
  return result;
}

struct Settings {
  posix_spawnattr_t host;
  bool hasStandardStreamsOnly;
};

int initializeSettings(Settings** settings) {
  *settings = new Settings{};
  return ::posix_spawnattr_init(&(*settings)->host);
}
int destroySettings(Settings** settings) {
  const int result = ::posix_spawnattr_destroy(&(*settings)->host);
  delete std::exchange(*settings, nullptr);
  return result;
}
int setFlags(Settings** settings, short flags) {
  constexpr short signalsToDefault = 0x4;
  constexpr short signalMask = 0x8;
  constexpr short closeByDefault = 0x4000;
  if (flags != (signalsToDefault | signalMask | closeByDefault)) {
    fail("flags of a program that are not known: " + std::to_string(flags));
  }
  (*settings)->hasStandardStreamsOnly = true;
  return ::posix_spawnattr_setflags(&(*settings)->host,
                                    POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
}
// A set of signals is a word. All and none are the same on both systems.
int setDefaultSignals(Settings** settings, const std::uint32_t* signals) {
  if (*signals != UINT32_MAX) fail("some signals and not all");
  sigset_t all;
  ::sigfillset(&all);
  return ::posix_spawnattr_setsigdefault(&(*settings)->host, &all);
}
int setSignalMask(Settings** settings, const std::uint32_t* signals) {
  if (*signals != 0) fail("signals that are blocked");
  sigset_t none;
  ::sigemptyset(&none);
  return ::posix_spawnattr_setsigmask(&(*settings)->host, &none);
}

// A tool by its name alone, with all that this process has.
int spawnNamed(pid_t* pid, const char* name, posix_spawn_file_actions_t** actions,
               Settings** settings, char* const* arguments, char* const* environment) {
  if (actions != nullptr || settings != nullptr) fail("a tool with settings");
  const int result = ::posix_spawnp(pid, name, nullptr, nullptr, arguments, environment);
  return result == 0 ? 0 : darwinError(result);
}

int spawn(pid_t* pid, const char* path, posix_spawn_file_actions_t** actions, Settings** settings,
          char* const* arguments, char* const* environment) {
  if (!(*settings)->hasStandardStreamsOnly) fail("a program with all descriptors");
  const int closed = ::posix_spawn_file_actions_addclosefrom_np(*actions, STDERR_FILENO + 1);
  if (closed != 0) return darwinError(closed);
  const int result = ::posix_spawn(pid, path, *actions, &(*settings)->host, arguments, environment);
  return result == 0 ? 0 : darwinError(result);
}

// The numbers that differ.
constexpr std::pair<int, int> signals[] = {{SIGBUS, 10},  {SIGSYS, 12},  {SIGSTOP, 17},
                                           {SIGCONT, 19}, {SIGCHLD, 20}, {SIGUSR1, 30},
                                           {SIGUSR2, 31}};
int darwinSignal(int host) {
  for (const auto& [number, darwin] : signals) {
    if (number == host) return darwin;
  }
  return host;
}

// A program of this kind goes on in the emulator, beside the same libraries.
int execute(const char* path, char* const* arguments) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, 4> begin{};
  file.read(begin.data(), begin.size());
  if (begin != std::array{'\xcf', '\xfa', '\xed', '\xfe'}) return ::execv(path, arguments);
  std::vector<const char*> all = {"macos-emulator"};
  for (const auto& image : Image::all()) {
    if (image.get() != &Image::program()) all.insert(all.end(), {"--with", image->path().c_str()});
  }
  all.push_back(path);
  for (++arguments; *arguments != nullptr; ++arguments) all.push_back(*arguments);
  all.push_back(nullptr);
  return ::execv("/proc/self/exe", const_cast<char* const*>(all.data()));
}

struct DarwinChild {
  std::int32_t signal;
  std::int32_t error;
  std::int32_t code;
  std::int32_t pid;
  std::uint32_t uid;
  std::int32_t status;
  std::array<std::byte, 80> rest;
};
static_assert(sizeof(DarwinChild) == 104);

int waitForChild(int kind, id_t id, DarwinChild* child, int options) {
  constexpr int noHang = 0x1;
  constexpr int ended = 0x4;
  constexpr int keep = 0x20;
  const bool isKnown = kind == P_PID || (kind == P_ALL && id == 0);
  if (!isKnown || (options & ~(noHang | ended | keep)) != 0) fail("a wait that is not known");
  siginfo_t info{};
  const int hostOptions = ((options & noHang) != 0 ? WNOHANG : 0) |
                          ((options & ended) != 0 ? WEXITED : 0) |
                          ((options & keep) != 0 ? WNOWAIT : 0);
  if (::waitid(static_cast<idtype_t>(kind), id, &info, hostOptions) != 0) return -1;
  const bool isSignal = info.si_code == CLD_KILLED || info.si_code == CLD_DUMPED;
  *child = {};
  child->code = info.si_code;
  child->pid = info.si_pid;
  child->uid = info.si_uid;
  child->status = isSignal ? darwinSignal(info.si_status) : info.si_status;
  return 0;
}

int sendSignal(pid_t pid, int signal) {
  return ::kill(pid, hostSignal(signal));
}

struct DarwinEvent {
  std::uint64_t identifier;
  std::int16_t filter;
  std::uint16_t flags;
  std::uint32_t filterFlags;
  std::int64_t data;
  void* user;
};
static_assert(sizeof(DarwinEvent) == 32);

// A queue is a descriptor that is never ready, until it is that of a process.
int newQueue() {
  return ::eventfd(0, EFD_CLOEXEC);
}
int changeQueue(int queue, const DarwinEvent* changes, int changeCount, DarwinEvent* /*events*/,
                int eventCount, const void* /*timeout*/) {
  constexpr std::int16_t ofProcess = -5;
  constexpr std::uint16_t add = 0x1;
  constexpr std::uint32_t atExit = 0x80000000;
  const bool isKnown = changeCount == 1 && eventCount == 0 && changes->filter == ofProcess &&
                       changes->flags == add && changes->filterFlags == atExit;
  if (!isKnown) fail("an event that is not known");
  const auto process = static_cast<int>(::syscall(SYS_pidfd_open, changes->identifier, 0));
  if (process < 0) return -1;
  const int replaced = ::dup3(process, queue, O_CLOEXEC);
  ::close(process);
  return replaced < 0 ? -1 : 0;
}

}  // namespace

int hostSignal(int darwin) {
  for (const auto& [host, number] : signals) {
    if (number == darwin) return host;
  }
  const bool isTheSame = darwin >= 0 && darwin <= SIGTERM && darwin != SIGBUS &&
                         darwin != SIGUSR1 && darwin != SIGUSR2;
  if (!isTheSame) fail("a signal that is not known: " + std::to_string(darwin));
  return darwin;
}

std::span<const Symbol> taskSymbols() {
  static const Symbol symbols[] = {
      function("_posix_spawn", &spawn),
      function("_posix_spawnp", &spawnNamed),
      function("_posix_spawn_file_actions_init", &initializeActions),
      function("_posix_spawn_file_actions_adddup2", &duplicateInChild),
      function("_posix_spawn_file_actions_destroy", &destroyActions),
      function("_posix_spawnattr_init", &initializeSettings),
      function("_posix_spawnattr_destroy", &destroySettings),
      function("_posix_spawnattr_setflags", &setFlags),
      function("_posix_spawnattr_setsigdefault", &setDefaultSignals),
      function("_posix_spawnattr_setsigmask", &setSignalMask),
      function("_waitid", &waitForChild),
      function("_execv", &execute),
      function("_kill", &sendSignal),
      function("_kqueue", &newQueue),
      function("_kevent", &changeQueue),
  };
  return symbols;
}

}  // namespace emulator
