#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>

#include <sys/random.h>
#include <unistd.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's, which no header of it declares
extern "C" int __cxa_atexit(void (*destroy)(void*), void* object, void* library);

namespace emulator {

namespace {

// Where the numbers of errors differ.
constexpr std::pair<int, int> errors[] = {
    {EDEADLK, 11},       {EAGAIN, 35},       {EINPROGRESS, 36},  {EALREADY, 37},
    {ENOTSOCK, 38},      {EDESTADDRREQ, 39}, {EMSGSIZE, 40},     {EPROTOTYPE, 41},
    {ENOPROTOOPT, 42},   {EOPNOTSUPP, 45},   {EAFNOSUPPORT, 47}, {EADDRINUSE, 48},
    {EADDRNOTAVAIL, 49}, {ENETUNREACH, 51},  {ECONNRESET, 54},   {ENOBUFS, 55},
    {EISCONN, 56},       {ENOTCONN, 57},     {ETIMEDOUT, 60},    {ECONNREFUSED, 61},
    {ELOOP, 62},         {ENAMETOOLONG, 63}, {ENOTEMPTY, 66},    {EDQUOT, 69},
    {ESTALE, 70},        {ENOLCK, 77},       {ENOSYS, 78},       {EOVERFLOW, 84},
    {ECANCELED, 89},     {EIDRM, 90},        {ENOMSG, 91},       {EILSEQ, 92},
    {EBADMSG, 94},       {ENODATA, 96},      {EPROTO, 100},      {ETIME, 101}};
constexpr int lastThatIsTheSame = 34;

thread_local int programsError = 0;

// Where the program has its number: this system's last one is given over to it when it looks.
int* errorNumber() {
  if (errno != 0) programsError = darwinError(std::exchange(errno, 0));
  return &programsError;
}

[[noreturn]] void assertionFailed(const char* function, const char* file, int line,
                                  const char* expression) {
  std::fprintf(stderr, "Assertion failed: (%s), function %s, file %s, line %d.\n", expression,
               function, file, line);
  std::abort();
}
[[noreturn]] void stackIsSmashed() {
  fail("the canary of the stack is gone");
}
[[noreturn]] void endAtOnce(int status) {
  std::_Exit(status);
}
[[noreturn]] void end(int status) {
  std::exit(status);
}
int destroyAtEnd(void (*destroy)(void*), void* object, void* /*library*/) {
  return ::__cxa_atexit(destroy, object, nullptr);
}

const void* imageHeader(std::uint32_t index) {
  return index == 0 ? Image::program().header() : nullptr;
}
const std::byte* sectionData(const void* /*header*/, const char* segment, const char* section,
                             unsigned long* size) {
  const std::span<const std::byte> content = Image::program().content(segment, section);
  *size = content.size();
  return content.empty() ? nullptr : content.data();
}

int* argumentCount() {
  return &Image::arguments().count;
}
char*** argumentTexts() {
  return &Image::arguments().texts;
}

// What the unwinder asks for: the tables of the image that an address is in.
struct UnwindSections {
  const void* header;
  const void* dwarf;
  std::uint64_t dwarfSize;
  const void* compact;
  std::uint64_t compactSize;
};
bool findUnwindSections(const void* address, UnwindSections* sections) {
  const Image* const image = Image::around(address);
  if (image == nullptr) return false;
  const auto dwarf = image->content("__TEXT", "__eh_frame");
  const auto compact = image->content("__TEXT", "__unwind_info");
  *sections = {image->header(), dwarf.data(), dwarf.size(), compact.data(), compact.size()};
  return true;
}
// No image is ever removed.
void callWhenRemoved(void (* /*callback*/)(const void*, std::intptr_t)) {}
// Libraries that might be there are not.
void* openLibrary(const char* /*path*/, int /*flags*/) {
  return nullptr;
}
int nameOfAddress(const void* /*address*/, void* /*information*/) {
  return 0;
}

int clockTime(int clock, timespec* time) {
  constexpr int realTime = 0;
  constexpr int monotonicRaw = 4;
  constexpr int monotonic = 6;
  switch (clock) {
    case realTime:
      return ::clock_gettime(CLOCK_REALTIME, time);
    case monotonicRaw:
    case monotonic:
      return ::clock_gettime(CLOCK_MONOTONIC, time);
    default:
      fail("a clock that is not known: " + std::to_string(clock));
  }
}
long configuration(int name) {
  constexpr int pageSize = 29;
  constexpr int processors = 58;
  switch (name) {
    case pageSize:
      return ::sysconf(_SC_PAGESIZE);
    case processors:
      return ::sysconf(_SC_NPROCESSORS_ONLN);
    default:
      fail("a number of the system that is not known: " + std::to_string(name));
  }
}
std::uint32_t randomNumber() {
  std::uint32_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number) fail("there is no chance");
  return number;
}

std::uint64_t canary() {
  std::uint64_t number = 0;
  if (::getrandom(&number, sizeof number, 0) != sizeof number) fail("there is no chance");
  return number;
}

}  // namespace

int darwinError(int hostError) {
  for (const auto& [host, darwin] : errors) {
    if (host == hostError) return darwin;
  }
  if (hostError > lastThatIsTheSame)
    fail("an error that macOS has not: " + std::to_string(hostError));
  return hostError;
}

std::optional<int> hostError(int darwinError) {
  for (const auto& [host, darwin] : errors) {
    if (darwin == darwinError) return host;
  }
  if (darwinError < 0 || darwinError > lastThatIsTheSame) return std::nullopt;
  return darwinError;
}

std::span<const Symbol> processSymbols() {
  static std::uint64_t guard = canary();
  static const Symbol symbols[] = {
      {"___stack_chk_guard", &guard},
      {"_environ", static_cast<void*>(&environ)},
      function("___stack_chk_fail", &stackIsSmashed),
      function("___error", &errorNumber),
      function("___assert_rtn", &assertionFailed),
      function("___cxa_atexit", &destroyAtEnd),
      function("__Exit", &endAtOnce),
      function("__exit", &endAtOnce),
      function("_exit", &end),
      function("__dyld_get_image_header", &imageHeader),
      function("_getsectiondata", &sectionData),
      function("__NSGetArgc", &argumentCount),
      function("__NSGetArgv", &argumentTexts),
      function("__dyld_find_unwind_sections", &findUnwindSections),
      function("__dyld_register_func_for_remove_image", &callWhenRemoved),
      function("_dladdr", &nameOfAddress),
      function("_dlopen", &openLibrary),
      function("_clock_gettime", &clockTime),
      function("_sysconf", &configuration),
      function("_arc4random", &randomNumber),
  };
  return symbols;
}

}  // namespace emulator
