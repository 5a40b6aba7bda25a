#include "PrivilegedHelperClient.h"

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

#include <unistd.h>

#include "client/FileObjectDeletion.h"
#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "operations/OperationCodes.h"
#include "platform/AuthenticationAgent.h"
#include "platform/AuthorizationIssuer.h"
#include "platform/FeedbackListener.h"
#include "platform/HelperConnection.h"

namespace corvane {

namespace {

using Kind = CommunicationFailure::Kind;

using Clock = std::chrono::steady_clock;

// Between two attempts, where the connection to a helper or an issuer was lost because that has
// just ended: the next one is about to start.
constexpr std::chrono::milliseconds pauseBeforeRetry{10};

// A helper knows processes, not sessions: it is told when the first session of this process with
// it begins, and when the last one ends. Counted by the helper's socket.
struct ProcessRegistrations {
  std::mutex mutex;
  std::map<std::string, int> sessions;
};

// Never destroyed: sessions may end with the process.
ProcessRegistrations& registrations() {
  static auto* const shared = new ProcessRegistrations;
  return *shared;
}

template <typename T>
std::optional<CommunicationFailure> failureOf(const std::variant<T, CommunicationFailure>& answer) {
  const auto* failure = std::get_if<CommunicationFailure>(&answer);
  return failure != nullptr ? std::optional(*failure) : std::nullopt;
}

CommunicationFailure failureOfIssuer(const Error& error) {
  if (isPOSIXError(error, POSIXErrorCode::TimedOut)) {
    return {Kind::TimedOut, error.localizedDescription()};
  }
  if (isPOSIXError(error, POSIXErrorCode::ConnectionReset)) {
    return {Kind::Lost, error.localizedDescription()};
  }
  return {Kind::Refused, error.localizedDescription()};
}

// Whether a message can hold every text of `value`.
bool isSendable(const Value& value) {
  if (const std::string* text = value.string()) {
    return isUTF8(*text) && text->find('\0') == std::string::npos;
  }
  if (const Array* array = value.array()) {
    return std::all_of(array->begin(), array->end(), &isSendable);
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    return std::all_of(dictionary->begin(), dictionary->end(), [](const auto& entry) {
      return isSendable(entry.first) && isSendable(entry.second);
    });
  }
  return true;
}

// Whether the operation begins with a message of feedback to whoever wants some.
bool hasFeedback(std::uint64_t code) {
  return code == codeDeleteFileobjects || code == codeExecuteUtility;
}

// Whether a request that was answered with `error`, before any feedback came, was authorized.
std::optional<bool> wasAuthorized(const std::optional<Error>& error, bool isFeedbackMissing) {
  if (!error) return true;
  if (error->domain() == NSOSStatusErrorDomain || isPOSIXError(*error, POSIXErrorCode::Canceled)) {
    return false;
  }
  // A helper that does not know the operation answers so before it authorizes anything.
  if (isPOSIXError(*error, POSIXErrorCode::Invalid) ||
      isPOSIXError(*error, POSIXErrorCode::NotImplemented)) {
    return std::nullopt;
  }
  if (!isPOSIXError(*error, POSIXErrorCode::NotPermitted)) return true;
  if (isFeedbackMissing) return false;
  // The authority refuses root nothing, and where none can ask somebody it answers otherwise.
  const AuthorizationDialogs dialogs = authorizationDialogsOfThisProcess();
  const bool isNeverRefused =
      dialogs == AuthorizationDialogs::NotNeeded || dialogs == AuthorizationDialogs::NoAuthority;
  return isNeverRefused ? std::optional(true) : std::nullopt;
}

// Takes the messages apart for the callbacks.
class FeedbackReceiver : public ZELPrivilegedOperationFeedbackProtocol {
 public:
  explicit FeedbackReceiver(const PrivilegedHelperClient::Feedback& feedback)
      : _feedback(feedback) {}

  /// Whether any message came, which tells that the request was authorized.
  bool hasBegun() const { return _hasBegun; }
  /// Whether some of the operation's messages, which had begun to come, did not come or not
  /// through.
  bool hasLost() const { return _hasBegun && !(_hasEnded && _isComplete); }

  void processPrivilegedOperationFeedback(const Dictionary& message) override {
    _hasBegun = true;
    _hasEnded = _hasEnded || message.find(FinalFeedbackMessageKey) != nullptr;
    const bool wasComplete = std::exchange(_isComplete, false);
    for (const auto& [key, value] : message) tell(key, value);
    _isComplete = wasComplete;
  }

 private:
  void tell(std::string_view key, const Value& value) const {
    if (key == ProgressFractionKey && value.number() != nullptr && _feedback.progress) {
      _feedback.progress(value.number()->doubleValue());
    } else if (key == OutputDataKey && value.data() != nullptr && _feedback.output) {
      _feedback.output(*value.data());
    } else if (key == ErrorDataKey && value.data() != nullptr && _feedback.errorOutput) {
      _feedback.errorOutput(*value.data());
    }
  }

