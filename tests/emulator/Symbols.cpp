#include "tests/emulator/Symbols.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include <dlfcn.h>
#include <sys/mman.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Objects.h"

namespace emulator {

namespace {

// Functions with the same types and the same meaning on both systems.
constexpr const char* same[] = {"abort",
                                "access",
                                "calloc",
                                "ceilf",
                                "chown",
                                "chdir",
                                "chmod",
                                "close",
                                "closedir",
                                "dlsym",
                                "dup",
                                "dup2",

                                "fchmod",
                                "fchown",
                                "fclose",
                                "fdopen",
                                "ferror",
                                "fflush",
                                "fgets",
                                "fileno",
                                "flock",
                                "floor",
                                "fopen",
                                "fork",
                                "fprintf",
                                "fputc",
                                "fputs",
                                "fread",
                                "free",
                                "fseek",
                                "fseeko",
                                "fsync",
                                "ftell",
                                "ftello",
                                "ftruncate",
                                "fwrite",
                                "getc",
                                "getcwd",
                                "getdtablesize",
                                "getdelim",
                                "getegid",
                                "getenv",
                                "geteuid",
                                "getgid",
                                "getpid",
                                "getppid",
                                "getuid",
                                "isatty",
                                "lchown",
                                "ldexp",
                                "link",
                                "llround",
                                "localtime_r",
                                "lround",
                                "malloc",
                                "memchr",
                                "memcmp",
                                "memcpy",
                                "memmove",
                                "memset",
                                "mkdir",
                                "mkdtemp",
                                "mkfifo",
                                "mkstemp",
                                "nanosleep",
                                "perror",
                                "pipe",
                                "poll",
                                "posix_memalign",
                                "pread",
                                "printf",
                                "pthread_detach",
                                "pthread_getspecific",
                                "pthread_join",
                                "pthread_self",
                                "putc",
                                "putchar",
                                "puts",
                                "pwrite",
                                "read",
                                "readlink",
                                "realloc",
                                "remove",
                                "rename",
                                "rewind",
                                "rmdir",
                                "sched_yield",
                                "setbuf",
                                "setenv",
                                "seteuid",
                                "snprintf",
                                "sscanf",
                                "strcasecmp",
                                "strchr",
                                "strcmp",
                                "strdup",
                                "strerror",
                                "strlen",
                                "strncmp",
                                "strnlen",
                                "strrchr",
                                "strstr",
                                "strtod",
                                "strtof",
                                "strtol",
                                "strtold",
                                "strtoll",
                                "strtoul",
                                "strtoull",
                                "symlink",
                                "time",
                                "umask",
                                "ungetc",
                                "unlink",
                                "unsetenv",
                                "usleep",
                                "vasprintf",
                                "vfprintf",
                                "vprintf",
                                "vsnprintf",
                                "waitpid",
                                "wcslen",
                                "wmemchr",
                                "write"};

using Symbols = std::unordered_map<std::string, void*>;

const Symbols& known() {
  static const auto* const symbols = [] {
    auto* const all = new Symbols;
    for (const char* name : same) {
      void* const address = ::dlsym(RTLD_DEFAULT, name);
      if (address == nullptr) fail(std::string("this system has no ") + name);
      all->emplace(std::string("_") + name, address);
    }
    for (const auto& subject :
         {textSymbols(), fileSymbols(), threadSymbols(), processSymbols(), taskSymbols(),
          systemSymbols(), objectClassSymbols(), objectLifeSymbols()}) {
      for (const Symbol& symbol : subject) all->emplace(symbol.name, symbol.address);
    }
    return all;
  }();
  return *symbols;
}

[[noreturn]] void missing(const char* name) {
  fail(std::string("there is no ") + name + " here");
}

// A function of its own for each missing symbol: it passes the name on.
//   mov rdi, name; mov rax, missing; jmp rax
void* trapFor(const std::string& name) {
  constexpr std::size_t pages = std::size_t{64} * 4096;
  static std::byte* place = nullptr;
  static std::byte* end = nullptr;
  std::array<std::uint8_t, 24> code = {0x48, 0xbf, 0, 0, 0, 0, 0, 0, 0, 0,    0x48,
                                       0xb8, 0,    0, 0, 0, 0, 0, 0, 0, 0xff, 0xe0};
  if (place == nullptr || static_cast<std::size_t>(end - place) < code.size()) {
    void* const memory = ::mmap(nullptr, pages, PROT_READ | PROT_WRITE | PROT_EXEC,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) fail("there is no memory");
    place = static_cast<std::byte*>(memory);
    end = place + pages;
  }
  const char* const text = ::strdup(name.c_str());
  auto* const handler = &missing;
  std::memcpy(code.data() + 2, &text, sizeof text);
  std::memcpy(code.data() + 12, &handler, sizeof handler);
  std::memcpy(place, code.data(), code.size());
  void* const trap = place;
  place += code.size();
  return trap;
}

}  // namespace

void* symbolNamed(const std::string& name) {
  for (const auto& image : Image::all()) {
    if (void* const address = image->symbol(name)) return address;
  }
  const auto found = known().find(name);
  if (found != known().end()) return found->second;
  static auto* const traps = new Symbols;
  void*& trap = (*traps)[name];
  constexpr std::string_view classPrefix = "_OBJC_CLASS_$_";
  if (trap == nullptr) {
    trap = name.starts_with(classPrefix) ? missingClass(name.substr(classPrefix.size()))
                                         : trapFor(name);
  }
  return trap;
}

}  // namespace emulator
