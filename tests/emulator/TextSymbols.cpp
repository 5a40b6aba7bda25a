#include <array>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cwchar>

#include <expat.h>
#include <regex.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

// What a character is, by the bits of macOS.
constexpr std::uint32_t isAlphabetic = 0x100;
constexpr std::uint32_t isControl = 0x200;
constexpr std::uint32_t isDigit = 0x400;
constexpr std::uint32_t isGraphic = 0x800;
constexpr std::uint32_t isLower = 0x1000;
constexpr std::uint32_t isPunctuation = 0x2000;
constexpr std::uint32_t isSpace = 0x4000;
constexpr std::uint32_t isUpper = 0x8000;
constexpr std::uint32_t isHexadecimal = 0x10000;
constexpr std::uint32_t isBlank = 0x20000;
constexpr std::uint32_t isPrintable = 0x40000;

// The table of the C locale, of which programs read the parts that are named here.
struct RuneLocale {
  std::array<char, 60> unused;
  std::array<std::uint32_t, 256> kinds;
  std::array<std::int32_t, 256> lower;
  std::array<std::int32_t, 256> upper;
  std::array<std::byte, 128> rest;
};
static_assert(offsetof(RuneLocale, kinds) == 60 && offsetof(RuneLocale, lower) == 1084);

std::uint32_t kindsOf(int character) {
  constexpr struct {
    int (*is)(int);
    std::uint32_t kind;
  } kinds[] = {
      {std::isalpha, isAlphabetic}, {std::iscntrl, isControl},  {std::isdigit, isDigit},
      {std::isgraph, isGraphic},    {std::islower, isLower},    {std::ispunct, isPunctuation},
      {std::isspace, isSpace},      {std::isupper, isUpper},    {std::isxdigit, isHexadecimal},
      {std::isblank, isBlank},      {std::isprint, isPrintable}};
  std::uint32_t found = 0;
  for (const auto& [is, kind] : kinds) {
    if (is(character) != 0) found |= kind;
  }
  return found;
}

RuneLocale* runeLocale() {
  static auto* const locale = [] {
    auto* const made = new RuneLocale{};
    for (int c = 0; c < 256; ++c) {
      const auto index = static_cast<std::size_t>(c);
      made->kinds.at(index) = c < 128 ? kindsOf(c) : 0;
      made->lower.at(index) = c < 128 ? std::tolower(c) : c;
      made->upper.at(index) = c < 128 ? std::toupper(c) : c;
    }
    return made;
  }();
  return locale;
}

// Of characters that the table has not, which the C locale has none of.
unsigned long maskOfRune(int /*rune*/, unsigned long /*mask*/) {
  return 0;
}
int lowerRune(int rune) {
  return rune < 128 ? std::tolower(rune) : rune;
}
int upperRune(int rune) {
  return rune < 128 ? std::toupper(rune) : rune;
}

// Programs use no locale but C's, which they name by null.

