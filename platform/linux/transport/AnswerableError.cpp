#include "platform/linux/transport/AnswerableError.h"

#include <algorithm>
#include <string>

#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "platform/linux/transport/BusValue.h"
#include "platform/linux/transport/PeerLimits.h"

namespace corvane {

namespace {

// Of the containers of a message, within each other.
constexpr int maximumDepth = 64;
constexpr int depthOfError = 3;       // a structure, an array and an entry
constexpr int depthOfDictionary = 2;  // an array and an entry

bool isText(const std::string& text) {
  return isUTF8(text) && text.find('\0') == std::string::npos;
}

bool fits(const Value& value, int depth);

bool fits(const Dictionary& dictionary, int depth) {
  return depth >= 0 &&
         std::all_of(dictionary.begin(), dictionary.end(), [depth](const auto& entry) {
           // Each value is in a variant.
           return isText(entry.first) && fits(entry.second, depth - 1);
         });
}

bool fits(const Value& value, int depth) {
  if (const std::string* text = value.string()) return isText(*text);
  if (const Dictionary* dictionary = value.dictionary()) {
    return fits(*dictionary, depth - depthOfDictionary);
  }
  if (const Error* error = value.error()) {
    return isText(error->domain()) && fits(error->userInfo(), depth - depthOfError);
  }
  if (const Array* array = value.array()) {
    return depth >= 0 && std::ranges::all_of(*array, [depth](const Value& element) {
             return fits(element, depth - depthOfDictionary);
           });
  }
  return true;
}

std::size_t sizeOf(const Error& error) {
  std::size_t size = error.domain().size();
  for (const auto& [key, value] : error.userInfo()) {
    size += key.size();
    size += value.error() != nullptr ? sizeOf(*value.error()) : leastMessageSize(value);
  }
  return size;
}

}  // namespace

Error answerableError(const Error& error) {
  if (!isText(error.domain())) return posixError(POSIXErrorCode::IllegalByteSequence);
  // The list that the error is in is a container, too.
  if (fits(error.userInfo(), maximumDepth - depthOfError - 1) &&
      sizeOf(error) < maximumMessageSize) {
    return error;
  }
  return {error.domain(), error.code()};
}

}  // namespace corvane
