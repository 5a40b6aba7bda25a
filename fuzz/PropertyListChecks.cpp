#include "fuzz/PropertyListChecks.h"

#include <cstdlib>

#include "foundation/PropertyList.h"
#include "foundation/PropertyListFormats.h"

namespace corvane {

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

/// What the bytes of a list just written say, as a binary list: a value that is no number equals
/// nothing, its bytes do.
Data readAgain(const Data& written) {
  auto list = readPropertyList(written);
  require(std::holds_alternative<PropertyList>(list));
  auto binary = writePropertyList(std::get<PropertyList>(list).root, PropertyListFormat::Binary);
  require(std::holds_alternative<Data>(binary));
  return std::get<Data>(std::move(binary));
}

void checkValue(const Value& value) {
  // What was read in UTF-16 can be too large in UTF-8.
  const auto binary = writePropertyList(value, PropertyListFormat::Binary);
  if (const Data* written = std::get_if<Data>(&binary)) require(readAgain(*written) == *written);
  const auto text = writePropertyList(value, PropertyListFormat::XML);
  if (const Data* written = std::get_if<Data>(&text)) {
    const auto again = writePropertyList(std::get<PropertyList>(readPropertyList(*written)).root,
                                         PropertyListFormat::XML);
    require(std::get<Data>(again) == *written);
  }
}

}  // namespace

void checkPropertyList(std::span<const std::byte> bytes) {
  const auto list = readPropertyList(bytes);
  if (const auto* read = std::get_if<PropertyList>(&list)) checkValue(read->root);
}

void checkOldStyle(std::span<const std::byte> bytes) {
  const auto value = readOldStylePropertyList(bytes);
  if (const auto* read = std::get_if<Value>(&value)) checkValue(*read);
}

}  // namespace corvane
