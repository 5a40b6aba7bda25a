#include "platform/HelperConnection.h"

#include <condition_variable>
#include <iterator>
#include <memory>
#include <mutex>
#include <utility>

#include "foundation/PropertyList.h"
#include "platform/macos/transport/Endpoint.h"
#include "platform/macos/transport/Protocols.h"
#include "platform/macos/values/Guarded.h"

namespace corvane {

namespace {

using Kind = CommunicationFailure::Kind;

// An answer that one thread waits for and the library's thread brings, maybe after nobody waits for
// it any more. The first one counts.
template <typename T>
class Pending {
 public:
  void bring(Answer<T> answer) {
    const std::lock_guard lock(_mutex);
    if (!_answer) _answer.emplace(std::move(answer));
    _brought.notify_all();
  }
  Answer<T> wait(HelperConnection::Timeout timeout) {
    std::unique_lock lock(_mutex);
    const auto isThere = [this] { return _answer.has_value(); };
    if (!timeout) {
      _brought.wait(lock, isThere);
    } else if (!_brought.wait_for(lock, *timeout, isThere)) {
      return CommunicationFailure{Kind::TimedOut, "The helper did not answer in time"};
    }
    return *std::move(_answer);
  }

 private:
  std::mutex _mutex;
  std::condition_variable _brought;
  std::optional<Answer<T>> _answer;
};

// What the library says about a message that was not answered, `otherwise` where it was never
// connected.
CommunicationFailure failureFrom(NSError* error, bool wasConnected) {
  const Error reason = errorFromObject(error);
  std::string description = "The helper did not answer";
  if (auto text = textFromObject(error.localizedDescription)) description += ": " + *text;
  Kind kind = wasConnected ? Kind::Lost : Kind::Refused;
  if (reason.is(NSCocoaErrorDomain, NSXPCConnectionInterrupted)) kind = Kind::Lost;
  if (reason.is(NSCocoaErrorDomain, NSXPCConnectionReplyInvalid)) kind = Kind::BadMessage;
  return {kind, std::move(description)};
}

Result<AuthorizationState, CommunicationFailure> stateFrom(NSString* name, NSError* error) {
  const auto state = authorizationStateNamed(textFromObject(name).value_or(""));
  if (state) return *state;
  if (error == nil) {
    return CommunicationFailure{Kind::BadMessage, "The helper's answer could not be read"};
  }
  return CommunicationFailure{Kind::BadMessage, "The helper refused the request: " +
                                                    errorFromObject(error).localizedDescription()};
}

NSArray* objectFromArguments(const OperationArguments& arguments) {
  NSMutableArray* const all = [NSMutableArray array];
  for (const Value& value : arguments.values) [all addObject:objectFromValue(value)];
  for (const std::string* text : arguments.texts) [all addObject:objectFromText(*text)];
  return all;
}

class MachServiceConnection : public HelperConnection {
 public:
  explicit MachServiceConnection(const std::string& name)
      : _connection([[NSXPCConnection alloc] initWithMachServiceName:objectFromText(name)
                                                             options:NSXPCConnectionPrivileged]) {
    _connection.remoteObjectInterface =
        [NSXPCInterface interfaceWithProtocol:@protocol(ZELPrivilegedHelperService)];
    [_connection resume];
  }
  ~MachServiceConnection() override { [_connection invalidate]; }

  Answer<std::string> getVersionString(Timeout timeout) override {
    return call<std::string>(timeout, [](Helper helper, auto bring) {
      [helper getVersionStringUsingReply:^(NSString* version) {
        bring(textFromObject(version).value_or(""));
      }];
    });
  }

  // What has no answer is followed by a question that has one: the messages of a connection are
  // handled in their order.

  Answer<void> registerClientWithPID(std::int32_t pid, Timeout timeout) override {
    return callWithoutAnswer(timeout, [pid](Helper helper) { [helper registerClientWithPID:pid]; });
  }