__attribute__((format(printf, 4, 5))) int snprintfInLocale(char* text, std::size_t size,
                                                           void* /*locale*/, const char* format,
                                                           ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, size, format, arguments);
  va_end(arguments);
  return length;
}
__attribute__((format(printf, 3, 4))) int asprintfInLocale(char** text, void* /*locale*/,
                                                           const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int length = ::vasprintf(text, format, arguments);
  va_end(arguments);
  return length;
}
__attribute__((format(scanf, 3, 4))) int sscanfInLocale(const char* text, void* /*locale*/,
                                                        const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int count = std::vsscanf(text, format, arguments);
  va_end(arguments);
  return count;
}
double strtodInLocale(const char* text, char** end, void* /*locale*/) {
  return std::strtod(text, end);
}
float strtofInLocale(const char* text, char** end, void* /*locale*/) {
  return std::strtof(text, end);
}
long double strtoldInLocale(const char* text, char** end, void* /*locale*/) {
  return std::strtold(text, end);
}
long long strtollInLocale(const char* text, char** end, int base, void* /*locale*/) {
  return std::strtoll(text, end, base);
}
unsigned long long strtoullInLocale(const char* text, char** end, int base, void* /*locale*/) {
  return std::strtoull(text, end, base);
}
std::size_t bytesOfCharacter(void* /*locale*/) {
  return MB_CUR_MAX;
}
unsigned long maskOfRuneInLocale(int rune, unsigned long mask, void* /*locale*/) {
  return maskOfRune(rune, mask);
}
int mbtowcInLocale(wchar_t* character, const char* text, std::size_t size, void* /*locale*/) {
  return std::mbtowc(character, text, size);
}
std::size_t strftimeInLocale(char* text, std::size_t size, const char* format, const tm* time,
                             void* /*locale*/) {
  return std::strftime(text, size, format, time);
}
// A pattern has 32 bytes there, and places in a text are wider.
struct Pattern {
  std::array<std::byte, 24> unused;
  regex_t* host;
};
struct Match {
  std::int64_t begin;
  std::int64_t end;
};
int makePattern(Pattern* pattern, const char* text, int flags) {
  if (flags != REG_EXTENDED) fail("flags of a pattern that are not known");
  pattern->host = new regex_t;
  return ::regcomp(pattern->host, text, REG_EXTENDED);
}
int findPattern(const Pattern* pattern, const char* text, std::size_t count, Match* matches,
                int flags) {
  if (count > 1 || flags != 0) fail("a search that is not known");
  regmatch_t match{};
  const int result = ::regexec(pattern->host, text, count, &match, 0);
  if (result == 0 && count == 1) *matches = {match.rm_so, match.rm_eo};
  return result;
}
void freePattern(Pattern* pattern) {
  ::regfree(pattern->host);
  delete pattern->host;
}
void freeLocale(void* /*locale*/) {}
void zero(void* memory, std::size_t size) {
  std::memset(memory, 0, size);
}
std::size_t wcrtombInLocale(char* text, wchar_t character, std::mbstate_t* state,
                            void* /*locale*/) {
  return std::wcrtomb(text, character, state);
}
int describeError(int number, char* text, std::size_t size) {
  const std::optional<int> host = hostError(number);
  if (!host) {
    std::snprintf(text, size, "Unknown error: %d", number);
    return darwinError(EINVAL);
  }
  std::snprintf(text, size, "%s", std::strerror(*host));  // NOLINT(concurrency-mt-unsafe)
  return 0;
}

}  // namespace

std::span<const Symbol> textSymbols() {
  static const Symbol symbols[] = {
      {"__DefaultRuneLocale", runeLocale()},
      function("___maskrune", &maskOfRune),
      function("___tolower", &lowerRune),
      function("___toupper", &upperRune),
      function("_snprintf_l", &snprintfInLocale),
      function("_asprintf_l", &asprintfInLocale),
      function("_sscanf_l", &sscanfInLocale),
      function("_strtod_l", &strtodInLocale),
      function("_strtof_l", &strtofInLocale),
      function("_strtold_l", &strtoldInLocale),
      function("_strtoll_l", &strtollInLocale),
      function("_strtoull_l", &strtoullInLocale),
      function("____mb_cur_max_l", &bytesOfCharacter),
      function("___maskrune_l", &maskOfRuneInLocale),
      function("_mbtowc_l", &mbtowcInLocale),
      function("_strftime_l", &strftimeInLocale),
      function("_wcrtomb_l", &wcrtombInLocale),
      function("_freelocale", &freeLocale),
      function("_regcomp", &makePattern),
      function("_regexec", &findPattern),
      function("_regfree", &freePattern),
      function("___bzero", &zero),
      function("_bzero", &zero),
      function("_strerror_r", &describeError),
      function("_XML_ErrorString", &XML_ErrorString),
      function("_XML_GetCurrentLineNumber", &XML_GetCurrentLineNumber),
      function("_XML_GetErrorCode", &XML_GetErrorCode),
      function("_XML_Parse", &XML_Parse),
      function("_XML_ParserCreate", &XML_ParserCreate),
      function("_XML_ParserFree", &XML_ParserFree),
      function("_XML_SetCharacterDataHandler", &XML_SetCharacterDataHandler),
      function("_XML_SetElementHandler", &XML_SetElementHandler),
      function("_XML_SetEntityDeclHandler", &XML_SetEntityDeclHandler),
      function("_XML_SetSkippedEntityHandler", &XML_SetSkippedEntityHandler),
      function("_XML_SetUserData", &XML_SetUserData),
      function("_XML_StopParser", &XML_StopParser),
  };
  return symbols;
}

}  // namespace emulator