  const PrivilegedHelperClient::Feedback& _feedback;
  bool _hasBegun = false;
  bool _hasEnded = false;
  bool _isComplete = true;  ///< no callback has raised anything
};

}  // namespace

class PrivilegedHelperClient::Session {
 public:
  explicit Session(Options options) : _options(std::move(options)) {
    if (_options.helperSocketPath.empty()) _options.helperSocketPath = defaultHelperAddress();
  }

  ~Session() {
    if (!_isRegistered) return;
    const std::lock_guard lock(registrations().mutex);
    if (--registrations().sessions[_options.helperSocketPath] == 0 && !connect()) {
      _connection->unregisterClientWithPID(::getpid(), _options.patience);
    }
  }

  static void leaveHelpersBeforeEnd(std::chrono::milliseconds patience) {
    // Never unlocked: the process is about to end, and a thread that waits for this lock is not to
    // begin anything more with a helper.
    registrations().mutex.lock();
    for (const auto& [path, count] : registrations().sessions) {
      if (count == 0) continue;
      const auto connection = HelperConnection::connect(path, patience);
      if (failureOf(connection)) continue;
      std::get<std::unique_ptr<HelperConnection>>(connection)
          ->unregisterClientWithPID(::getpid(), patience);
    }
  }

  const std::string& helperSocketPath() const { return _options.helperSocketPath; }

  // A helper may end between the connection and the first message, when its last client leaves:
  // its successor serves the next connection.
  std::optional<CommunicationFailure> connectAndRegister() {
    return retryWhileLost([this] { return connectAndRegisterOnce(); });
  }

  Answer<std::string> helperVersion() {
    if (const auto failure = connectAndRegister()) return *failure;
    auto version = _connection->getVersionString(_options.patience);
    if (failureOf(version)) dropConnection();
    return version;
  }

  std::optional<CommunicationFailure> enableDebugMode(bool flag) {
    if (auto failure = connect()) return failure;
    auto failure = failureOf(_connection->enableDebugMode(flag, _options.patience));
    if (failure) dropConnection();
    return failure;
  }

  // What comes before every operation; what fails here has not reached the helper.
  std::optional<CommunicationFailure> prepare() {
    if (auto failure = connectAndRegister()) return failure;
    return retryWhileLost([this] { return obtainAuthorization(); });
  }

  Outcome perform(std::uint64_t code, const std::vector<Value>& arguments,
                  const std::optional<Feedback>& feedback) {
    Outcome outcome = performOnce(code, arguments, feedback);
    const bool couldNobodyBeAsked =
        outcome.error &&
        outcome.error->is(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed);
    if (!couldNobodyBeAsked || !_options.asksOnTerminal) return outcome;
    if (_options.beforeAskingOnTerminal) _options.beforeAskingOnTerminal();
    const auto agent = AuthenticationAgent::startOnTerminal();
    return agent == nullptr ? outcome : performOnce(code, arguments, feedback);
  }

 private:
  Outcome performOnce(std::uint64_t code, const std::vector<Value>& arguments,
                      const std::optional<Feedback>& feedback) {
    const Array all = withMetadata(arguments);
    if (!isSendable(all)) return {std::nullopt, posixError(POSIXErrorCode::IllegalByteSequence)};
    if (const auto failure = prepare()) return {failure, std::nullopt};
    std::optional<FeedbackReceiver> receiver;
    std::unique_ptr<FeedbackListener> listener;
    std::optional<XPCListenerEndpoint> endpoint;
    if (feedback) {
      try {
        listener = FeedbackListener::serve(receiver.emplace(*feedback));
      } catch (const std::exception&) {
        return {std::nullopt, posixError(POSIXErrorCode::TooManyOpenFiles)};
      }
      endpoint = listener->takeEndpoint();
    }
    const auto answer = _connection->performPrivilegedOperation(
        code, authorizationData(), std::move(endpoint), all, _options.operationTimeout);
    if (const auto failure = failureOf(answer)) {
      dropConnection();
      return {failure, std::nullopt};
    }
    // The helper closes its end before it answers, so what it sent has arrived or is about to.
    if (listener != nullptr) listener->waitUntilClosed();
    const auto& error = std::get<std::optional<Error>>(answer);
    const bool hasBegun = receiver && receiver->hasBegun();
    return {std::nullopt, error, receiver && receiver->hasLost(),
            hasBegun ? true : wasAuthorized(error, receiver && hasFeedback(code))};
  }

  std::optional<CommunicationFailure> connect() {
    if (_connection != nullptr) return std::nullopt;
    auto connection = HelperConnection::connect(_options.helperSocketPath, _options.patience);
    if (auto failure = failureOf(connection)) return failure;
    _connection = std::get<std::unique_ptr<HelperConnection>>(std::move(connection));
    return std::nullopt;
  }

  // If another thread is in leaveHelpersBeforeEnd, which makes helpers end and connections break,
  // this waits for its lock until the process ends.
  void dropConnection() {
    _connection.reset();
    const std::lock_guard lock(registrations().mutex);
  }

