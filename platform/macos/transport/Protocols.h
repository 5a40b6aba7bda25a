#ifndef CORVANE_PLATFORM_MACOS_TRANSPORT_PROTOCOLS_H
#define CORVANE_PLATFORM_MACOS_TRANSPORT_PROTOCOLS_H

#include <cstdint>

#include "platform/macos/frameworks/Foundation.h"

// What goes over connections, as the system's library reads it out of the program: the names, the
// order and the types of these methods are what clients rely on.

@protocol ZELPrivilegedHelperProtocol
- (void)connectWithEndpointUsingReply:(void (^)(NSXPCListenerEndpoint* endpoint))reply;
- (void)getVersionStringUsingReply:(void (^)(NSString* version))reply;
- (void)registerClientWithPID:(std::int32_t)pid;
- (void)unregisterClientWithPID:(std::int32_t)pid;
- (void)performPrivilegedOperation:(unsigned long long)code
             withAuthorizationData:(NSData*)authorizationData
                  feedbackEndpoint:(NSXPCListenerEndpoint*)feedbackEndpoint
                         arguments:(NSArray*)arguments
                        usingReply:(void (^)(NSError* error))reply;
@optional
- (void)enableDebugMode:(BOOL)flag;
@end

// What the specified protocol leaves open, for clients that know it.
@protocol ZELPrivilegedHelperControl
- (void)cancelOperation:(NSString*)token usingReply:(void (^)(BOOL isInProgress))reply;
/// The state is "granted", "challenge", "denied" or "unavailable"; nil with an error.
- (void)queryAuthorization:(unsigned long long)code
     withAuthorizationData:(NSData*)authorizationData
                usingReply:(void (^)(NSString* state, NSError* error))reply;
@end

/// What every connection exports.
@protocol ZELPrivilegedHelperService <ZELPrivilegedHelperProtocol, ZELPrivilegedHelperControl>
@end

@protocol ZELPrivilegedOperationFeedbackProtocol
- (void)processPrivilegedOperationFeedback:(NSDictionary*)feedback;
@end

#endif
