#ifndef CORVANE_FOUNDATION_VALUE_H
#define CORVANE_FOUNDATION_VALUE_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "foundation/Error.h"

namespace corvane {

class Value;

/// A block of bytes.
using Data = std::vector<std::byte>;

/// A point in time.
struct Date {
  /// Seconds since 2001-01-01 00:00:00 UTC, the epoch of property lists; may be negative.
  double secondsSinceReference = 0;
  bool operator==(const Date&) const = default;
};

/// A number that remembers how it was written: boolean, integer or floating point.
class Number {
 public:
  Number(bool value) : _value(value) {}    // NOLINT
  Number(double value) : _value(value) {}  // NOLINT
  template <std::signed_integral T>
  Number(T value) : _value(static_cast<std::int64_t>(value)) {}  // NOLINT
  template <std::unsigned_integral T>
  requires(!std::same_as<T, bool>) Number(T value) {  // NOLINT
    if (std::in_range<std::int64_t>(value)) {
      _value = static_cast<std::int64_t>(value);
    } else {
      _value = static_cast<std::uint64_t>(value);
    }
  }

  bool isBoolean() const { return std::holds_alternative<bool>(_value); }
  bool isDouble() const { return std::holds_alternative<double>(_value); }
  /// True for an integer above the range of a signed 64-bit number.
  bool isUnsigned() const { return std::holds_alternative<std::uint64_t>(_value); }

  bool boolValue() const;
  double doubleValue() const;
  /// The low 64 bits of an integer; a floating-point value is truncated and held to the range.
  std::int64_t longLongValue() const;
  std::uint64_t unsignedLongLongValue() const;
  /// The low 32 bits of `longLongValue`.
  std::int32_t intValue() const;

  /// Two numbers are equal when they are written alike: the integer 1 is not the real one, nor is
  /// 0.0 the same as -0.0; a NaN is the same as itself.
  bool operator==(const Number& other) const;

 private:
  std::variant<bool, std::int64_t, std::uint64_t, double> _value;
};

/// A dictionary with string keys that keeps the order in which its keys were first set.
class Dictionary {
 public:
  using Entry = std::pair<std::string, Value>;

  Dictionary();
  Dictionary(std::initializer_list<Entry> entries);
  Dictionary(const Dictionary&);
  Dictionary(Dictionary&&) noexcept;
  Dictionary& operator=(const Dictionary&);
  Dictionary& operator=(Dictionary&&) noexcept;
  ~Dictionary();

  std::size_t size() const;
  bool empty() const;
  /// The value of `key`, owned by the dictionary, or null. Takes time linear in the size.
  const Value* find(std::string_view key) const;
  /// The text that is the value of `key`; nothing if there is no value, or another kind of one.
  std::optional<std::string> text(std::string_view key) const;
  /// Replaces the value of `key` in its place, or appends a new entry.
  void set(std::string_view key, Value value);
  /// Appends an entry whose key the caller knows to be new, or sees to it with duplicateKey.
  void append(std::string key, Value value);
  /// A key that occurs twice, owned by the dictionary, or null.
  const std::string* duplicateKey() const;
  /// Removes `key`; true if it was there.
  bool remove(std::string_view key);

  const Entry* begin() const;
  const Entry* end() const;

  /// Two dictionaries are equal when they hold the same entries, in whatever order. Takes time in
  /// proportion to what they hold, but for a logarithm.
  bool operator==(const Dictionary& other) const;

 private:
  std::vector<Entry> _entries;
};

/// What messages, property lists and user information are made of. Absence is an empty
/// `std::optional<Value>` or a null pointer, never a kind of value.
class Value {
 public:
  using Array = std::vector<Value>;

  Value(std::string value) : _value(std::move(value)) {}         // NOLINT
  Value(std::string_view value) : _value(std::string(value)) {}  // NOLINT
  Value(const char* value) : _value(std::string(value)) {}       // NOLINT
  Value(Number value) : _value(value) {}                         // NOLINT
  template <typename T>
  requires std::is_arithmetic_v<T> Value(T value) : _value(Number(value)) {}  // NOLINT
  Value(Data value) : _value(std::move(value)) {}                             // NOLINT
  Value(Date value) : _value(value) {}                                        // NOLINT
  Value(Array value) : _value(std::move(value)) {}                            // NOLINT
  Value(Dictionary value) : _value(std::move(value)) {}                       // NOLINT
  Value(Error value) : _value(std::move(value)) {}                            // NOLINT

  /// The value if it is of kind T (std::string in UTF-8, Number, Data, Date, Array, Dictionary or
  /// Error), else null. The pointer lives as long as this value is not assigned to.
  template <typename T>
  const T* as() const {
    return std::get_if<T>(&_value);
  }
  template <typename T>
  T* as() {
    return std::get_if<T>(&_value);
  }
  const std::string* string() const { return as<std::string>(); }
  const Number* number() const { return as<Number>(); }
  const Data* data() const { return as<Data>(); }
  const Date* date() const { return as<Date>(); }
  const Array* array() const { return as<Array>(); }
  const Dictionary* dictionary() const { return as<Dictionary>(); }
  const Error* error() const { return as<Error>(); }

  /// The name of the kind, as log messages print it: "string", "number", "data", ...
  const char* className() const;

  bool operator==(const Value& other) const;

 private:
  std::variant<std::string, Number, Data, Date, Array, Dictionary, Error> _value;
};

using Array = Value::Array;

/// The bytes of `text`, without a terminating zero.
Data dataFromString(std::string_view text);
/// The bytes of `data` as they are, whether or not they are UTF-8.
std::string_view stringFromData(const Data& data);

}  // namespace corvane

#endif
