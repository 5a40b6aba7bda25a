#include "PrivilegedHelperClient.h"

#include <algorithm>
#include <exception>
#include <map>
#include <mutex>
#include <random>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>

#include <unistd.h>

#include "client/Ending.h"
#include "client/FileObjectDeletion.h"
#include "foundation/NoDestructor.h"
#include "foundation/POSIXError.h"
#include "foundation/Unicode.h"
#include "operations/OperationCodes.h"
#include "platform/AuthenticationAgent.h"
#include "platform/AuthorizationIssuer.h"
#include "platform/FeedbackListener.h"
#include "platform/HelperConnection.h"
#include "platform/ZELPrivilegedHelperProtocol.h"

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

// Sessions may end with the process.
ProcessRegistrations& registrations() {
  static NoDestructor<ProcessRegistrations> shared;
  return *shared;
}

// An operation in progress, which another thread may cancel.
struct RunningOperation {
  std::string helperAddress;
  std::string token;
  bool isCancelled = false;
};

// Those of all sessions.
struct RunningOperations {
  std::mutex mutex;
  std::map<const void*, RunningOperation> bySession;
  bool isProcessEnding = false;
};

RunningOperations& runningOperations() {
  static NoDestructor<RunningOperations> shared;
  return *shared;
}

// What nobody guesses: 128 random bits.
std::string newToken() {
  constexpr std::string_view digits = "0123456789abcdef";
  std::random_device random;
  std::string token;
  for (int word = 0; word < 4; ++word) {
    auto bits = random();
    for (int digit = 0; digit < 8; ++digit, bits >>= 4) token += digits[bits & 0xf];
  }
  return token;
}

// One session's operation, from the first thing that is done for it to the last. One inside of
// another is a part of that, and ends with it.
class OperationInProgress {
 public:
  OperationInProgress(const void* session, const std::string& helperAddress) : _session(session) {
    RunningOperations& all = runningOperations();
    const std::lock_guard lock(all.mutex);
    const auto [place, isOuter] = all.bySession.try_emplace(session);
    if (isOuter) place->second = {helperAddress, newToken(), all.isProcessEnding};
    _isOuter = isOuter;
    _token = place->second.token;
  }
  OperationInProgress(const OperationInProgress&) = delete;
  OperationInProgress& operator=(const OperationInProgress&) = delete;
  ~OperationInProgress() {
    if (!_isOuter) return;
    RunningOperations& all = runningOperations();
    const std::lock_guard lock(all.mutex);
    all.bySession.erase(_session);
  }

  const std::string& token() const { return _token; }
  bool isCancelled() const {
    RunningOperations& all = runningOperations();
    const std::lock_guard lock(all.mutex);
    return all.bySession[_session].isCancelled;
  }

 private:
  const void* _session;
  bool _isOuter = false;
  std::string _token;
};

