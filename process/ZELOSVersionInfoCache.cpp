#include "process/ZELOSVersionInfoCache.h"

#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <string_view>

#include "foundation/PropertyList.h"

namespace corvane {

namespace {

constexpr std::int64_t unknownVersionCode = 0x1000;
constexpr std::int64_t firstCodeOfOSX = 0x1080;
constexpr std::int64_t firstCodeOfMacOS = 0x10C0;

// Reads a text from its beginning, skipping white space before each item.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : _rest(text) {}

  // An integer, held to the range; nothing, and nothing consumed, if there is none.
  std::optional<std::int64_t> integer() {
    skipWhiteSpace();
    const bool negative = _rest.starts_with('-');
    const std::string_view digits = _rest.substr(negative || _rest.starts_with('+') ? 1 : 0);
    if (digits.empty() || digits.front() < '0' || digits.front() > '9') return std::nullopt;
    // A minus sign belongs to the number, a plus sign is not known to from_chars.
    const std::string_view number = negative ? _rest : digits;
    std::int64_t value = 0;
    const auto result = std::from_chars(number.data(), number.data() + number.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
      using Limits = std::numeric_limits<std::int64_t>;
      value = negative ? Limits::min() : Limits::max();
    }
    _rest = std::string_view(result.ptr, static_cast<std::size_t>(_rest.end() - result.ptr));
    return value;
  }

  void skip(char character) {
    skipWhiteSpace();
    if (_rest.starts_with(character)) _rest.remove_prefix(1);
  }

 private:
  void skipWhiteSpace() {
    const auto first = _rest.find_first_not_of(" \t\n\v\f\r");
    _rest.remove_prefix(first == std::string_view::npos ? _rest.size() : first);
  }

  std::string_view _rest;
};

std::int64_t versionCode(std::string_view version) {
  if (version.empty()) return unknownVersionCode;
  Scanner scanner(version);
  const std::int64_t major = scanner.integer().value_or(10);
  scanner.skip('.');
  const std::int64_t minor = scanner.integer().value_or(0);
  scanner.skip('.');
  const std::int64_t patch = scanner.integer().value_or(0);
  // Unsigned, so that absurd numbers wrap.
  const auto scaled = [](std::int64_t number, std::uint64_t factor) {
    return static_cast<std::uint64_t>(number) * factor;
  };
  return static_cast<std::int64_t>(scaled(major / 10, 0x1000) + scaled(major % 10, 0x100) +
                                   scaled(minor, 0x10) + scaled(patch, 1));
}

std::optional<Dictionary> dictionaryWithContentsOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  Result<Dictionary> dictionary = readDictionary(std::as_bytes(std::span(text)));
  if (!dictionary) return std::nullopt;
  return *std::move(dictionary);
}

const char* marketingName(std::int64_t code) {
  if (code < firstCodeOfOSX) return "Mac OS X";
  return code < firstCodeOfMacOS ? "OS X" : "macOS";
}

}  // namespace

ZELOSVersionInfoCache ZELOSVersionInfoCache::initWithContentsOfFile(const std::string& path) {
  const auto facts = dictionaryWithContentsOfFile(path);
  if (!facts || facts->empty()) return {"", "", "", "", unknownVersionCode, true};

  ZELOSVersionInfoCache cache;
  cache.osName = facts->text("ProductName");
  cache.osVersion = facts->text("ProductVersion");
  cache.osBuild = facts->text("ProductBuildVersion");
  cache.osVersionCode = versionCode(cache.osVersion.value_or(""));
  cache.osMarketingName = marketingName(cache.osVersionCode);
  cache.shouldUIUsePoliteForms = cache.osVersionCode < firstCodeOfMacOS;
  return cache;
}

}  // namespace corvane
