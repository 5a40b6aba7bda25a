#ifndef CORVANE_FOUNDATION_RESULT_H
#define CORVANE_FOUNDATION_RESULT_H

#include <concepts>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

#include "foundation/Error.h"

namespace corvane {

/// How this system fails.
///
/// - What can fail returns a `Result`: what it made, or why there is none. Only what succeeded is
///   looked at, and no result is dropped unseen: `if (!made) return made.error();`.
/// - The reason is an `Error`. The C library's `errno` becomes one where the call was made, with
///   the path if there is one (`foundation/POSIXError.h`); above that no number of `errno` is
///   known. Where callers have to tell apart what no error code says, the reason is a type of its
///   own: `CommunicationFailure`, after which nobody knows whether anything was done, and
///   `PolkitFailure`, of which one is no failure of the request.
/// - What may be absent, and a question without an answer, are `std::optional`: no failure, and no
///   reason that anybody asks for. `Result<std::optional<T>>` can be all three.
/// - Within one class that reads or writes something, a member keeps the first failure, and what
///   comes after it does nothing; the class hands out a `Result` in the end. So do
///   `bus/MessageReader.h` and `bus/MessageWriter.h` with the negative numbers of the bus library,
///   which are the only ones: its own callbacks want them back.
/// - Interfaces that others define stay as they are defined: `OSStatus` of the authorization
///   services, the numbers of `asl_log`, a `bool` with a pointer to an error, and
///   `std::optional<Error>` where a method gives an error or none, as operations and replies do.
///   They are made of a `Result`, or become one, in the function that has that interface.
/// - An exception is what nobody planned (no memory, no thread), what the classes that run programs
///   raise, and what ends a subcommand of launchctl. It ends where a request or a connection does.
template <typename T, typename Failure = Error>
class [[nodiscard]] Result {
  static_assert(!std::is_reference_v<T> && !std::same_as<T, Failure>);

 public:
  /// Success; of a type that becomes a T by itself as well.
  template <typename Given = T>
  requires(std::convertible_to<Given, T> && !std::same_as<std::remove_cvref_t<Given>, Result>)
      Result(Given&& value)  // NOLINT
      : _state(std::in_place_index<0>, std::forward<Given>(value)) {}
  Result(Failure failure) : _state(std::in_place_index<1>, std::move(failure)) {}  // NOLINT

  /// True for success.
  explicit operator bool() const { return _state.index() == 0; }

  /// What was made: after a success only, else an exception is raised.
  const T& operator*() const& { return std::get<0>(_state); }
  T& operator*() & { return std::get<0>(_state); }
  T&& operator*() && { return std::get<0>(std::move(_state)); }
  const T* operator->() const { return &**this; }
  T* operator->() { return &**this; }

  /// Why nothing was made: after a failure only, else an exception is raised.
  const Failure& error() const { return std::get<1>(_state); }

 private:
  std::variant<T, Failure> _state;
};

/// Of what makes nothing that it could return: success, or why not.
template <typename Failure>
class [[nodiscard]] Result<void, Failure> {
 public:
  Result() = default;
  Result(Failure failure) : _failure(std::move(failure)) {}  // NOLINT

  explicit operator bool() const { return !_failure; }
  const Failure& error() const { return _failure.value(); }

 private:
  std::optional<Failure> _failure;
};

}  // namespace corvane

#endif
