#ifndef CORVANE_PLATFORM_MACOS_FRAMEWORKS_FOUNDATION_H
#define CORVANE_PLATFORM_MACOS_FRAMEWORKS_FOUNDATION_H

// What is used of Foundation. A build on the system takes the system's own header, and so sees
// whether these declarations are true.
#if __has_include(<Foundation/Foundation.h>)
#import <Foundation/Foundation.h>
#else

#import <objc/NSObject.h>
#include <sys/types.h>

#include "platform/macos/frameworks/CoreFoundation.h"

@class NSArray;
@class NSData;
@class NSDictionary;
@class NSString;

using NSTimeInterval = double;
using NSStringEncoding = NSUInteger;
constexpr NSStringEncoding NSUTF8StringEncoding = 4;

@interface NSString : NSObject
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding;
/// Nil for a text that cannot be written so.
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding;
@end

@interface NSData : NSObject
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length;
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes;
@end

@interface NSNumber : NSObject
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithDouble:(double)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)value;
@property(readonly) const char* objCType;
@property(readonly) BOOL boolValue;
@property(readonly) double doubleValue;
@property(readonly) long long longLongValue;
@property(readonly) unsigned long long unsignedLongLongValue;
@end

@interface NSDate : NSObject
+ (instancetype)dateWithTimeIntervalSinceReferenceDate:(NSTimeInterval)seconds;
@property(readonly) NSTimeInterval timeIntervalSinceReferenceDate;
@end

@interface NSArray : NSObject
@property(readonly) NSUInteger count;
- (id)objectAtIndex:(NSUInteger)index;
@end

@interface NSMutableArray : NSArray
+ (instancetype)array;
- (void)addObject:(id)object;
@end

@interface NSDictionary : NSObject
@property(readonly, copy) NSArray* allKeys;
- (id)objectForKey:(id)key;
@end

@interface NSMutableDictionary : NSDictionary
+ (instancetype)dictionary;
- (void)setObject:(id)object forKey:(id)key;
@end

@interface NSSet : NSObject
+ (instancetype)setWithArray:(NSArray*)objects;
@end

@interface NSError : NSObject
+ (instancetype)errorWithDomain:(NSString*)domain
                           code:(NSInteger)code
                       userInfo:(NSDictionary*)userInfo;
@property(readonly, copy) NSString* domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSDictionary* userInfo;
@property(readonly, copy) NSString* localizedDescription;
@end

// Its type is the framework's, which throws it, not one of each program's that catches it.
__attribute__((objc_exception))
@interface NSException : NSObject
@property(readonly, copy) NSString* name;
@property(readonly, copy) NSString* reason;
@end

@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop* currentRunLoop;
- (void)run;
@end

extern "C" void NSLog(NSString* format, ...);

enum : NSInteger {
  NSXPCConnectionInterrupted = 4097,
  NSXPCConnectionInvalid = 4099,
  NSXPCConnectionReplyInvalid = 4101,
};

using NSXPCConnectionOptions = NSUInteger;
constexpr NSXPCConnectionOptions NSXPCConnectionPrivileged = 1 << 12;

@interface NSXPCInterface : NSObject
+ (NSXPCInterface*)interfaceWithProtocol:(Protocol*)protocol;
@end

@interface NSXPCListenerEndpoint : NSObject
@end

@interface NSXPCConnection : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name options:(NSXPCConnectionOptions)options;
- (instancetype)initWithListenerEndpoint:(NSXPCListenerEndpoint*)endpoint;
+ (NSXPCConnection*)currentConnection;
@property(retain) NSXPCInterface* exportedInterface;
@property(retain) id exportedObject;
@property(retain) NSXPCInterface* remoteObjectInterface;
@property(readonly, retain) id remoteObjectProxy;
- (id)remoteObjectProxyWithErrorHandler:(void (^)(NSError* error))handler;
@property(copy) void (^interruptionHandler)(void);
@property(copy) void (^invalidationHandler)(void);
@property(readonly) pid_t processIdentifier;
@property(readonly) uid_t effectiveUserIdentifier;
- (void)resume;
- (void)suspend;
- (void)invalidate;
/// From macOS 10.15 on.
- (void)scheduleSendBarrierBlock:(void (^)(void))block;
@end

@class NSXPCListener;

@protocol NSXPCListenerDelegate <NSObject>
@optional
- (BOOL)listener:(NSXPCListener*)listener shouldAcceptNewConnection:(NSXPCConnection*)newConnection;
@end

@interface NSXPCListener : NSObject
- (instancetype)initWithMachServiceName:(NSString*)name;
+ (NSXPCListener*)anonymousListener;
@property(weak) id<NSXPCListenerDelegate> delegate;
@property(readonly, retain) NSXPCListenerEndpoint* endpoint;
- (void)resume;
- (void)suspend;
- (void)invalidate;
@end

#endif
#endif
