#include "client/cli/output/Translation.h"

#include <algorithm>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "foundation/LocalizedStrings.h"
#include "foundation/NoDestructor.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane::cli {

namespace {

constexpr std::size_t placeholderSize = 3;

// A key with placeholders, and what stands before, between and behind them.
struct Pattern {
  std::string key;
  std::vector<std::size_t> numbers;
  std::vector<std::string> literals;
  std::size_t size = 0;  // of the literals
};

Pattern patternOf(const std::string& key) {
  Pattern pattern{key, {}, {""}};
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (key[i] == '$' && i + 2 < key.size() && key[i + 2] == '$') {
      pattern.numbers.push_back(static_cast<std::size_t>(key[i + 1] - '1'));
      pattern.literals.emplace_back();
      i += placeholderSize - 1;
    } else {
      pattern.literals.back() += key[i];
      ++pattern.size;
    }
  }
  return pattern;
}

// What says the most comes first. A key without a word of its own would fit everything.
const std::vector<Pattern>& patterns() {
  static NoDestructor<const std::vector<Pattern>> all([] {
    std::vector<Pattern> found;
    for (const std::string& key : stringsTableKeys(clientStringsTable)) {
      Pattern pattern = patternOf(key);
      const bool hasWords = std::any_of(
          pattern.literals.begin(), pattern.literals.end(), [](const std::string& literal) {
            return std::any_of(literal.begin(), literal.end(), [](unsigned char character) {
              return std::isalpha(character) != 0;
            });
          });
      if (!pattern.numbers.empty() && hasWords) found.push_back(std::move(pattern));
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const Pattern& a, const Pattern& b) { return a.size > b.size; });
    return found;
  }());
  return *all;
}

// What `text` has for the placeholders, in the order of their numbers.
std::optional<Array> parametersIn(std::string_view text, const Pattern& pattern) {
  const std::string& last = pattern.literals.back();
  if (!text.starts_with(pattern.literals.front()) || !text.ends_with(last)) return std::nullopt;
  std::size_t at = pattern.literals.front().size();
  if (text.size() < at + last.size()) return std::nullopt;
  const std::size_t end = text.size() - last.size();
  Array parameters(pattern.numbers.size(), Value(""));
  for (std::size_t i = 0; i < pattern.numbers.size(); ++i) {
    const bool isLast = i + 1 == pattern.numbers.size();
    const std::size_t next = isLast ? end : text.substr(0, end).find(pattern.literals[i + 1], at);
    if (next == std::string_view::npos || pattern.numbers[i] >= parameters.size()) {
      return std::nullopt;
    }
    parameters[pattern.numbers[i]] = std::string(text.substr(at, next - at));
    at = next + pattern.literals[i + 1].size();
  }
  return parameters;
}

std::string inTable(const std::string& key) {
  return ZELPrivilegedOperationSetVNT::localizedUIPolitenessAgnosticStringForKey(
      key, key, clientStringsTable);
}

// What is only a reason of the table's behind what it is about, as in "/path: Is a directory".
std::string translatedReason(const std::string& text) {
  constexpr std::string_view separator = ": ";
  for (std::size_t at = text.find(separator); at != std::string::npos;
       at = text.find(separator, at + 1)) {
    const std::string reason = text.substr(at + separator.size());
    if (std::string found = inTable(reason); found != reason) {
      return translated(aboutText, Array{text.substr(0, at), found});
    }
  }
  return text;
}

}  // namespace

std::string translated(const std::string& text) {
  std::string found = inTable(text);
  if (found != text) return found;
  for (const Pattern& pattern : patterns()) {
    auto parameters = parametersIn(text, pattern);
    if (!parameters) continue;
    for (Value& parameter : *parameters) parameter = translated(*parameter.string());
    return translated(pattern.key, *parameters);
  }
  return translatedReason(text);
}

std::string translated(const std::string& key, const std::string& parameter) {
  return translated(key, Array{parameter});
}

std::string translated(const std::string& key, const Array& parameters) {
  return ZELPrivilegedOperationSetVNT::localizedStringForTemplate(key, parameters,
                                                                  clientStringsTable);
}

}  // namespace corvane::cli
