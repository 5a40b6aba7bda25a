#ifndef CORVANE_FOUNDATION_ERROR_H
#define CORVANE_FOUNDATION_ERROR_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace corvane {

class Dictionary;

/// The domain of errors whose code is a POSIX error number.
inline constexpr std::string_view NSPOSIXErrorDomain = "NSPOSIXErrorDomain";
/// The domain of errors whose code is a status of an operating system service.
inline constexpr std::string_view NSOSStatusErrorDomain = "NSOSStatusErrorDomain";

/// The standard keys of an error's user information, by the texts under which they travel.
inline constexpr const char* NSLocalizedDescriptionKey = "NSLocalizedDescription";
inline constexpr const char* NSLocalizedRecoverySuggestionErrorKey =
    "NSLocalizedRecoverySuggestion";
inline constexpr const char* NSFilePathErrorKey = "NSFilePath";
inline constexpr const char* NSUnderlyingErrorKey = "NSUnderlyingError";

/// A failure. Immutable, cheap to copy, safe to share between threads. The absence of an error
/// (an empty `std::optional<Error>`) is success.
class Error {
 public:
  Error(std::string_view domain, std::int64_t code);
  Error(std::string_view domain, std::int64_t code, Dictionary userInfo);

  const std::string& domain() const;
  std::int64_t code() const;
  /// Empty when the error carries nothing but its domain and code.
  const Dictionary& userInfo() const;

  /// The text for a person: the description in the user information, else what the code means.
  std::string localizedDescription() const;

  /// True if domain and code are these.
  bool is(std::string_view domain, std::int64_t code) const;

  bool operator==(const Error& other) const;

 private:
  struct State;
  std::shared_ptr<const State> _state;
};

}  // namespace corvane

#endif
