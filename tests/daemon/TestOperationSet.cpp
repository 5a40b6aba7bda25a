#include <array>
#include <fstream>
#include <stdexcept>

#include "foundation/Exception.h"
#include "foundation/POSIXError.h"
#include "operations/PrincipalClass.h"
#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

namespace {

Error nestedError(int depth) {
  Error error("outer", 7);
  for (int i = 0; i < depth; ++i) error = Error("outer", 7, {{"underlying", error}});
  return error;
}

// Errors that no message can hold as they are, and those of a number below 0 nested so deep.
Error unsendableError(std::int32_t which) {
  switch (which) {
    case 0:
      return Error("not\xffUTF-8", 7);
    case 1:
      return Error("outer", 7, {{"key\xff", "value"}, {"text", "\xff"}});
    case 2:
      return Error("outer", 7, {{"text", std::string("zero\0byte", 9)}});
    case 3:
      return Error("", 7);
    case 4:
      return nestedError(200);
    case 5:
      return Error("outer", 7, {{"data", Data(std::size_t{200} << 20)}});
    default:
      return nestedError(-which);
  }
}

/// Operations that do what the catalogue of the product never does: they raise exceptions, lack a
/// method, are described wrongly, give back what they were given or what cannot be sent, or wait
/// for ever.
class TestOperationSet : public ZELPrivilegedOperationSet {
 public:
  static ZELPrivilegedOperationSet& privilegedOperationSet() {
    return privilegedOperationSetOf<TestOperationSet>();
  }

  TestOperationSet() {
    static constexpr std::array<_ZELPrivilegedOperationDescription, 10> catalogue = {{
        {1, "unknown-letter", 1, 0, 0, 2, "SX", "Text."},
        {2, "no-method", 1, 0, 0, 0, nullptr, "Text."},
        {3, "raise", 1, 0, 0, 2, "SS", "Text."},
        {4, "raise-other", 1, 0, 0, 0, nullptr, "Text."},
        {5, "give-back", 1, 0, 0, 3, "SND", "Text."},
        {6, "live-output", 1, 0, 1, ZELVariableArgumentCount, nullptr, "Text."},
        {7, "live-progress", 1, 1, 0, ZELVariableArgumentCount, nullptr, "Text."},
        {8, "raise-number", 1, 0, 0, 0, nullptr, "Text."},
        {9, "block", 1, 0, 0, 1, "S", "Text."},
        {10, "unsendable", 1, 0, 0, 1, "N", "Text."},
    }};
    for (const auto& record : catalogue) {
      auto operation = ZELPrivilegedOperation::initWithStaticDescription(record);
      _identifiers.emplace(record.code, record.identifier);
      _operations.emplace(record.identifier, *std::move(operation));
    }
  }

  std::optional<std::string> implementationCode() const override { return "vnt"; }
  std::optional<std::string> implementationVersion() const override { return "1.3"; }
  const Operations* implementedOperations() const override { return &_operations; }
  const Identifiers* opIdentifiersByCode() const override { return &_identifiers; }

  bool respondsToSelector(std::string_view selector) const override {
    return selector.find("NoMethod") == std::string_view::npos;
  }

  std::optional<Error> performSelector(std::string_view selector, const Array& arguments,
                                       const FeedbackConnection& feedbackConnection,
                                       const std::stop_token& /*stop*/) override {
    if (selector == "performOperationRaiseWithArguments:") {
      throw Exception(*arguments[0].string(), *arguments[1].string());
    }
    if (selector == "performOperationRaiseOtherWithArguments:") {
      throw std::length_error("too long");
    }
    if (selector == "performOperationRaiseNumberWithArguments:") {
      throw 42;  // NOLINT(hicpp-exception-baseclass): what no caller reckons with
    }
    if (selector == "performOperationGiveBackWithArguments:") {
      const Error inner("inner", -1, {{"key", "value"}});
      return Error("outer", 7, {{"arguments", arguments}, {"underlying", inner}});
    }
    if (selector == "performOperationBlockWithArguments:") {
      // Whoever has the other end of this pipe decides how long it takes.
      std::ifstream pipe(*arguments[0].string());
      pipe.get();
      return std::nullopt;
    }
    if (selector == "performOperationUnsendableWithArguments:") {
      return unsendableError(arguments[0].number()->intValue());
    }
    // What is left has feedback; a failure still closes the connection.
    return Error(NSPOSIXErrorDomain, feedbackConnection == nullptr ? 1 : 2);
  }

 private:
  Operations _operations;
  Identifiers _identifiers;
};

const PrincipalClass principalClass("TestOperationSet", &TestOperationSet::privilegedOperationSet);

}  // namespace

}  // namespace corvane
