#ifndef CORVANE_OPERATIONS_ZELPRIVILEGEDOPERATIONSET_H
#define CORVANE_OPERATIONS_ZELPRIVILEGEDOPERATIONSET_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"
#include "foundation/Value.h"
#include "operations/ZELPrivilegedOperation.h"
#include "platform/Authorization.h"
#include "platform/XPCConnection.h"

namespace corvane {

/// The connection to the client's feedback object; null when the client gave no endpoint.
using FeedbackConnection = std::shared_ptr<XPCConnection>;
/// The full text of a method name, with its colons.
using Selector = std::string;

/// The catalogue of privileged operations that one helper serves, with the methods that implement
/// them. This base supplies what follows from a catalogue; a subclass provides the catalogue.
/// Unchanged once made, so any thread may ask it anything.
class ZELPrivilegedOperationSet {
 public:
  using Operations = std::map<std::string, ZELPrivilegedOperation, std::less<>>;
  using Identifiers = std::map<std::uint64_t, std::string>;
  using RightDefinitionBlock =
      std::function<void(const std::optional<std::string>& rightName, const Value& rule,
                         const std::string& description)>;

  /// The one set of this process. The first call makes it, of the class it is called on; every
  /// later call, on any class of the hierarchy, returns that same object.
  static ZELPrivilegedOperationSet& privilegedOperationSet();
  /// The same, called on `Set`, for a class that has no function of its own for it.
  template <typename Set>
  static ZELPrivilegedOperationSet& privilegedOperationSetOf() {
    return sharedSet(
        []() -> std::unique_ptr<ZELPrivilegedOperationSet> { return std::make_unique<Set>(); });
  }

  static std::string errorDomain() { return "com.corvane.error.privileged-operation"; }
  /// The strings table of the sentences that dialogs show.
  static std::string nameOfAuthorizationRightLocalizationTable() { return "PrivilegedOperations"; }
  /// The strings table of the texts of errors.
  static std::string nameOfErrorMessageLocalizationTable() { return "PrivilegedOperationErrors"; }

  // Operations put texts of no language into their errors; the side that shows an error calls
  // these. A set with an error table of its own gives its name.

  /// The error with its texts in the user's language: description and recovery suggestion looked
  /// up, or made of their templates, and its underlying errors likewise. Domain, code and all other
  /// entries are kept. No error gives none.
  static std::optional<Error> localizedErrorForPrivilegedOperationError(
      const std::optional<Error>& error,
      const std::string& table = nameOfErrorMessageLocalizationTable());
  /// The text of `key`, from the polite twin of the table where texts should use polite forms and
  /// the user's language has one; `value` if it is in neither.
  static std::string localizedUIPolitenessAgnosticStringForKey(
      const std::string& key, const std::string& value, const std::optional<std::string>& table);
  /// The translated template with its placeholders filled, one parameter after the other.
  static std::string localizedStringForTemplate(
      const std::string& pattern, const Array& parameters,
      const std::string& table = nameOfErrorMessageLocalizationTable());

  /// Makes the environment of a rights request: the prompt, then the icon path, each only if it is
  /// not empty. Never null; the caller gives it back to `freeAuthorizationEnvironment`.
  static AuthorizationEnvironment* createAuthorizationEnvironmentForRightPrompt(
      const std::optional<std::string>& prompt, const std::optional<std::string>& iconPath);
  /// Frees such an environment with all that it holds; null is allowed.
  static void freeAuthorizationEnvironment(AuthorizationEnvironment* environment);

  ZELPrivilegedOperationSet() = default;
  ZELPrivilegedOperationSet(const ZELPrivilegedOperationSet&) = delete;
  ZELPrivilegedOperationSet& operator=(const ZELPrivilegedOperationSet&) = delete;
  virtual ~ZELPrivilegedOperationSet() = default;

  /// What a subclass provides. This base has none of it and answers with nothing.
  virtual std::optional<std::string> implementationCode() const { return std::nullopt; }
  virtual std::optional<std::string> implementationVersion() const { return std::nullopt; }
  virtual const Operations* implementedOperations() const { return nullptr; }
  virtual const Identifiers* opIdentifiersByCode() const { return nullptr; }
  /// From which helper version on the operations of the self-uninstall exist.
  virtual float minimumHelperVersionImplementingSelfUninstall() const { return 1.0F; }

  /// What in the set contradicts itself, a text for each, naming the operation: a helper whose set
  /// has faults does not start.
  virtual std::vector<std::string> faults() const { return {}; }

  /// The name of the helper's service, which is also its bundle identifier and file name.
  std::string serviceIdentifierForHelper() const;
  std::string fileNameForHelper() const { return serviceIdentifierForHelper(); }
  /// The identifier of the client component that may call the helper.
  std::string nameOfXPCRequestorForHelper() const;

  /// The identifier of `code`, or null. Lives as long as the set.
  const std::string* identifierForCode(std::uint64_t code) const;
  /// The description of the operation `identifier`, or null. Lives as long as the set.
  const ZELPrivilegedOperation* operationWithIdentifier(std::string_view identifier) const;
  std::optional<std::string> authorizationRightNameForOperationWithIdentifier(
      std::string_view identifier) const;
  /// The code of `operation`, which may be null; ZELNoSuchOperation if it has none.
  std::uint64_t opCodeForOperation(const ZELPrivilegedOperation* operation) const;

  /// Calls `block` once for every operation of the catalogue.
  void enumerateRightDefinitionsUsingBlock(const RightDefinitionBlock& block) const;
  /// Registers the rights that do not exist yet; those that exist stay as they are. Failures are
  /// reported to the standard log. A null authorization does nothing.
  void setAuthorizationRightsForImplementedOperationsUsingAuthorization(
      AuthorizationRef authorization) const;
  /// Removes the rights that exist. Failures are reported to the standard log.
  void removeAuthorizationRightsForImplementedOperationsUsingAuthorization(
      AuthorizationRef authorization) const;

  /// The name of the method that implements `code`, in its form with a feedback connection or
  /// without; nothing if the set has no such method.
  std::optional<Selector> selectorForExecutionOfPrivilegedOperationWithCode(
      std::uint64_t code, bool feedbackOption) const;
  virtual bool respondsToSelector(std::string_view selector) const;
  /// Calls the method named, which the set responds to; the feedback connection is for the form
  /// that takes one and ignored by the other. Once `stop` is requested, the method ends at its next
  /// safe point, with ECANCELED and without taking anything back.
  virtual std::optional<Error> performSelector(std::string_view selector, const Array& arguments,
                                               const FeedbackConnection& feedbackConnection,
                                               const std::stop_token& stop);

  /// What of the arguments of an operation the system's log may show: all, unless a set holds back
  /// what is nobody else's business.
  virtual Array loggableArguments(std::uint64_t code, const Array& arguments) const;

  XPCInterface interfaceForFeedbackProtocol() const;

 protected:
  /// The one set of this process, made with `make` if there is none yet.
  static ZELPrivilegedOperationSet& sharedSet(std::unique_ptr<ZELPrivilegedOperationSet> (*make)());
};

}  // namespace corvane

#endif
