#include "platform/linux/transport/BusValue.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace corvane {

namespace {

constexpr int maximumDepth = 32;
// A value takes some dozens of bytes in memory beside its content. With long contents that matters
// little, but a message full of tiny values would take many times its size: of values with less
// content than this, a message may hold only so many.
constexpr std::size_t smallContentSize = 8;
constexpr int maximumSmallValues = 16384;
// What memory is reckoned at: a list that grows has room for twice what is in it, and the allocator
// needs some bytes for each block.
constexpr std::size_t spareRoom = 2;
constexpr std::size_t blockOverhead = 32;
// An empty text in a list takes four bytes of length and a zero byte. No other value takes less.
constexpr std::size_t leastSize = 5;
// Memory is asked for in portions.
constexpr std::size_t leastPortion = 4096;

// What the rest of a message may still hold.
struct Limits {
  explicit Limits(const TakeMemory& take = {}) : takeMemory(take) {}

  TakeMemory takeMemory;
  std::size_t taken = 0;
  int depth = maximumDepth;
  int smallValues = maximumSmallValues;

  bool admits(const Value& value) {
    const std::string* string = value.string();
    const Data* data = value.data();
    const bool isSmall = (string == nullptr || string->size() < smallContentSize) &&
                         (data == nullptr || data->size() < smallContentSize);
    return !isSmall || --smallValues >= 0;
  }

  bool admitsBytes(std::size_t size) {
    if (!takeMemory) return true;
    if (size > taken) {
      const std::size_t portion = std::max(size - taken, leastPortion);
      if (!takeMemory(portion)) return false;
      taken += portion;
    }
    taken -= size;
    return true;
  }
};

std::optional<Value> readValue(MessageReader& reader, Limits& limits);

std::string readText(MessageReader& reader, Limits& limits) {
  const std::string_view text = reader.text();
  if (!limits.admitsBytes(text.size() + blockOverhead)) {
    reader.fail(-E2BIG);
    return {};
  }
  return std::string(text);
}

Data readDataAt(MessageReader& reader, Limits& limits) {
  const std::span<const std::byte> bytes = reader.bytes();
  if (!limits.admitsBytes(bytes.size() + blockOverhead)) {
    reader.fail(-E2BIG);
    return {};
  }
  return {bytes.begin(), bytes.end()};
}

std::optional<Value> readVariantAt(MessageReader& reader, Limits& limits) {
  std::optional<Value> value;
  reader.container(SD_BUS_TYPE_VARIANT, nullptr, [&] { value = readValue(reader, limits); });
  return value;
}

Dictionary readDictionaryAt(MessageReader& reader, Limits& limits) {
  Dictionary dictionary;
  reader.array("{sv}", [&] {
    reader.container(SD_BUS_TYPE_DICT_ENTRY, "sv", [&] {
      if (!limits.admitsBytes(spareRoom * sizeof(std::string))) return reader.fail(-E2BIG);
      std::string key = readText(reader, limits);
      std::optional<Value> value = readVariantAt(reader, limits);
      if (value) dictionary.append(std::move(key), *std::move(value));
    });
  });
  if (dictionary.duplicateKey() != nullptr) reader.fail(-EBADMSG);
  return dictionary;
}

Error readErrorAt(MessageReader& reader, Limits& limits) {
  std::string domain;
  std::int64_t code = 0;
  Dictionary userInfo;
  reader.container(SD_BUS_TYPE_STRUCT, "sxa{sv}", [&] {
    domain = readText(reader, limits);
    code = reader.basic<std::int64_t>(SD_BUS_TYPE_INT64);
    userInfo = readDictionaryAt(reader, limits);
  });
  return {domain, code, std::move(userInfo)};
}

Array readArrayAt(MessageReader& reader, const char* contents, Limits& limits) {
  Array array;
  reader.array(contents, [&] {
    if (std::optional<Value> value = readValue(reader, limits)) array.push_back(*std::move(value));
  });
  return array;
}

Value readArrayOfAnyType(MessageReader& reader, const char* contents, Limits& limits) {
  if (std::string_view(contents) == "y") return readDataAt(reader, limits);
  if (std::string_view(contents) == "{sv}") return readDictionaryAt(reader, limits);
  return readArrayAt(reader, contents, limits);
}

std::optional<Value> readValueOfAnyType(MessageReader& reader, Limits& limits) {
  const auto [type, contents] = reader.nextType();
  switch (type) {
    case SD_BUS_TYPE_STRING:
      return readText(reader, limits);
    case SD_BUS_TYPE_BOOLEAN:
      return reader.boolean();
    case SD_BUS_TYPE_BYTE:
      return reader.basic<std::uint8_t>(type);
    case SD_BUS_TYPE_INT16:
      return reader.basic<std::int16_t>(type);
    case SD_BUS_TYPE_UINT16:
      return reader.basic<std::uint16_t>(type);
    case SD_BUS_TYPE_INT32:
      return reader.basic<std::int32_t>(type);
    case SD_BUS_TYPE_UINT32:
      return reader.basic<std::uint32_t>(type);
    case SD_BUS_TYPE_INT64:
      return reader.basic<std::int64_t>(type);
    case SD_BUS_TYPE_UINT64:
      return reader.basic<std::uint64_t>(type);
    case SD_BUS_TYPE_DOUBLE:
      return reader.basic<double>(type);
    case SD_BUS_TYPE_VARIANT:
      return readVariantAt(reader, limits);
    case SD_BUS_TYPE_STRUCT:
      if (std::string_view(contents) != "sxa{sv}") break;
      return readErrorAt(reader, limits);
    case SD_BUS_TYPE_ARRAY:
      return readArrayOfAnyType(reader, contents, limits);
    default:
      break;
  }
  reader.fail(-EBADMSG);
  return std::nullopt;
}

// Reads the next element whatever its type is; nothing after a failure, which may be an earlier
// one.
std::optional<Value> readValue(MessageReader& reader, Limits& limits) {
  if (--limits.depth < 0) reader.fail(-EBADMSG);
  if (!limits.admitsBytes(spareRoom * sizeof(Value))) reader.fail(-E2BIG);
  // A variant counts as what it holds, which has been counted by the time that the variant ends.
  const bool isVariant = reader.nextType().type == SD_BUS_TYPE_VARIANT;
  std::optional<Value> value = readValueOfAnyType(reader, limits);
  ++limits.depth;
  if (!isVariant && value && !limits.admits(*value)) reader.fail(-E2BIG);
  return reader.result() < 0 ? std::nullopt : std::move(value);
}

void appendNumber(MessageWriter& writer, const Number& number) {
  if (number.isBoolean()) return writer.append("v", "b", int{number.boolValue()});
  if (number.isDouble()) return writer.append("v", "d", number.doubleValue());
  if (number.isUnsigned()) return writer.append("v", "t", number.unsignedLongLongValue());
  writer.append("v", "x", number.longLongValue());
}

void appendError(MessageWriter& writer, const Error& error) {
  writer.appendContainer(SD_BUS_TYPE_STRUCT, "sxa{sv}", [&] {
    writer.append("sx", error.domain().c_str(), error.code());
    appendDictionary(writer, error.userInfo());
  });
}

// An array of strings travels as one, any other as an array of variants.
void appendArray(MessageWriter& writer, const Array& array) {
  const bool isStrings = std::all_of(array.begin(), array.end(),
                                     [](const Value& value) { return value.string() != nullptr; });
  writer.appendContainer(SD_BUS_TYPE_VARIANT, isStrings ? "as" : "av", [&] {
    writer.appendContainer(SD_BUS_TYPE_ARRAY, isStrings ? "s" : "v", [&] {
      for (const Value& element : array) {
        if (isStrings) {
          writer.append("s", element.string()->c_str());
        } else {
          appendVariant(writer, element);
        }
      }
    });
  });
}

}  // namespace

