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
constexpr std::size_t longestCode = 24;

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

bool isCode(std::string_view text) {
  return text.size() <= longestCode && isIdentifier(text) &&
         text.find('-') == std::string_view::npos;
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
  checkNames();
  if (_faults.empty()) addWhatEveryHelperHas();
  for (const OperationRow& row : rows) add(row);
}

void TableOperationSet::addWhatEveryHelperHas() {
  addHousekeeping(codeNop, "nop", OperationPolicy::Allow, 0, nullptr,
                  "contact its privileged component");
  addHousekeeping(codeDiscardAuth, "discard-auth", OperationPolicy::Allow, 0, nullptr,
                  "be asked anew for future privileged operations");
  addHousekeeping(codeDeleteFiles, "delete-files", OperationPolicy::DefaultRule,
                  ZELVariableArgumentCount, nullptr, "delete files of its privileged component");
  addHousekeeping(codePerformUninstall, "perform-uninstall", OperationPolicy::DefaultRule, 3, "NSS",
                  "remove its privileged component");
}

// The build looks at them too; but who links a set by other means writes them himself.
void TableOperationSet::checkNames() {
  if (!isCode(_names.code)) {
    _faults.push_back("the code of the helper, '" + std::string(_names.code) +
                      "', is not made of lower-case letters and digits, at most " +
                      std::to_string(longestCode) + ", beginning with a letter");
  }
  if (std::string_view(_names.vendor).empty() || !isUTF8(_names.vendor)) {
    _faults.emplace_back("the vendor of the helper is empty or not UTF-8");
  }
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
  const OperationMethod& method = row.method;
  std::string fault = method ? faultOf(row) : "it has no method";
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