// Whether the operation of `session` is still the one with this token.
bool isInProgress(const void* session, const std::string& token) {
  RunningOperations& all = runningOperations();
  const std::lock_guard lock(all.mutex);
  const auto found = all.bySession.find(session);
  return found != all.bySession.end() && found->second.token == token;
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

// Tells the helper to end the operation, over a connection of its own. One that the helper does not
// know of has not arrived there yet, or has ended.
Answer<void> cancelOperation(const void* session, const RunningOperation& operation,
                             std::chrono::milliseconds patience) {
  const Clock::time_point deadline = Clock::now() + patience;
  const auto connection = [&] {
    // A process that is leaving its helpers connects no more: that would start one anew which has
    // ended with it.
    const std::lock_guard lock(registrations().mutex);
    return HelperConnection::connect(operation.helperAddress, patience);
  }();
  if (!connection) return connection.error();
  for (;;) {
    const auto isKnown = (*connection)->cancelOperation(operation.token, patience);
    if (!isKnown) return isKnown.error();
    if (*isKnown || !isInProgress(session, operation.token) || Clock::now() >= deadline) return {};
    std::this_thread::sleep_for(pauseBeforeRetry);
  }
}

// Whether a message can hold a text, and every one of a value.
bool isSendable(const std::string& text) {
  return isUTF8(text) && text.find('\0') == std::string::npos;
}

bool isSendable(const Value& value) {
  if (const std::string* text = value.string()) return isSendable(*text);
  if (const Array* array = value.array()) {
    return std::ranges::all_of(*array, [](const Value& element) { return isSendable(element); });
  }
  if (const Dictionary* dictionary = value.dictionary()) {
    return std::all_of(dictionary->begin(), dictionary->end(), [](const auto& entry) {
      return isSendable(entry.first) && isSendable(entry.second);
    });
  }
  return true;
}

bool isSendable(const OperationArguments& arguments) {
  return std::ranges::all_of(arguments.values,
                             [](const Value& value) { return isSendable(value); }) &&
         std::ranges::all_of(arguments.texts,
                             [](const std::string* text) { return isSendable(*text); });
}

// What is passed on without being copied.
std::vector<const std::string*> pointersTo(const std::vector<std::string>& texts) {
  std::vector<const std::string*> pointers;
  pointers.reserve(texts.size());
  for (const std::string& text : texts) pointers.push_back(&text);
  return pointers;
}

// Whether the operation begins with a message of feedback to whoever wants some.
bool hasFeedback(std::uint64_t code) {
  return code == codeDeleteFileobjects || code == codeExecuteUtility;
}

// Whether a request that was answered with `error`, before any feedback came, was authorized.
std::optional<bool> wasAuthorized(const std::optional<Error>& error, bool isFeedbackMissing,
                                  bool isCancelled) {
  if (!error) return true;
  if (error->domain() == NSOSStatusErrorDomain) return false;
  // What was cancelled may have been in its dialog, or have got past it.
  if (isPOSIXError(*error, POSIXErrorCode::Canceled)) {
    return isCancelled && !isFeedbackMissing ? std::nullopt : std::optional(false);
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

// Whether a request was not authorized, or may not have been.
bool isRefusal(const PrivilegedHelperClient::Outcome& outcome) {
  return outcome.error && !outcome.wasAuthorized.value_or(false) &&
         (outcome.error->domain() == NSOSStatusErrorDomain ||
          isPOSIXError(*outcome.error, POSIXErrorCode::NotPermitted));
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
    if (_options.helperAddress.empty()) _options.helperAddress = defaultHelperAddress();
  }

  ~Session() {
    if (!_isRegistered) return;
    const std::lock_guard lock(registrations().mutex);
    if (--registrations().sessions[_options.helperAddress] == 0 && connect()) {
      (void)_connection->unregisterClientWithPID(::getpid(), _options.patience);
    }
  }

  static void leaveHelpersBeforeEnd(std::chrono::milliseconds patience) {
    // Never unlocked: the process is about to end, and a thread that waits for this lock is not to
    // begin anything more with a helper. One that does not come back from a helper is not waited
    // for any longer than a helper would be.
    const Clock::time_point deadline = Clock::now() + patience;
    while (!registrations().mutex.try_lock()) {
      if (Clock::now() >= deadline) return;
      std::this_thread::sleep_for(pauseBeforeRetry);
    }
    for (const auto& [path, count] : registrations().sessions) {
      if (count == 0) continue;
      const auto connection = HelperConnection::connect(path, patience);
      if (connection) (void)(*connection)->unregisterClientWithPID(::getpid(), patience);
    }
  }

  const std::string& helperAddress() const { return _options.helperAddress; }

  // A helper may end between the connection and the first message, when its last client leaves:
  // its successor serves the next connection.
  Answer<void> connectAndRegister() {
    return retryWhileLost([this] { return connectAndRegisterOnce(); });
  }

  Answer<std::string> helperVersion() {
    if (const auto ready = connectAndRegister(); !ready) return ready.error();
    auto version = _connection->getVersionString(_options.patience);
    if (!version) dropConnection();
    return version;
  }

  Answer<void> enableDebugMode(bool flag) {
    if (auto connected = connect(); !connected) return connected;
    auto done = _connection->enableDebugMode(flag, _options.patience);
    if (!done) dropConnection();
    return done;
  }

  // What comes before every operation; what fails here has not reached the helper.
  Answer<void> prepare() {
    if (auto ready = connectAndRegister(); !ready) return ready;
    return retryWhileLost([this] { return obtainAuthorization(); });
  }

  Answer<bool> cancel() {
    RunningOperation operation;
    {
      RunningOperations& all = runningOperations();
      const std::lock_guard lock(all.mutex);
      const auto found = all.bySession.find(this);
      if (found == all.bySession.end()) return false;
      found->second.isCancelled = true;
      operation = found->second;
    }
    if (const auto told = cancelOperation(this, operation, _options.patience); !told) {
      return told.error();
    }
    return true;
  }

  static bool cancelOperationsBeforeEnd(const std::function<void()>& tell,
                                        std::chrono::milliseconds patience) {
    std::map<const void*, RunningOperation> operations;
    {
      RunningOperations& all = runningOperations();
      const std::lock_guard lock(all.mutex);
      all.isProcessEnding = true;
      for (auto& [session, operation] : all.bySession) operation.isCancelled = true;
      operations = all.bySession;
      if (operations.empty()) return false;
      // Under the lock, without which none ends.
      if (tell) tell();
    }
    const auto tellHelpers = [operations = std::move(operations), patience] {
      for (const auto& [session, operation] : operations) {
        (void)cancelOperation(session, operation, patience);
      }
    };
    try {
      std::thread(tellHelpers).detach();
    } catch (const std::system_error&) {
      tellHelpers();
    }
    return true;
  }

  Answer<AuthorizationState> queryAuthorization(std::uint64_t code) {
    if (const auto ready = prepare(); !ready) return ready.error();
    auto state = _connection->queryAuthorization(code, authorizationData(), _options.patience);
    if (!state) dropConnection();
    return state;
  }

  Answer<Outcome> perform(std::uint64_t code, std::vector<Value> values,
                          std::span<const std::string* const> texts,
                          const std::optional<Feedback>& feedback) {
    const OperationInProgress operation(this, _options.helperAddress);
    values.insert(values.begin(), {MetadataMarker, metadata(operation.token())});
    const OperationArguments arguments{values, texts};
    if (!isSendable(arguments)) {
      return Outcome{.error = posixError(POSIXErrorCode::IllegalByteSequence)};
    }
    auto outcome = performAndJudge(code, arguments, feedback, operation);
    const bool couldNobodyBeAsked =
        outcome && outcome->error &&
        outcome->error->is(NSOSStatusErrorDomain, errAuthorizationInteractionNotAllowed);
    const bool isToAsk = _options.asksOnTerminal && _options.isInteractionAllowed;
    if (!couldNobodyBeAsked || !isToAsk) return outcome;
    if (_options.beforeAskingOnTerminal) _options.beforeAskingOnTerminal();
    const auto agent = AuthenticationAgent::startOnTerminal();
    if (agent == nullptr) return outcome;
    outcome = performAndJudge(code, arguments, feedback, operation);
    // What cancels the operation from the terminal ends the agent there, too, and its end may reach
    // the helper first.
    if (outcome && isRefusal(*outcome) && operation.isCancelled()) {
      return Outcome{.error = posixError(POSIXErrorCode::Canceled),
                     .wasAuthorized = false,
                     .wasCancelRequested = true};
    }
    return outcome;
  }

 private:
  Answer<Outcome> performAndJudge(std::uint64_t code, const OperationArguments& arguments,
                                  const std::optional<Feedback>& feedback,
                                  const OperationInProgress& operation) {
    auto outcome = performOnce(code, arguments, feedback, operation);
    if (outcome) findOutAboutRefusal(code, *outcome);
    return outcome;
  }

  // EPERM has three meanings: nobody was asked, as nothing would change the authority's mind; what
  // somebody answered was not accepted; or the operation itself was not permitted.
  void findOutAboutRefusal(std::uint64_t code, Outcome& outcome) {
    if (!isRefusal(outcome) || !isPOSIXError(*outcome.error, POSIXErrorCode::NotPermitted)) return;
    const auto state =
        _connection->queryAuthorization(code, authorizationData(), _options.patience);
    if (!state) return;
    outcome.wasAnswerRefused = *state == AuthorizationState::Challenge;
    if (outcome.wasAuthorized) return;
    if (*state == AuthorizationState::Granted) outcome.wasAuthorized = true;
    if (*state == AuthorizationState::Denied) outcome.wasAuthorized = false;
  }

  Answer<Outcome> performOnce(std::uint64_t code, const OperationArguments& arguments,
                              const std::optional<Feedback>& feedback,
                              const OperationInProgress& operation) {
    if (const auto ready = prepare(); !ready) return ready.error();
    std::optional<FeedbackReceiver> receiver;
    std::unique_ptr<FeedbackListener> listener;
    std::optional<XPCListenerEndpoint> endpoint;
    if (feedback) {
      try {
        listener = FeedbackListener::serve(receiver.emplace(*feedback));
      } catch (const std::exception&) {
        return Outcome{.error = posixError(POSIXErrorCode::TooManyOpenFiles)};
      }
      endpoint = listener->takeEndpoint();
    }
    if (operation.isCancelled()) {
      return Outcome{.error = posixError(POSIXErrorCode::Canceled), .wasCancelRequested = true};
    }
    const auto answer = _connection->performPrivilegedOperation(
        code, authorizationData(), std::move(endpoint), arguments, _options.operationTimeout);
    if (!answer) {
      dropConnection();
      return answer.error();
    }
    // The helper closes its end before it answers, so what it sent has arrived or is about to.
    if (listener != nullptr) listener->waitUntilClosed();
    const bool hasBegun = receiver && receiver->hasBegun();
    return Outcome{.error = *answer,
                   .hasLostFeedback = receiver && receiver->hasLost(),
                   .wasAuthorized = hasBegun ? true
                                             : wasAuthorized(*answer, receiver && hasFeedback(code),
                                                             operation.isCancelled()),
                   .wasCancelRequested = operation.isCancelled()};
  }

  Answer<void> connect() {
    if (_connection != nullptr) return {};
    auto connection = HelperConnection::connect(_options.helperAddress, _options.patience);
    if (!connection) return connection.error();
    _connection = *std::move(connection);
    return {};
  }

  // If another thread is in leaveHelpersBeforeEnd, which makes helpers end and connections break,
  // this waits for its lock until the process ends.
  void dropConnection() {
    _connection.reset();
    const std::lock_guard lock(registrations().mutex);
  }

  Answer<void> connectAndRegisterOnce() {
    if (_isRegistered && _connection != nullptr) return {};
    // leaveHelpersBeforeEnd takes the same lock, so it comes before this connection is made, or
    // after this registration, which it then takes back.
    const std::lock_guard lock(registrations().mutex);
    if (auto connected = connect(); !connected) return connected;
    // On a new connection always: a helper that has ended meanwhile has forgotten this process, and
    // to one that has not a second registration makes no difference.
    auto registered = _connection->registerClientWithPID(::getpid(), _options.patience);
    if (!registered) {
      _connection.reset();
    } else if (!std::exchange(_isRegistered, true)) {
      ++registrations().sessions[_options.helperAddress];
    }
    return registered;
  }

  template <typename Attempt>
  Answer<void> retryWhileLost(const Attempt& attempt) const {
    const Clock::time_point deadline = Clock::now() + _options.patience;
    Answer<void> done = attempt();
    while (!done && done.error().kind == Kind::Lost && Clock::now() < deadline) {
      std::this_thread::sleep_for(pauseBeforeRetry);
      done = attempt();
    }
    return done;
  }

  Answer<void> obtainAuthorization() {
    if (_authorization != nullptr) return {};
    auto issued = IssuedAuthorization::request(_options.issuerAddress, _options.patience);
    if (!issued) return failureOfIssuer(issued.error());
    _authorization = *std::move(issued);
    return {};
  }

  Data authorizationData() const {
    const auto& bytes = _authorization->externalForm().bytes;
    return {std::begin(bytes), std::end(bytes)};
  }

  Dictionary metadata(const std::string& token) const {
    Dictionary metadata = {{OperationTokenKey, token}};
    if (!_options.isInteractionAllowed) metadata.set(AuthorizationInteractionKey, false);
    if (_options.prompt) metadata.set(AuthorizationPromptKey, *_options.prompt);
    if (_options.iconPath) metadata.set(AuthorizationIconKey, *_options.iconPath);
    return metadata;
  }

  Options _options;
  std::unique_ptr<HelperConnection> _connection;
  bool _isRegistered = false;
  std::unique_ptr<IssuedAuthorization> _authorization;
};

PrivilegedHelperClient::Ending PrivilegedHelperClient::Outcome::ending() const {
  return endingOf(*this, &authorizationDialogsOfThisProcess);
}

PrivilegedHelperClient::PrivilegedHelperClient(Options options)
    : _session(std::make_unique<Session>(std::move(options))) {}

PrivilegedHelperClient::~PrivilegedHelperClient() = default;

void PrivilegedHelperClient::leaveHelpersBeforeEnd(std::chrono::milliseconds patience) {
  Session::leaveHelpersBeforeEnd(patience);
}

bool PrivilegedHelperClient::cancelOperationsBeforeEnd(const std::function<void()>& tell,
                                                       std::chrono::milliseconds patience) {
  return Session::cancelOperationsBeforeEnd(tell, patience);
}

bool PrivilegedHelperClient::isCancellingOperations() {
  RunningOperations& all = runningOperations();
  const std::lock_guard lock(all.mutex);
  return all.isProcessEnding;
}

const std::string& PrivilegedHelperClient::helperAddress() const {
  return _session->helperAddress();
}

Answer<void> PrivilegedHelperClient::connect() {
  return _session->connectAndRegister();
}

Answer<std::string> PrivilegedHelperClient::helperVersion() {
  return _session->helperVersion();
}

Answer<void> PrivilegedHelperClient::enableDebugMode(bool flag) {
  return _session->enableDebugMode(flag);
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::perform(
    std::uint64_t code, std::vector<Value> arguments, const std::optional<Feedback>& feedback) {
  return perform(code, std::move(arguments), {}, feedback);
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::perform(
    std::uint64_t code, std::vector<Value> arguments, std::span<const std::string* const> texts,
    const std::optional<Feedback>& feedback) {
  return _session->perform(code, std::move(arguments), texts, feedback);
}

Answer<void> PrivilegedHelperClient::cancel() {
  if (const auto told = cancelIfInProgress(); !told) return told.error();
  return {};
}

Answer<bool> PrivilegedHelperClient::cancelIfInProgress() {
  return _session->cancel();
}

Answer<AuthorizationState> PrivilegedHelperClient::queryAuthorization(std::uint64_t code) {
  return _session->queryAuthorization(code);
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::nop() {
  return perform(codeNop, {});
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::discardAuthorization() {
  return perform(codeDiscardAuth, {});
}

PrivilegedHelperClient::DeletionOutcome PrivilegedHelperClient::deleteFileObjects(
    const std::vector<std::string>& paths, const DeletionOptions& options,
    const std::optional<Feedback>& feedback) {
  const OperationInProgress all(_session.get(), helperAddress());
  return FileObjectDeletion(*this, paths, options, feedback).run();
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::deleteFiles(
    const std::vector<std::string>& paths) {
  const auto all = pointersTo(paths);
  const auto there = whereSomethingIs(all);
  auto outcome = perform(codeDeleteFiles, {}, all, std::nullopt);
  if (outcome && outcome->error && !outcome->wasAuthorized && isEvidentlyAuthorized(there, false)) {
    outcome->wasAuthorized = true;
    outcome->wasAnswerRefused = false;
  }
  return outcome;
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::modifyPreferences(
    const Preference& preference, const std::string& value) {
  return perform(codeModifyPreferences,
                 {preference.key, preference.application, preference.user, preference.host, value});
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::executeUtility(
    const std::string& applicationPath, const std::string& utility,
    const std::vector<std::string>& arguments, const std::optional<Feedback>& feedback) {
  return perform(codeExecuteUtility, {applicationPath, utility}, pointersTo(arguments), feedback);
}

Answer<PrivilegedHelperClient::Outcome> PrivilegedHelperClient::performUninstall(
    const std::string& programPath, const std::string& jobPath) {
  if (const auto ready = _session->prepare(); !ready) return ready.error();
  auto outcome = perform(codePerformUninstall, {::getpid(), programPath, jobPath});
  // A helper that has removed itself has ended and cannot answer, so success is a lost connection,
  // and every answer is an error.
  if (!outcome && outcome.error().kind == Kind::Lost) return Outcome();
  return outcome;
}

}  // namespace corvane
