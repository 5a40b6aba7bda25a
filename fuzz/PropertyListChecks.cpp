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
  const Result<PropertyList> list = readPropertyList(written);
  require(bool(list));
  Result<Data> binary = writePropertyList(list->root, PropertyListFormat::Binary);
  require(bool(binary));
  return *std::move(binary);
}

void checkValue(const Value& value) {
  // What was read in UTF-16 can be too large in UTF-8.
  const Result<Data> binary = writePropertyList(value, PropertyListFormat::Binary);
  if (binary) require(readAgain(*binary) == *binary);
  const Result<Data> text = writePropertyList(value, PropertyListFormat::XML);
  if (text) {
    const Result<Data> again =
        writePropertyList(readPropertyList(*text)->root, PropertyListFormat::XML);
    require(*again == *text);
  }
}

}  // namespace

void checkPropertyList(std::span<const std::byte> bytes) {
  const Result<PropertyList> list = readPropertyList(bytes);
  if (list) checkValue(list->root);
}

void checkOldStyle(std::span<const std::byte> bytes) {
  const Result<Value> value = readOldStylePropertyList(bytes);
  if (value) checkValue(*value);
}

}  // namespace corvane
