#include "foundation/Value.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <compare>
#include <cstring>
#include <functional>
#include <limits>
#include <tuple>

namespace corvane {

namespace {

template <typename T>
T truncated(double value) {
  // 2^63 and 2^64 are exact as doubles, unlike the largest integers themselves.
  const double end = std::ldexp(1.0, std::numeric_limits<T>::digits);
  if (std::isnan(value)) return 0;
  if (value >= end) return std::numeric_limits<T>::max();
  if (value <= static_cast<double>(std::numeric_limits<T>::min())) {
    return std::numeric_limits<T>::min();
  }
  return static_cast<T>(value);
}

/// An entry and the hash of its key. Sorted by hashes, which is fast to compare. Keys themselves
/// are compared only where hashes are the same, which somebody may have seen to: also then sorting
/// does not take long.
struct HashedEntry {
  std::size_t hash;
  const Dictionary::Entry* entry;

  auto operator<=>(const HashedEntry& other) const {
    return std::tie(hash, entry->first) <=> std::tie(other.hash, other.entry->first);
  }
  bool operator==(const HashedEntry& other) const {
    return hash == other.hash && entry->first == other.entry->first;
  }
};

std::vector<HashedEntry> sortedByKey(const Dictionary& dictionary) {
  std::vector<HashedEntry> entries;
  entries.reserve(dictionary.size());
  for (const Dictionary::Entry& entry : dictionary) {
    entries.push_back({std::hash<std::string>()(entry.first), &entry});
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

}  // namespace

bool Number::boolValue() const {
  return std::visit([](auto value) { return value != 0; }, _value);
}

double Number::doubleValue() const {
  return std::visit([](auto value) { return static_cast<double>(value); }, _value);
}

std::int64_t Number::longLongValue() const {
  if (const double* value = std::get_if<double>(&_value)) return truncated<std::int64_t>(*value);
  return static_cast<std::int64_t>(unsignedLongLongValue());
}

std::uint64_t Number::unsignedLongLongValue() const {
  if (const double* value = std::get_if<double>(&_value)) return truncated<std::uint64_t>(*value);
  if (const bool* value = std::get_if<bool>(&_value)) return *value ? 1 : 0;
  if (const auto* value = std::get_if<std::int64_t>(&_value)) {
    return static_cast<std::uint64_t>(*value);
  }
  return std::get<std::uint64_t>(_value);
}

std::int32_t Number::intValue() const {
  return static_cast<std::int32_t>(longLongValue());
}

bool Number::operator==(const Number& other) const {
  if (!isDouble() || !other.isDouble()) return _value == other._value;
  return std::bit_cast<std::uint64_t>(doubleValue()) ==
         std::bit_cast<std::uint64_t>(other.doubleValue());
}

Dictionary::Dictionary() = default;
Dictionary::Dictionary(std::initializer_list<Entry> entries) : _entries(entries) {}
Dictionary::Dictionary(const Dictionary&) = default;
Dictionary::Dictionary(Dictionary&&) noexcept = default;
Dictionary& Dictionary::operator=(const Dictionary&) = default;
Dictionary& Dictionary::operator=(Dictionary&&) noexcept = default;
Dictionary::~Dictionary() = default;

std::size_t Dictionary::size() const {
  return _entries.size();
}
bool Dictionary::empty() const {
  return _entries.empty();
}
const Dictionary::Entry* Dictionary::begin() const {
  return _entries.data();
}
const Dictionary::Entry* Dictionary::end() const {
  return _entries.data() + _entries.size();
}

const Value* Dictionary::find(std::string_view key) const {
  const auto entry = std::find_if(_entries.begin(), _entries.end(),
                                  [key](const Entry& candidate) { return candidate.first == key; });
  return entry == _entries.end() ? nullptr : &entry->second;
}

std::optional<std::string> Dictionary::text(std::string_view key) const {
  const Value* value = find(key);
  if (value == nullptr || value->string() == nullptr) return std::nullopt;
  return *value->string();
}

void Dictionary::set(std::string_view key, Value value) {
  if (const Value* existing = find(key)) {
    const_cast<Value&>(*existing) = std::move(value);
  } else {
    append(std::string(key), std::move(value));
  }
}

void Dictionary::append(std::string key, Value value) {
  _entries.emplace_back(std::move(key), std::move(value));
}

bool Dictionary::remove(std::string_view key) {
  return std::erase_if(_entries, [key](const Entry& entry) { return entry.first == key; }) > 0;
}

const std::string* Dictionary::duplicateKey() const {
  const std::vector<HashedEntry> entries = sortedByKey(*this);
  const auto duplicate = std::adjacent_find(entries.begin(), entries.end());
  return duplicate == entries.end() ? nullptr : &duplicate->entry->first;
}

bool Dictionary::operator==(const Dictionary& other) const {
  if (size() != other.size()) return false;
  const auto haveSameKey = [](const Entry& a, const Entry& b) { return a.first == b.first; };
  if (std::equal(begin(), end(), other.begin(), haveSameKey)) {
    return std::equal(begin(), end(), other.begin(),
                      [](const Entry& a, const Entry& b) { return a.second == b.second; });
  }
  // All keys before any value, so that each value is compared once: twice on every level would be
  // exponential.
  const std::vector<HashedEntry> ours = sortedByKey(*this);
  const std::vector<HashedEntry> theirs = sortedByKey(other);
  return ours == theirs && std::equal(ours.begin(), ours.end(), theirs.begin(),
                                      [](const HashedEntry& a, const HashedEntry& b) {
                                        return a.entry->second == b.entry->second;
                                      });
}

const char* Value::className() const {
  static constexpr std::array<const char*, 7> names = {"string", "number",     "data", "date",
                                                       "array",  "dictionary", "error"};
  return names[_value.index()];
}

bool Value::operator==(const Value& other) const {
  return _value == other._value;
}

Data dataFromString(std::string_view text) {
  Data data(text.size());
  if (!text.empty()) std::memcpy(data.data(), text.data(), text.size());
  return data;
}

std::string_view stringFromData(const Data& data) {
  return {reinterpret_cast<const char*>(data.data()), data.size()};
}

}  // namespace corvane
