#include "operations/ZELPrivilegedOperation.h"

#include <array>
#include <cctype>

#include "foundation/Unicode.h"
#include "platform/StandardLog.h"

namespace corvane {

namespace {

std::optional<Value> ruleForPolicy(std::uint64_t policy) {
  switch (policy) {
    case 0:
      return Value("allow");
    case 1:
      return Value(Dictionary{{"rule", "default"}});
    case 2:
      return Value("authenticate-admin");
    default:
      return std::nullopt;
  }
}

/// How many UTF-16 units the text has; none if it is not UTF-8 and so no text.
std::size_t lengthOf(std::string_view text) {
  const std::optional<std::u16string> units = utf16FromString(text);
  return units ? units->size() : 0;
}

bool isUsablePolicy(const Value& policy) {
  if (const std::string* rule = policy.string()) return lengthOf(*rule) > 0;
  const Dictionary* definition = policy.dictionary();
  return definition != nullptr && !definition->empty();
}

}  // namespace

std::optional<ZELPrivilegedOperation> ZELPrivilegedOperation::initWithStaticDescription(
    _ZELPrivilegedOperationDescription description) {
  if (description.identifier == nullptr || description.userPresentation == nullptr) {
    return std::nullopt;
  }
  std::optional<Value> policy = ruleForPolicy(description.authenticationPolicy);
  if (!policy) return std::nullopt;
  std::optional<std::string> argumentTypes;
  if (description.argumentTypes != nullptr && isUTF8(description.argumentTypes)) {
    argumentTypes = description.argumentTypes;
  }

  auto operation = initWithIdentifier(description.identifier, *std::move(policy),
                                      description.progressCapability != 0,
                                      description.outputCapability != 0, description.argumentCount,
                                      std::move(argumentTypes), description.userPresentation);
  if (!operation) {
    // "(null)" stands for the class name of an object that was not made.
    NSLog(
        "(null): implementation error - the static description with code %llu contains "
        "inconsistent data and was not accepted.\n",
        static_cast<unsigned long long>(description.code));
  }
  return operation;
}

std::optional<ZELPrivilegedOperation> ZELPrivilegedOperation::initWithIdentifier(
    std::string identifier, Value authenticationPolicy, bool progressCapability,
    bool outputCapability, std::uint64_t argumentCount, std::optional<std::string> argumentTypes,
    std::string userPresentation) {
  if (lengthOf(identifier) == 0) return std::nullopt;
  if (!isUsablePolicy(authenticationPolicy)) return std::nullopt;
  if (progressCapability && outputCapability) return std::nullopt;
  if (argumentCount == ZELVariableArgumentCount) {
    if (argumentTypes) return std::nullopt;
  } else if (lengthOf(argumentTypes.value_or("")) != argumentCount) {
    return std::nullopt;
  }
  if (lengthOf(userPresentation) == 0) return std::nullopt;
  return ZELPrivilegedOperation(std::move(identifier), std::move(authenticationPolicy),
                                progressCapability, outputCapability, argumentCount,
                                std::move(argumentTypes), std::move(userPresentation));
}

ZELPrivilegedOperation::ZELPrivilegedOperation(std::string identifier, Value authenticationPolicy,
                                               bool progressCapability, bool outputCapability,
                                               std::uint64_t argumentCount,
                                               std::optional<std::string> argumentTypes,
                                               std::string userPresentation)
    : _identifier(std::move(identifier)),
      _authenticationPolicy(std::move(authenticationPolicy)),
      _progressCapability(progressCapability),
      _outputCapability(outputCapability),
      _argumentCount(argumentCount),
      _argumentTypeCodes(std::move(argumentTypes)),
      _presentationString(std::move(userPresentation)) {}

std::optional<std::string>
ZELPrivilegedOperation::authenticationRightNameForImplementationIdentifier(
    const std::optional<std::string>& implementationCode) const {
  if (!implementationCode || implementationCode->empty()) return std::nullopt;
  return "com.corvane." + *implementationCode + "." + _identifier;
}

std::string ZELPrivilegedOperation::operationIdentifierForExecutionSelector() const {
  std::string name;
  bool isFirstOfWord = true;
  for (const char character : _identifier) {
    const auto letter = static_cast<unsigned char>(character);
    if (character == '-') {
      isFirstOfWord = true;
    } else if (std::isalpha(letter)) {
      name += static_cast<char>(isFirstOfWord ? std::toupper(letter) : std::tolower(letter));
      isFirstOfWord = false;
    }
  }
  return name;
}

}  // namespace corvane
