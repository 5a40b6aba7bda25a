#ifndef CORVANE_OPERATIONS_OPERATIONMETHOD_H
#define CORVANE_OPERATIONS_OPERATIONMETHOD_H

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "foundation/Error.h"
#include "foundation/POSIXError.h"
#include "foundation/Value.h"
#include "operations/OperationRun.h"
#include "operations/ZELPrivilegedOperation.h"

namespace corvane {

/// How a parameter of a method is written in the row of its operation, and taken out of the list.
template <typename T>
struct OperationArgument;

template <>
struct OperationArgument<std::string> {
  static constexpr char letter = 'S';
  static std::optional<std::string> from(const Value& value) {
    return value.string() ? std::optional(*value.string()) : std::nullopt;
  }
};

template <>
struct OperationArgument<Data> {
  static constexpr char letter = 'D';
  static std::optional<Data> from(const Value& value) {
    return value.data() ? std::optional(*value.data()) : std::nullopt;
  }
};

template <>
struct OperationArgument<Number> {
  static constexpr char letter = 'N';
  static std::optional<Number> from(const Value& value) {
    return value.number() ? std::optional(*value.number()) : std::nullopt;
  }
};

template <>
struct OperationArgument<double> {
  static constexpr char letter = 'N';
  static std::optional<double> from(const Value& value) {
    return value.number() ? std::optional(value.number()->doubleValue()) : std::nullopt;
  }
};

/// No number is cut to fit: one that is not whole, or beyond 64 bits, is none of these.
template <>
struct OperationArgument<std::int64_t> {
  static constexpr char letter = 'N';
  static std::optional<std::int64_t> from(const Value& value) {
    const Number* number = value.number();
    if (number == nullptr || number->isDouble() || number->isUnsigned()) return std::nullopt;
    return number->longLongValue();
  }
};

template <>
struct OperationArgument<bool> {
  static constexpr char letter = 'N';
  static std::optional<bool> from(const Value& value) {
    return value.number() ? std::optional(value.number()->boolValue()) : std::nullopt;
  }
};

/// The function that carries out an operation. Its parameters say what the operation takes, so that
/// a row and its method cannot contradict each other:
///
///     std::optional<Error> setName(const OperationRun& run, const std::string& name);
///
/// - first the run: `OperationRun`, or `ProgressRun` for an operation that reports progress, or
///   `OutputRun` for one with live output;
/// - then a parameter for each argument: `std::string` (S), `Data` (D), or a number (N) as
///   `Number`, `double`, `std::int64_t` or `bool`; by value or constant reference;
/// - or `const std::vector<std::string>&` alone, for any number of strings.
///
/// The result is nothing, or why it failed. A request whose arguments are not of these kinds is
/// answered with EINVAL (22) without a call; so is one whose number does not fit.
class OperationMethod {
 public:
  using Result = std::optional<Error>;

  template <std::derived_from<OperationRun> Run, typename... Parameters>
  OperationMethod(Result (*function)(const Run& run, Parameters...))  // NOLINT
      : _reportsProgress(std::same_as<Run, ProgressRun>),
        _hasLiveOutput(std::same_as<Run, OutputRun>),
        _argumentCount(sizeof...(Parameters)) {
    if constexpr (sizeof...(Parameters) > 0) {
      _argumentTypes = {OperationArgument<std::decay_t<Parameters>>::letter...};
    }
    if (function == nullptr) return;
    _call = [function](const Array& arguments, const FeedbackConnection& connection,
                       const std::stop_token& stop) {
      return call(function, Run(arguments, connection, stop),
                  std::index_sequence_for<Parameters...>());
    };
  }

  template <std::derived_from<OperationRun> Run>
  OperationMethod(Result (*function)(const Run& run, const std::vector<std::string>&))  // NOLINT
      : _reportsProgress(std::same_as<Run, ProgressRun>),
        _hasLiveOutput(std::same_as<Run, OutputRun>),
        _argumentCount(ZELVariableArgumentCount) {
    if (function == nullptr) return;
    _call = [function](const Array& arguments, const FeedbackConnection& connection,
                       const std::stop_token& stop) -> Result {
      std::vector<std::string> strings;
      strings.reserve(arguments.size());
      for (const Value& argument : arguments) {
        if (argument.string() == nullptr) return posixError(POSIXErrorCode::Invalid);
        strings.push_back(*argument.string());
      }
      return function(Run(arguments, connection, stop), strings);
    };
  }

  /// False if it was made of no function, and cannot be called.
  explicit operator bool() const { return static_cast<bool>(_call); }

  bool reportsProgress() const { return _reportsProgress; }
  bool hasLiveOutput() const { return _hasLiveOutput; }
  std::uint64_t argumentCount() const { return _argumentCount; }
  /// A letter for each argument; nothing if there is none, or any number.
  const std::optional<std::string>& argumentTypes() const { return _argumentTypes; }

  /// On the calling thread. Raises what the function raises.
  Result operator()(const Array& arguments, const FeedbackConnection& connection,
                    const std::stop_token& stop) const {
    return _call(arguments, connection, stop);
  }

 private:
  template <typename Run, typename... Parameters, std::size_t... Indices>
  static Result call(Result (*function)(const Run& run, Parameters...), const Run& run,
                     std::index_sequence<Indices...> /*indices*/) {
    const Array& list = run.arguments();
    if (list.size() != sizeof...(Parameters)) return posixError(POSIXErrorCode::Invalid);
    [[maybe_unused]] const auto values =
        std::make_tuple(OperationArgument<std::decay_t<Parameters>>::from(list[Indices])...);
    if (!(true && ... && std::get<Indices>(values).has_value())) {
      return posixError(POSIXErrorCode::Invalid);
    }
    return function(run, *std::get<Indices>(values)...);
  }

  bool _reportsProgress;
  bool _hasLiveOutput;
  std::uint64_t _argumentCount;
  std::optional<std::string> _argumentTypes;
  std::function<Result(const Array&, const FeedbackConnection&, const std::stop_token&)> _call;
};

}  // namespace corvane

#endif
