#include "operations/TableOperationSet.h"

#include <utility>

#include "foundation/Unicode.h"
#include "operations/OperationCodes.h"

namespace corvane {

namespace {

// From here on codes are those of every helper, and of what is no operation.
constexpr std::uint64_t firstReservedCode = 9000;
// Of the names of the files that the right is in, which have more before and behind it.
constexpr std::size_t longestIdentifier = 64;

bool isLowerCase(char character) {
  return character >= 'a' && character <= 'z';
}

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

// Words of lower-case letters and digits, each beginning with a letter, joined by "-".
bool isIdentifier(std::string_view text) {
  if (text.size() > longestIdentifier) return false;
  char before = '-';
  for (const char character : text) {
    const bool isFirst = before == '-';
    if (!isLowerCase(character) && (isFirst || (!isDigit(character) && character != '-'))) {
      return false;
    }
    before = character;
  }
  return before != '-';
}

Selector selectorOf(const ZELPrivilegedOperation& operation) {
  const bool hasFeedback =
      operation.isSupportingProgressFeedback() || operation.isSupportingLiveOutput();
  return "performOperation" + operation.operationIdentifierForExecutionSelector() +
         "WithArguments:" + (hasFeedback ? "feedbackConnection:" : "");
}

}  // namespace

TableOperationSet::TableOperationSet(const HelperNames& names,
                                     const std::vector<OperationRow>& rows)
    : _names(names) {
  addHousekeeping(codeNop, "nop", OperationPolicy::Allow, 0, nullptr,
                  "contact its privileged component");
  addHousekeeping(codeDiscardAuth, "discard-auth", OperationPolicy::Allow, 0, nullptr,
                  "be asked anew for future privileged operations");
  addHousekeeping(codeDeleteFiles, "delete-files", OperationPolicy::DefaultRule,
                  ZELVariableArgumentCount, nullptr, "delete files of its privileged component");
  addHousekeeping(codePerformUninstall, "perform-uninstall", OperationPolicy::DefaultRule, 3, "NSS",
                  "remove its privileged component");
  for (const OperationRow& row : rows) add(row);
}

void TableOperationSet::addHousekeeping(std::uint64_t code, const char* identifier,
                                        OperationPolicy policy, std::uint64_t argumentCount,
                                        const char* argumentTypes, const char* purpose) {
  const std::string sentence = std::string(_names.vendor) + " would like to " + purpose + ".";
  auto operation = ZELPrivilegedOperation::initWithStaticDescription(
      {code, identifier, static_cast<std::uint64_t>(policy), 0, 0, argumentCount, argumentTypes,
       sentence.c_str()});
  _operations.emplace(identifier, *std::move(operation));
  _identifiers.emplace(code, identifier);
}

std::string TableOperationSet::faultOf(const OperationRow& row) const {
  if (!isIdentifier(row.identifier)) {
    return "its identifier is not made of lower-case words joined by '-', of at most " +
           std::to_string(longestIdentifier) + " characters";
  }
  if (row.code >= firstReservedCode) {
    return "its code " + std::to_string(row.code) + " is not below " +
           std::to_string(firstReservedCode);
  }
  if (_operations.contains(row.identifier)) return "there is another one of that name";
  if (const std::string* other = identifierForCode(row.code)) {
    return "its code " + std::to_string(row.code) + " is that of '" + *other + "'";
  }
  if (row.sentence.empty()) return "it has no sentence for the dialog";
  if (!isUTF8(row.sentence)) return "its sentence is not UTF-8";
  return {};
}

void TableOperationSet::add(const OperationRow& row) {
  std::string fault = faultOf(row);
  const OperationMethod& method = row.method;
  if (fault.empty()) {
    auto operation = ZELPrivilegedOperation::initWithStaticDescription(
        {row.code, row.identifier.c_str(), static_cast<std::uint64_t>(row.policy),
         static_cast<std::int8_t>(method.reportsProgress()),
         static_cast<std::int8_t>(method.hasLiveOutput()), method.argumentCount(),
         method.argumentTypes() ? method.argumentTypes()->c_str() : nullptr, row.sentence.c_str()});
    if (!operation) {
      fault = "its policy is none";
    } else if (!_methods.emplace(selectorOf(*operation), method).second) {
      fault = "without digits it is named as another one";
    } else {
      _operations.emplace(row.identifier, *std::move(operation));
      _identifiers.emplace(row.code, row.identifier);
    }
  }
  if (!fault.empty()) _faults.push_back("the operation '" + row.identifier + "': " + fault);
}

bool TableOperationSet::respondsToSelector(std::string_view selector) const {
  return _methods.contains(selector);
}

std::optional<Error> TableOperationSet::performSelector(
    std::string_view selector, const Array& arguments, const FeedbackConnection& feedbackConnection,
    const std::stop_token& stop) {
  const auto method = _methods.find(selector);
  if (method == _methods.end()) {
    return ZELPrivilegedOperationSet::performSelector(selector, arguments, feedbackConnection,
                                                      stop);
  }
  return method->second(arguments, feedbackConnection, stop);
}

}  // namespace corvane
