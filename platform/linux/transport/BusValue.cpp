#include "platform/linux/transport/BusValue.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

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

int readValue(sd_bus_message* message, std::optional<Value>& value, Limits& limits);

template <typename Wire, typename Held = Wire>
int readNumber(sd_bus_message* message, char type, std::optional<Value>& value) {
  Wire wire{};
  const int result = sd_bus_message_read_basic(message, type, &wire);
  if (result >= 0) value = Value(static_cast<Held>(wire));
  return result;
}

int readString(sd_bus_message* message, std::string& string, Limits& limits) {
  const char* text = nullptr;
  const int result = sd_bus_message_read_basic(message, SD_BUS_TYPE_STRING, &text);
  if (result <= 0) return result;
  const std::string_view bytes = text;
  if (!limits.admitsBytes(bytes.size() + blockOverhead)) return -E2BIG;
  string = bytes;
  return result;
}

int readDataAt(sd_bus_message* message, Data& data, Limits& limits) {
  const void* bytes = nullptr;
  std::size_t size = 0;
  const int result = sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &bytes, &size);
  if (result < 0) return result;
  if (!limits.admitsBytes(size + blockOverhead)) return -E2BIG;
  data.resize(size);
  if (size > 0) std::memcpy(data.data(), bytes, size);
  return result;
}

int readVariantAt(sd_bus_message* message, std::optional<Value>& value, Limits& limits) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, nullptr);
  if (result <= 0) return result;
  result = readValue(message, value, limits);
  if (result < 0) return result;
  return sd_bus_message_exit_container(message);
}

int readDictionaryAt(sd_bus_message* message, Dictionary& dictionary, Limits& limits) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
  if (result < 0) return result;
  while ((result = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv")) > 0) {
    std::string key;
    std::optional<Value> value;
    if (!limits.admitsBytes(spareRoom * sizeof(std::string))) return -E2BIG;
    result = readString(message, key, limits);
    if (result >= 0) result = readVariantAt(message, value, limits);
    if (result >= 0) result = sd_bus_message_exit_container(message);
    if (result < 0) return result;
    if (!value) return -EBADMSG;
    dictionary.append(std::move(key), *std::move(value));
  }
  if (result < 0) return result;
  if (dictionary.duplicateKey() != nullptr) return -EBADMSG;
  return sd_bus_message_exit_container(message);
}

int readErrorAt(sd_bus_message* message, std::optional<Error>& error, Limits& limits) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_STRUCT, "sxa{sv}");
  if (result <= 0) return result;
  std::string domain;
  std::int64_t code = 0;
  Dictionary userInfo;
  result = readString(message, domain, limits);
  if (result >= 0) result = sd_bus_message_read_basic(message, SD_BUS_TYPE_INT64, &code);
  if (result >= 0) result = readDictionaryAt(message, userInfo, limits);
  if (result >= 0) result = sd_bus_message_exit_container(message);
  if (result < 0) return result;
  error.emplace(domain, code, std::move(userInfo));
  return 1;
}

int readArrayAt(sd_bus_message* message, const char* contents, Array& array, Limits& limits) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, contents);
  if (result < 0) return result;
  while ((result = sd_bus_message_at_end(message, 0)) == 0) {
    std::optional<Value> element;
    result = readValue(message, element, limits);
    if (result < 0) return result;
    if (!element) return -EBADMSG;
    array.push_back(*std::move(element));
  }
  if (result < 0) return result;
  return sd_bus_message_exit_container(message);
}