  std::optional<CommunicationFailure> connectAndRegisterOnce() {
    if (_isRegistered && _connection != nullptr) return std::nullopt;
    // leaveHelpersBeforeEnd takes the same lock, so it comes before this connection is made, or
    // after this registration, which it then takes back.
    const std::lock_guard lock(registrations().mutex);
    if (auto failure = connect()) return failure;
    // On a new connection always: a helper that has ended meanwhile has forgotten this process, and
    // to one that has not a second registration makes no difference.
    auto failure = failureOf(_connection->registerClientWithPID(::getpid(), _options.patience));
    if (failure) {
      _connection.reset();
    } else if (!std::exchange(_isRegistered, true)) {
      ++registrations().sessions[_options.helperSocketPath];
    }
    return failure;
  }

  template <typename Attempt>
  std::optional<CommunicationFailure> retryWhileLost(const Attempt& attempt) const {
    const Clock::time_point deadline = Clock::now() + _options.patience;
    std::optional<CommunicationFailure> failure = attempt();
    while (failure && failure->kind == Kind::Lost && Clock::now() < deadline) {
      std::this_thread::sleep_for(pauseBeforeRetry);
      failure = attempt();
    }
    return failure;
  }

  std::optional<CommunicationFailure> obtainAuthorization() {
    if (_authorization != nullptr) return std::nullopt;
    auto issued = IssuedAuthorization::request(_options.authorizationSocketPath, _options.patience);
    if (const auto* error = std::get_if<Error>(&issued)) return failureOfIssuer(*error);
    _authorization = std::get<std::unique_ptr<IssuedAuthorization>>(std::move(issued));
    return std::nullopt;
  }

  Data authorizationData() const {
    const auto& bytes = _authorization->externalForm().bytes;
    return {std::begin(bytes), std::end(bytes)};
  }

  Array withMetadata(const std::vector<Value>& arguments) const {
    Dictionary metadata;
    if (_options.prompt) metadata.set("ZELAuthorizationPrompt", *_options.prompt);
    if (_options.iconPath) metadata.set("ZELAuthorizationIcon", *_options.iconPath);
    if (metadata.empty()) return arguments;
    Array all = {"!ZELMETA!", std::move(metadata)};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
  }

  Options _options;
  std::unique_ptr<HelperConnection> _connection;
  bool _isRegistered = false;
  std::unique_ptr<IssuedAuthorization> _authorization;
};

PrivilegedHelperClient::PrivilegedHelperClient(Options options)
    : _session(std::make_unique<Session>(std::move(options))) {}

PrivilegedHelperClient::~PrivilegedHelperClient() = default;

void PrivilegedHelperClient::leaveHelpersBeforeEnd(std::chrono::milliseconds patience) {
  Session::leaveHelpersBeforeEnd(patience);
}

const std::string& PrivilegedHelperClient::helperSocketPath() const {
  return _session->helperSocketPath();
}

std::optional<CommunicationFailure> PrivilegedHelperClient::connect() {
  return _session->connectAndRegister();
}

PrivilegedHelperClient::Answer<std::string> PrivilegedHelperClient::helperVersion() {
  return _session->helperVersion();
}

std::optional<CommunicationFailure> PrivilegedHelperClient::enableDebugMode(bool flag) {
  return _session->enableDebugMode(flag);
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::perform(
    std::uint64_t code, const std::vector<Value>& arguments,
    const std::optional<Feedback>& feedback) {
  return _session->perform(code, arguments, feedback);
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::nop() {
  return perform(codeNop, {});
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::discardAuthorization() {
  return perform(codeDiscardAuth, {});
}

PrivilegedHelperClient::DeletionOutcome PrivilegedHelperClient::deleteFileObjects(
    const std::vector<std::string>& paths, bool recursive, bool stopOnFirstError,
    const std::optional<Feedback>& feedback) {
  return FileObjectDeletion(*this, paths, recursive, stopOnFirstError, feedback).run();
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::deleteFiles(
    const std::vector<std::string>& paths) {
  const std::vector<std::string> there = whereSomethingIs(paths);
  Outcome outcome = perform(codeDeleteFiles, {paths.begin(), paths.end()});
  if (outcome.error && !outcome.wasAuthorized && isEvidentlyAuthorized(there, false)) {
    outcome.wasAuthorized = true;
  }
  return outcome;
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::modifyPreferences(
    const std::string& key, const std::string& application, const std::string& user,
    const std::string& host, const std::string& value) {
  return perform(codeModifyPreferences, {key, application, user, host, value});
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::executeUtility(
    const std::string& applicationPath, const std::string& utility,
    const std::vector<std::string>& arguments, const std::optional<Feedback>& feedback) {
  std::vector<Value> all = {applicationPath, utility};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return perform(codeExecuteUtility, all, feedback);
}

PrivilegedHelperClient::Outcome PrivilegedHelperClient::performUninstall(
    const std::string& programPath, const std::string& jobPath) {
  if (const auto failure = _session->prepare()) return {failure, std::nullopt};
  const Outcome outcome = perform(codePerformUninstall, {::getpid(), programPath, jobPath});
  // A helper that has removed itself has ended and cannot answer, so success is a lost connection,
  // and every answer is an error.
  const bool isLost = outcome.failure && outcome.failure->kind == Kind::Lost;
  return isLost ? Outcome() : outcome;
}

}  // namespace corvane
