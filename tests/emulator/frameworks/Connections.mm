#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <unistd.h>

#include "tests/emulator/frameworks/Runtime.h"

// Connections within this process: a message is a call on the other side's own thread, in order,
// with the objects themselves. What the system does besides, such as to check their classes, is not
// here.

extern "C" void objc_msgSend(void);

@interface NSXPCInterface ()
@property(readonly) const void* emulatorProtocol;
@end
@interface NSXPCListener ()
- (void)emulatorConnect:(NSXPCConnection*)client;
@end
@interface NSXPCListenerEndpoint ()
@property(strong) NSXPCListener* emulatorListener;
@end

namespace {

using Words = std::vector<std::uint64_t>;

// Work on a thread of its own, one after the other, until it is at its end.
class Queue {
 public:
  static std::shared_ptr<Queue> make() {
    auto queue = std::make_shared<Queue>();
    std::thread([queue] { queue->run(); }).detach();
    return queue;
  }
  bool add(std::function<void()> work) {
    const std::lock_guard lock(_mutex);
    if (_isEnding) return false;
    _work.push_back(std::move(work));
    _changed.notify_all();
    return true;
  }
  // With `last` after all that waits. True the first time.
  bool end(std::function<void()> last) {
    const std::lock_guard lock(_mutex);
    if (_isEnding) return false;
    _work.push_back(std::move(last));
    _isEnding = true;
    _changed.notify_all();
    return true;
  }

 private:
  void run() {
    for (;;) {
      std::function<void()> next;
      {
        std::unique_lock lock(_mutex);
        _changed.wait(lock, [this] { return _isEnding || !_work.empty(); });
        if (_work.empty()) return;
        next = std::move(_work.front());
        _work.pop_front();
      }
      @autoreleasepool {
        next();
        next = nullptr;
      }
    }
  }

  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<std::function<void()>> _work;
  bool _isEnding = false;
};

std::mutex& lock() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}
// By the names of services, while they are resumed.
std::map<std::string, __weak NSXPCListener*>& services() {
  static auto* const all = new std::map<std::string, __weak NSXPCListener*>;
  return *all;
}

thread_local __unsafe_unretained NSXPCConnection* current = nil;

NSError* connectionError(NSInteger code) {
  return [NSError errorWithDomain:@"NSCocoaErrorDomain" code:code userInfo:nil];
}

// A question that is not answered yet; what its answer or the end of the connection comes to first
// is what is told.
struct Question {
  void (^failed)(NSError*);
  std::atomic<bool> isAnswered = false;
  void fail(NSInteger code) {
    if (!isAnswered.exchange(true) && failed != nil) failed(connectionError(code));
  }
};

// What the types of a method say about each argument that it has: "@", "@?" for a block, or a
// number.
std::vector<std::string> kindsOfArguments(const char* types) {
  std::vector<std::string> kinds;
  bool isReturn = true;
  for (const char* at = types; *at != 0;) {
    std::string kind(1, *at++);
    if (kind == "@" && *at == '?') kind += *at++;
    while (*at >= '0' && *at <= '9') ++at;
    if (!isReturn) kinds.push_back(kind);
    isReturn = false;
  }
  return kinds;
}

}  // namespace

@interface NSXPCConnection ()
- (void)emulatorSend:(const std::uint64_t*)words failed:(void (^)(NSError*))failed;
- (instancetype)initWithClient:(NSXPCConnection*)client;
@end

/// What messages are sent to.
@interface EmulatorProxy : NSObject
@end
@implementation EmulatorProxy {
 @public
  NSXPCConnection* _connection;
  void (^_failed)(NSError*);
}
- (void)emulatorHandOn:(const std::uint64_t*)words {
  [_connection emulatorSend:words failed:_failed];
}
@end

@implementation NSXPCInterface {
  const void* _protocol;
}
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol {
  NSXPCInterface* const interface = [[self alloc] init];
  interface->_protocol = (__bridge const void*)protocol;
  return interface;
}
- (const void*)emulatorProtocol {
  return _protocol;
}
@end

@implementation NSXPCListenerEndpoint
@end

@implementation NSXPCConnection {
  std::string _name;
  NSXPCListenerEndpoint* _endpoint;
  __weak NSXPCConnection* _other;
  std::shared_ptr<Queue> _queue;
  std::vector<std::shared_ptr<Question>> _questions;
  std::mutex _mutex;
  bool _isConnected;
  /// One that was resumed is there until its end, whoever keeps it.
  NSXPCConnection* _kept;
}

- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options {
  self = [super init];
  if (options != NSXPCConnectionPrivileged) emulator::raise("Options", "that are not known");
  if (self != nil) _name = emulator::content(name);
  return self;
}
- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint*)endpoint {
  self = [super init];
  if (self != nil) _endpoint = endpoint;
  return self;
}
- (instancetype)initWithClient:(NSXPCConnection*)client {
  self = [super init];
  if (self != nil) _other = client;
  client->_other = self;
  return self;
}

+ (NSXPCConnection*)currentConnection {
  return current;
}
- (pid_t)processIdentifier {
  return ::getpid();
}
- (uid_t)effectiveUserIdentifier {
  return ::geteuid();
}

- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError*))handler {
  EmulatorProxy* const proxy = [[EmulatorProxy alloc] init];
  proxy->_connection = self;
  proxy->_failed = handler;
  return proxy;
}
- (id)remoteObjectProxy {
  return [self remoteObjectProxyWithErrorHandler:nil];
}

- (void)resume {
  const std::lock_guard held(_mutex);
  if (_queue != nullptr) return;
  _queue = Queue::make();
  _kept = self;
}
- (void)suspend {
}
- (void)scheduleSendBarrierBlock:(void (^)(void))block {
  if (!_queue->add([block] { block(); })) block();
}

// With the first message.
- (void)emulatorConnect {
  {
    const std::lock_guard held(_mutex);
    if (_isConnected) return;
    _isConnected = true;
  }
  NSXPCListener* listener = _endpoint.emulatorListener;
  if (_endpoint == nil) {
    const std::lock_guard held(lock());
    const auto found = services().find(_name);
    if (found != services().end()) listener = found->second;
  }
  [listener emulatorConnect:self];
}

- (void)emulatorSend:(const std::uint64_t*)words failed:(void (^)(NSError*))failed {
  const auto selector = reinterpret_cast<SEL>(words[1]);
  const char* const types = emulator_types_in_protocol(self.remoteObjectInterface.emulatorProtocol,
                                                       sel_getName(selector));
  if (types == nullptr) emulator::raise("NSInvalidArgumentException", sel_getName(selector));
  if (_other == nil) [self emulatorConnect];
  const auto question = std::make_shared<Question>();
  question->failed = failed;
  const auto kinds = kindsOfArguments(types);
  Words sent(words, words + 8);
  std::vector<id> kept;
  for (std::size_t i = 2; i < kinds.size(); ++i) {
    if (kinds[i] == "@") kept.push_back((__bridge id) reinterpret_cast<void*>(words[i]));
    if (kinds[i] != "@?") continue;
    // An answer has two objects or numbers at the most.
    using Reply = void (^)(std::uint64_t, std::uint64_t);
    const Reply reply = (__bridge Reply) reinterpret_cast<void*>(words[i]);
    const Reply noted = ^(std::uint64_t first, std::uint64_t second) {
      if (!question->isAnswered.exchange(true)) reply(first, second);
    };
    kept.push_back(noted);
    sent[i] = reinterpret_cast<std::uint64_t>((__bridge void*)kept.back());
    const std::lock_guard held(_mutex);
    _questions.push_back(question);
  }
  NSXPCConnection* const other = _other;
  const bool isSent = other != nil && other->_queue != nullptr && other->_queue->add([=] {
    using Call = void (*)(id, SEL, std::uint64_t, std::uint64_t, std::uint64_t, std::uint64_t,
                          std::uint64_t, std::uint64_t);
    current = other;
    reinterpret_cast<Call> (&objc_msgSend)(other.exportedObject, selector, sent[2], sent[3],
                                           sent[4], sent[5], sent[6], sent[7]);
    current = nil;
    (void)kept;
  });
  if (!isSent) question->fail(NSXPCConnectionInvalid);
}

- (void)emulatorEnd {
  std::vector<std::shared_ptr<Question>> questions;
  {
    const std::lock_guard held(_mutex);
    questions.swap(_questions);
  }
  for (const auto& question : questions) question->fail(NSXPCConnectionInterrupted);
  void (^const handler)(void) = self.invalidationHandler;
  if (handler != nil) handler();
  self.exportedObject = nil;
  self.invalidationHandler = nil;
  self.interruptionHandler = nil;
  _kept = nil;
}
- (void)invalidate {
  [self resume];
  NSXPCConnection* const kept = self;
  if (!_queue->end([kept] { [kept emulatorEnd]; })) return;
  [_other invalidate];
}
@end

@implementation NSXPCListener {
  std::string _name;
  std::shared_ptr<Queue> _queue;
  std::atomic<bool> _isValid;
}
+ (NSXPCListener*)anonymousListener {
  return [[self alloc] initWithMachServiceName:@""];
}
- (instancetype)initWithMachServiceName:(NSString*)name {
  self = [super init];
  if (self != nil) {
    _name = emulator::content(name);
    _isValid = true;
  }
  return self;
}
- (NSXPCListenerEndpoint*)endpoint {
  NSXPCListenerEndpoint* const endpoint = [[NSXPCListenerEndpoint alloc] init];
  endpoint.emulatorListener = self;
  return endpoint;
}
- (void)resume {
  if (_name.empty()) return;
  const std::lock_guard held(lock());
  services()[_name] = self;
}
- (void)suspend {
  const std::lock_guard held(lock());
  services().erase(_name);
}
- (void)invalidate {
  _isValid = false;
  [self suspend];
}
- (void)emulatorConnect:(NSXPCConnection*)client {
  if (!_isValid) return;
  NSXPCConnection* const connection = [[NSXPCConnection alloc] initWithClient:client];
  const id<NSXPCListenerDelegate> delegate = self.delegate;
  if (![delegate listener:self shouldAcceptNewConnection:connection]) [connection invalidate];
}
@end
