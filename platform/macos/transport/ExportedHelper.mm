#include "platform/macos/transport/ExportedHelper.h"

#include <utility>

#include "platform/StandardLog.h"
#include "platform/macos/transport/Endpoint.h"
#include "platform/macos/values/Guarded.h"

using namespace corvane;

namespace {

// Handles one message, whose exceptions end here.
template <typename Work>
void handle(const char* message, Work work) {
  try {
    guarded(work);
  } catch (const std::exception& exception) {
    corvane::NSLog("Uncaught exception while handling %s: %s\n", message, exception.what());
  }
}

// The list of arguments; nothing for one that is absent or that holds what no value is.
std::optional<Array> argumentsFrom(NSArray* objects) {
  auto value = valueFromObject(objects);
  auto* const array = value ? value->as<Array>() : nullptr;
  return array != nullptr ? std::optional(std::move(*array)) : std::nullopt;
}

}  // namespace

@implementation ZELExportedHelper {
  corvane::ZELPrivilegedHelperProtocol* _helper;
  corvane::ZELPrivilegedHelperControl* _control;
}

- (instancetype)initWithHelper:(corvane::ZELPrivilegedHelperProtocol*)helper
                       control:(corvane::ZELPrivilegedHelperControl*)control {
  self = [super init];
  if (self != nil) {
    _helper = helper;
    _control = control;
  }
  return self;
}

- (void)connectWithEndpointUsingReply:(void (^)(NSXPCListenerEndpoint*))reply {
  handle("connectWithEndpointUsingReply:", [&] {
    if (reply == nil) return;
    _helper->connectWithEndpointUsingReply(
        [reply](XPCListenerEndpoint endpoint) { reply(takeObject(endpoint)); });
  });
}

- (void)getVersionStringUsingReply:(void (^)(NSString*))reply {
  handle("getVersionStringUsingReply:", [&] {
    if (reply == nil) return;
    _helper->getVersionStringUsingReply(
        [reply](const std::string& version) { reply(objectFromText(version)); });
  });
}

- (void)registerClientWithPID:(std::int32_t)pid {
  handle("registerClientWithPID:", [&] { _helper->registerClientWithPID(pid); });
}

- (void)unregisterClientWithPID:(std::int32_t)pid {
  handle("unregisterClientWithPID:", [&] { _helper->unregisterClientWithPID(pid); });
}

- (void)performPrivilegedOperation:(unsigned long long)code
             withAuthorizationData:(NSData*)authorizationData
                  feedbackEndpoint:(NSXPCListenerEndpoint*)feedbackEndpoint
                         arguments:(NSArray*)arguments
                        usingReply:(void (^)(NSError*))reply {
  handle("performPrivilegedOperation:", [&] {
    std::optional<XPCListenerEndpoint> endpoint;
    if (feedbackEndpoint != nil) endpoint = endpointFromObject(feedbackEndpoint);
    _helper->performPrivilegedOperation(code, dataFromObject(authorizationData),
                                        std::move(endpoint), argumentsFrom(arguments),
                                        [reply](const std::optional<Error>& error) {
                                          if (reply != nil)
                                            reply(error ? objectFromError(*error) : nil);
                                        });
  });
}

- (void)enableDebugMode:(BOOL)flag {
  handle("enableDebugMode:", [&] { _helper->enableDebugMode(static_cast<bool>(flag)); });
}

- (void)cancelOperation:(NSString*)token usingReply:(void (^)(BOOL))reply {
  handle("cancelOperation:", [&] {
    const auto text = textFromObject(token);
    if (_control == nullptr || reply == nil) return;
    reply(text && _control->cancelOperation(*text) ? YES : NO);
  });
}

- (void)queryAuthorization:(unsigned long long)code
     withAuthorizationData:(NSData*)authorizationData
                usingReply:(void (^)(NSString*, NSError*))reply {
  handle("queryAuthorization:", [&] {
    if (_control == nullptr || reply == nil) return;
    const auto state = _control->queryAuthorization(code, dataFromObject(authorizationData));
    reply(state ? objectFromText(nameOf(*state)) : nil,
          state ? nil : objectFromError(state.error()));
  });
}

@end