int readValueOfAnyType(sd_bus_message* message, std::optional<Value>& value, Limits& limits) {
  char type = 0;
  const char* contents = nullptr;
  int result = sd_bus_message_peek_type(message, &type, &contents);
  if (result <= 0) return result < 0 ? result : -EBADMSG;

  switch (type) {
    case SD_BUS_TYPE_STRING: {
      std::string string;
      result = readString(message, string, limits);
      if (result > 0) value = Value(std::move(string));
      return result;
    }
    case SD_BUS_TYPE_BOOLEAN:
      return readNumber<int, bool>(message, type, value);
    case SD_BUS_TYPE_BYTE:
      return readNumber<std::uint8_t>(message, type, value);
    case SD_BUS_TYPE_INT16:
      return readNumber<std::int16_t>(message, type, value);
    case SD_BUS_TYPE_UINT16:
      return readNumber<std::uint16_t>(message, type, value);
    case SD_BUS_TYPE_INT32:
      return readNumber<std::int32_t>(message, type, value);
    case SD_BUS_TYPE_UINT32:
      return readNumber<std::uint32_t>(message, type, value);
    case SD_BUS_TYPE_INT64:
      return readNumber<std::int64_t>(message, type, value);
    case SD_BUS_TYPE_UINT64:
      return readNumber<std::uint64_t>(message, type, value);
    case SD_BUS_TYPE_DOUBLE:
      return readNumber<double>(message, type, value);
    case SD_BUS_TYPE_VARIANT:
      return readVariantAt(message, value, limits);
    case SD_BUS_TYPE_STRUCT: {
      if (std::string_view(contents) != "sxa{sv}") return -EBADMSG;
      std::optional<Error> error;
      result = readErrorAt(message, error, limits);
      if (result > 0) value = Value(*std::move(error));
      return result;
    }
    case SD_BUS_TYPE_ARRAY: {
      const std::string_view elements = contents;
      if (elements == "y") {
        Data data;
        result = readDataAt(message, data, limits);
        if (result >= 0) value = Value(std::move(data));
        return result;
      }
      if (elements == "{sv}") {
        Dictionary dictionary;
        result = readDictionaryAt(message, dictionary, limits);
        if (result >= 0) value = Value(std::move(dictionary));
        return result;
      }
      Array array;
      result = readArrayAt(message, contents, array, limits);
      if (result >= 0) value = Value(std::move(array));
      return result;
    }
    default:
      return -EBADMSG;
  }
}

// Reads the next element whatever its type is.
int readValue(sd_bus_message* message, std::optional<Value>& value, Limits& limits) {
  if (--limits.depth < 0) return -EBADMSG;
  if (!limits.admitsBytes(spareRoom * sizeof(Value))) return -E2BIG;
  // A variant counts as what it holds, which has been counted by the time that the variant ends.
  const bool isVariant = sd_bus_message_verify_type(message, SD_BUS_TYPE_VARIANT, nullptr) > 0;
  const int result = readValueOfAnyType(message, value, limits);
  ++limits.depth;
  return !isVariant && value && !limits.admits(*value) ? -E2BIG : result;
}

int appendNumber(sd_bus_message* message, const Number& number) {
  if (number.isBoolean()) return sd_bus_message_append(message, "v", "b", int{number.boolValue()});
  if (number.isDouble()) return sd_bus_message_append(message, "v", "d", number.doubleValue());
  if (number.isUnsigned()) {
    return sd_bus_message_append(message, "v", "t", number.unsignedLongLongValue());
  }
  return sd_bus_message_append(message, "v", "x", number.longLongValue());
}

int appendError(sd_bus_message* message, const Error& error) {
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_STRUCT, "sxa{sv}");
  if (result >= 0) {
    result = sd_bus_message_append(message, "sx", error.domain().c_str(), error.code());
  }
  if (result >= 0) result = appendDictionary(message, error.userInfo());
  return result < 0 ? result : sd_bus_message_close_container(message);
}

