#include "tests/emulator/frameworks/Runtime.h"

// Built without the compiler's counting of references, which is what is supplied here.
extern "C" {
id class_createInstance(Class kind);
void object_dispose(id object);
id objc_retain(id object);
void objc_release(id object);
id objc_autorelease(id object);
}

@interface Protocol : NSObject
@end

// Only what is sent to objects here.
#pragma clang diagnostic ignored "-Wincomplete-implementation"
#pragma clang diagnostic ignored "-Wprotocol"
#pragma clang diagnostic ignored "-Wobjc-protocol-property-synthesis"

@implementation NSObject

+ (instancetype)alloc {
  return class_createInstance(self);
}
+ (instancetype)new {
  return [[self alloc] init];
}
- (instancetype)init {
  return self;
}
- (void)dealloc {
  object_dispose(self);
}
- (instancetype)retain {
  return objc_retain(self);
}
- (oneway void)release {
  objc_release(self);
}
- (instancetype)autorelease {
  return objc_autorelease(self);
}
- (instancetype)self {
  return self;
}

+ (Class)class {
  return self;
}
- (Class)class {
  return object_getClass(self);
}
- (BOOL)isKindOfClass:(Class)kind {
  return emulator_is_kind_of(object_getClass(self), kind);
}
- (BOOL)respondsToSelector:(SEL)selector {
  return class_respondsToSelector(object_getClass(self), selector);
}
- (BOOL)isEqual:(id)other {
  return self == other;
}
- (NSUInteger)hash {
  return reinterpret_cast<NSUInteger>(self);
}

@end

@implementation Protocol
@end
