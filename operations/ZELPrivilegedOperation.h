#ifndef CORVANE_OPERATIONS_ZELPRIVILEGEDOPERATION_H
#define CORVANE_OPERATIONS_ZELPRIVILEGEDOPERATION_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "foundation/Value.h"

namespace corvane {

/// Any number of arguments, where it stands as an argument count, and no such operation, where it
/// stands as an operation code: the largest signed 64-bit integer.
inline constexpr std::uint64_t ZELVariableArgumentCount = 0x7fffffffffffffff;
inline constexpr std::uint64_t ZELNoSuchOperation = 0x7fffffffffffffff;
/// The code of the record that closes a table of descriptions.
inline constexpr std::uint64_t ZELEndOfDescriptions = 9999;

/// One row of a compiled-in table of operations.
struct _ZELPrivilegedOperationDescription {  // NOLINT(bugprone-reserved-identifier)
  std::uint64_t code;
  const char* identifier;              ///< UTF-8, lower-case words joined by "-"; not null
  std::uint64_t authenticationPolicy;  ///< 0 allow, 1 the default rule, 2 authenticate-admin
  std::int8_t progressCapability;      ///< 1 if the operation reports progress
  std::int8_t outputCapability;        ///< 1 if the operation reports live output
  std::uint64_t argumentCount;         ///< exact, or ZELVariableArgumentCount
  const char* argumentTypes;           ///< a letter (S, N, D) an argument; null with no fixed list
  const char* userPresentation;        ///< UTF-8, the sentence of the dialog; not null
};

/// The description of one privileged operation. Immutable.
class ZELPrivilegedOperation {
 public:
  /// Nothing for a record that breaks a rule. A record whose data contradict each other is also
  /// reported to the standard log.
  static std::optional<ZELPrivilegedOperation> initWithStaticDescription(
      _ZELPrivilegedOperationDescription description);

  /// Nothing unless identifier and presentation are non-empty, the policy is a non-empty string or
  /// dictionary, progress and output are not both set, and there is one type letter per argument
  /// (none at all for a variable count).
  static std::optional<ZELPrivilegedOperation> initWithIdentifier(
      std::string identifier, Value authenticationPolicy, bool progressCapability,
      bool outputCapability, std::uint64_t argumentCount, std::optional<std::string> argumentTypes,
      std::string userPresentation);

  const std::string& identifier() const { return _identifier; }
  /// The rule of the operation's right: the name of a rule, or a dictionary that names one.
  const Value& authenticationPolicy() const { return _authenticationPolicy; }
  bool isSupportingProgressFeedback() const { return _progressCapability; }
  bool isSupportingLiveOutput() const { return _outputCapability; }
  std::uint64_t argumentCount() const { return _argumentCount; }
  const std::optional<std::string>& argumentTypeCodes() const { return _argumentTypeCodes; }
  const std::string& presentationString() const { return _presentationString; }

  /// "com.corvane.<code>.<identifier>"; nothing for an absent or empty implementation code.
  std::optional<std::string> authenticationRightNameForImplementationIdentifier(
      const std::optional<std::string>& implementationCode) const;

  /// The identifier as it stands in method names: "delete-fileobjects" gives "DeleteFileobjects".
  std::string operationIdentifierForExecutionSelector() const;

 private:
  ZELPrivilegedOperation(std::string identifier, Value authenticationPolicy,
                         bool progressCapability, bool outputCapability,
                         std::uint64_t argumentCount, std::optional<std::string> argumentTypes,
                         std::string userPresentation);

  std::string _identifier;
  Value _authenticationPolicy;
  bool _progressCapability;
  bool _outputCapability;
  std::uint64_t _argumentCount;
  std::optional<std::string> _argumentTypeCodes;
  std::string _presentationString;
};

}  // namespace corvane

#endif