// An array of strings travels as one, any other as an array of variants.
int appendArray(sd_bus_message* message, const Array& array) {
  const bool isStrings = std::all_of(array.begin(), array.end(),
                                     [](const Value& value) { return value.string() != nullptr; });
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, isStrings ? "as" : "av");
  if (result >= 0) {
    result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, isStrings ? "s" : "v");
  }
  for (auto element = array.begin(); result >= 0 && element != array.end(); ++element) {
    result = isStrings ? sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING,
                                                     element->string()->c_str())
                       : appendVariant(message, *element);
  }
  if (result >= 0) result = sd_bus_message_close_container(message);
  return result < 0 ? result : sd_bus_message_close_container(message);
}

int appendInVariant(sd_bus_message* message, const char* contents, auto&& append) {
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, contents);
  if (result >= 0) result = append();
  return result < 0 ? result : sd_bus_message_close_container(message);
}

}  // namespace

int readArray(sd_bus_message* message, Array& array, const TakeMemory& takeMemory) {
  Limits limits(takeMemory);
  return readArrayAt(message, "v", array, limits);
}

int readDictionary(sd_bus_message* message, Dictionary& dictionary) {
  Limits limits;
  return readDictionaryAt(message, dictionary, limits);
}

int readData(sd_bus_message* message, Data& data, const TakeMemory& takeMemory) {
  Limits limits(takeMemory);
  return readDataAt(message, data, limits);
}

int readOptionalError(sd_bus_message* message, std::optional<Error>& error) {
  int result = sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "(sxa{sv})");
  if (result < 0) return result;
  Limits limits;
  result = readErrorAt(message, error, limits);
  if (result > 0) result = sd_bus_message_at_end(message, 0) > 0 ? 1 : -EBADMSG;
  return result < 0 ? result : sd_bus_message_exit_container(message);
}

std::size_t leastMessageSize(const Value& value) {
  // An empty text in a list: four bytes of length and a zero byte. No other value takes less.
  constexpr std::size_t leastSize = 5;
  if (const std::string* string = value.string()) return leastSize + string->size();
  if (const Data* data = value.data()) return leastSize + data->size();
  std::size_t size = leastSize;
  if (const Array* array = value.array()) {
    for (const Value& element : *array) size += leastMessageSize(element);
  } else if (const Dictionary* dictionary = value.dictionary()) {
    for (const auto& [key, element] : *dictionary) size += key.size() + leastMessageSize(element);
  }
  return size;
}

int appendVariant(sd_bus_message* message, const Value& value) {
  if (const std::string* string = value.string()) {
    return sd_bus_message_append(message, "v", "s", string->c_str());
  }
  if (const Number* number = value.number()) return appendNumber(message, *number);
  if (const Data* data = value.data()) {
    return appendInVariant(message, "ay", [&] {
      return sd_bus_message_append_array(message, SD_BUS_TYPE_BYTE, data->data(), data->size());
    });
  }
  if (const Date* date = value.date()) {
    return sd_bus_message_append(message, "v", "d", date->secondsSinceReference);
  }
  if (const Array* array = value.array()) return appendArray(message, *array);
  if (const Dictionary* dictionary = value.dictionary()) {
    return appendInVariant(message, "a{sv}",
                           [&] { return appendDictionary(message, *dictionary); });
  }
  return appendInVariant(message, "(sxa{sv})",
                         [&] { return appendError(message, *value.error()); });
}

int appendDictionary(sd_bus_message* message, const Dictionary& dictionary) {
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
  for (const auto& [key, value] : dictionary) {
    if (result >= 0) {
      result = sd_bus_message_open_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv");
    }
    if (result >= 0) {
      result = sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, key.c_str());
    }
    if (result >= 0) result = appendVariant(message, value);
    if (result >= 0) result = sd_bus_message_close_container(message);
  }
  return result < 0 ? result : sd_bus_message_close_container(message);
}

int appendOptionalError(sd_bus_message* message, const std::optional<Error>& error) {
  int result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "(sxa{sv})");
  if (result >= 0 && error) result = appendError(message, *error);
  return result < 0 ? result : sd_bus_message_close_container(message);
}

}  // namespace corvane