  Answer<void> unregisterClientWithPID(std::int32_t pid, Timeout timeout) override {
    auto answer =
        callWithoutAnswer(timeout, [pid](Helper helper) { [helper unregisterClientWithPID:pid]; });
    // The last client's helper ends instead.
    if (!answer && answer.error().kind == Kind::Lost) return {};
    return answer;
  }

  Answer<void> enableDebugMode(bool flag, Timeout timeout) override {
    return callWithoutAnswer(timeout,
                             [flag](Helper helper) { [helper enableDebugMode:flag ? YES : NO]; });
  }

  Answer<std::optional<Error>> performPrivilegedOperation(
      std::uint64_t code, const Data& authorizationData,
      std::optional<XPCListenerEndpoint> feedbackEndpoint, const OperationArguments& arguments,
      Timeout timeout) override {
    return call<std::optional<Error>>(timeout, [&](Helper helper, auto bring) {
      [helper performPrivilegedOperation:code
                   withAuthorizationData:objectFromData(authorizationData)
                        feedbackEndpoint:feedbackEndpoint ? takeObject(*feedbackEndpoint) : nil
                               arguments:objectFromArguments(arguments)
                              usingReply:^(NSError* error) {
                                bring(error != nil ? std::optional(errorFromObject(error))
                                                   : std::nullopt);
                              }];
    });
  }

  Answer<bool> cancelOperation(const std::string& token, Timeout timeout) override {
    return call<bool>(timeout, [&](Helper helper, auto bring) {
      [helper cancelOperation:objectFromText(token)
                   usingReply:^(BOOL isInProgress) {
                     bring(isInProgress != NO);
                   }];
    });
  }

  Answer<AuthorizationState> queryAuthorization(std::uint64_t code, const Data& authorizationData,
                                                Timeout timeout) override {
    return call<AuthorizationState>(timeout, [&](Helper helper, auto bring) {
      [helper queryAuthorization:code
           withAuthorizationData:objectFromData(authorizationData)
                      usingReply:^(NSString* state, NSError* error) {
                        bring(stateFrom(state, error));
                      }];
    });
  }

 private:
  using Helper = id<ZELPrivilegedHelperService>;

  // Sends what `send` sends, and waits until that brings an answer or the library says that there
  // will be none.
  template <typename T, typename Send>
  Answer<T> call(Timeout timeout, Send send) {
    const auto pending = std::make_shared<Pending<T>>();
    guarded([&] {
      const bool wasConnected = _wasConnected;
      // The block's own: what this function has by reference, a block in it has so, too, and may be
      // called when nobody waits here any more.
      const std::shared_ptr<Pending<T>> kept = pending;
      send([_connection remoteObjectProxyWithErrorHandler:^(NSError* error) {
             kept->bring(failureFrom(error, wasConnected));
           }],
           [pending](Answer<T> answer) { pending->bring(std::move(answer)); });
    });
    Answer<T> answer = pending->wait(timeout);
    if (answer) _wasConnected = true;
    return answer;
  }

  template <typename Send>
  Answer<void> callWithoutAnswer(Timeout timeout, Send send) {
    const auto version = call<std::string>(timeout, [&send](Helper helper, auto bring) {
      send(helper);
      [helper getVersionStringUsingReply:^(NSString* text) {
        bring(textFromObject(text).value_or(""));
      }];
    });
    if (!version) return version.error();
    return {};
  }

  NSXPCConnection* _connection;
  /// Whether the helper has ever answered.
  bool _wasConnected = false;
};

}  // namespace

std::string defaultHelperAddress() {
  return "com.corvane.system.privilegedhelper-vnt";
}

Answer<std::unique_ptr<HelperConnection>> HelperConnection::connect(
    const std::string& address, std::chrono::milliseconds timeout) {
  auto connection = guarded([&] { return std::make_unique<MachServiceConnection>(address); });
  // The system connects with the first message.
  const auto version = connection->getVersionString(timeout);
  if (!version) return version.error();
  return connection;
}

}  // namespace corvane