Array readArray(MessageReader& reader, const TakeMemory& takeMemory) {
  Limits limits(takeMemory);
  return readArrayAt(reader, "v", limits);
}

Dictionary readDictionary(MessageReader& reader) {
  Limits limits;
  return readDictionaryAt(reader, limits);
}

Data readData(MessageReader& reader, const TakeMemory& takeMemory) {
  Limits limits(takeMemory);
  return readDataAt(reader, limits);
}

std::optional<Error> readOptionalError(MessageReader& reader) {
  std::optional<Error> error;
  reader.optional("(sxa{sv})", [&] {
    Limits limits;
    error = readErrorAt(reader, limits);
  });
  return error;
}

std::size_t leastMessageSize(const std::string& text) {
  return leastSize + text.size();
}

std::size_t leastMessageSize(const Value& value) {
  if (const std::string* string = value.string()) return leastMessageSize(*string);
  if (const Data* data = value.data()) return leastSize + data->size();
  std::size_t size = leastSize;
  if (const Array* array = value.array()) {
    for (const Value& element : *array) size += leastMessageSize(element);
  } else if (const Dictionary* dictionary = value.dictionary()) {
    for (const auto& [key, element] : *dictionary) size += key.size() + leastMessageSize(element);
  }
  return size;
}

void appendVariant(MessageWriter& writer, const Value& value) {
  const auto inVariant = [&writer](const char* contents, auto&& append) {
    writer.appendContainer(SD_BUS_TYPE_VARIANT, contents, append);
  };
  if (const std::string* string = value.string()) {
    writer.append("v", "s", string->c_str());
  } else if (const Number* number = value.number()) {
    appendNumber(writer, *number);
  } else if (const Data* data = value.data()) {
    inVariant("ay", [&] { writer.appendBytes(*data); });
  } else if (const Date* date = value.date()) {
    writer.append("v", "d", date->secondsSinceReference);
  } else if (const Array* array = value.array()) {
    appendArray(writer, *array);
  } else if (const Dictionary* dictionary = value.dictionary()) {
    inVariant("a{sv}", [&] { appendDictionary(writer, *dictionary); });
  } else {
    inVariant("(sxa{sv})", [&] { appendError(writer, *value.error()); });
  }
}

void appendDictionary(MessageWriter& writer, const Dictionary& dictionary) {
  writer.appendContainer(SD_BUS_TYPE_ARRAY, "{sv}", [&] {
    for (const Dictionary::Entry& entry : dictionary) {
      writer.appendContainer(SD_BUS_TYPE_DICT_ENTRY, "sv", [&] {
        writer.append("s", entry.first.c_str());
        appendVariant(writer, entry.second);
      });
    }
  });
}

void appendOptionalError(MessageWriter& writer, const std::optional<Error>& error) {
  writer.appendContainer(SD_BUS_TYPE_ARRAY, "(sxa{sv})", [&] {
    if (error) appendError(writer, *error);
  });
}

}  // namespace corvane
