#include <utility>
#include <vector>

#include "tests/emulator/frameworks/Runtime.h"

// The objects that values are. Each keeps what it was made of, and says what it was asked for.

namespace {

// The length of the character that `text` begins with; 0 if that is none of UTF-8.
std::size_t lengthOfCharacter(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  const std::size_t length = first < 0x80   ? 1
                             : first < 0xc2 ? 0
                             : first < 0xe0 ? 2
                             : first < 0xf0 ? 3
                             : first < 0xf5 ? 4
                                            : 0;
  if (length == 0 || length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
  }
  if (length < 3) return length;
  const unsigned second = byte(1);
  const bool isTooLong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
  const bool isNone = (first == 0xed && second >= 0xa0) || (first == 0xf4 && second >= 0x90);
  return isTooLong || isNone ? 0 : length;
}

bool isUTF8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = lengthOfCharacter(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

void requireUTF8(NSStringEncoding encoding) {
  if (encoding != NSUTF8StringEncoding) {
    emulator::raise("NSInvalidArgumentException", "an encoding that is not known");
  }
}

}  // namespace

/// A text that was made.
@interface EmulatorText : NSString
@end
/// A text that stands in a program, as the compiler lays it out.
@interface EmulatorConstantText : NSString
@end

@implementation NSString
+ (instancetype)alloc {
  return self == [NSString class] ? [EmulatorText alloc] : [super alloc];
}
- (instancetype)initWithBytes:(const void*)__unused bytes
                       length:(NSUInteger)__unused length
                     encoding:(NSStringEncoding)__unused encoding {
  return nil;
}
- (std::string_view)emulatorText {
  return {};
}
- (NSData*)dataUsingEncoding:(NSStringEncoding)encoding {
  requireUTF8(encoding);
  const std::string_view text = [self emulatorText];
  return [NSData dataWithBytes:text.data() length:text.size()];
}
- (BOOL)isEqual:(id)other {
  return [other isKindOfClass:[NSString class]] && [self emulatorText] == [other emulatorText];
}
@end

@implementation EmulatorText {
  std::string _text;
}
- (instancetype)initWithBytes:(const void*)bytes
                       length:(NSUInteger)length
                     encoding:(NSStringEncoding)encoding {
  requireUTF8(encoding);
  self = [super init];
  if (self != nil) _text.assign(static_cast<const char*>(bytes), length);
  return isUTF8(_text) ? self : nil;
}
- (std::string_view)emulatorText {
  return _text;
}
@end

@implementation EmulatorConstantText {
  std::uint64_t _flags;
  const char* _text;
  std::uint64_t _length;
}
- (std::string_view)emulatorText {
  return {_text, _length};
}
@end

@implementation NSData {
  std::string _bytes;
}
+ (instancetype)dataWithBytes:(const void*)bytes length:(NSUInteger)length {
  NSData* const data = [[self alloc] init];
  if (length > 0) data->_bytes.assign(static_cast<const char*>(bytes), length);
  return data;
}
- (NSUInteger)length {
  return _bytes.size();
}
- (const void*)bytes {
  return _bytes.data();
}
@end

/// Truth, which is a kind of its own.
@interface EmulatorBoolean : NSNumber
@end

@implementation NSNumber {
  char _type[2];
  double _double;
  unsigned long long _integer;
}
+ (NSNumber*)emulatorNumberOfType:(char)type integer:(unsigned long long)integer {
  NSNumber* const number = [[self alloc] init];
  number->_type[0] = type;
  number->_integer = integer;
  return number;
}
+ (NSNumber*)numberWithBool:(BOOL)value {
  return [EmulatorBoolean emulatorNumberOfType:'c' integer:value ? 1 : 0];
}
+ (NSNumber*)numberWithDouble:(double)value {
  NSNumber* const number = [self emulatorNumberOfType:'d' integer:0];
  number->_double = value;
  return number;
}
+ (NSNumber*)numberWithLongLong:(long long)value {
  return [self emulatorNumberOfType:'q' integer:static_cast<unsigned long long>(value)];
}
// What fits a signed number is kept as one.
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)value {
  return [self emulatorNumberOfType:value >> 63 != 0 ? 'Q' : 'q' integer:value];
}
- (const char*)objCType {
  return _type;
}
- (BOOL)boolValue {
  return _integer != 0 || _double != 0;
}
- (double)doubleValue {
  if (_type[0] == 'd') return _double;
  return _type[0] == 'Q' ? static_cast<double>(_integer)
                         : static_cast<double>(static_cast<long long>(_integer));
}
- (long long)longLongValue {
  return static_cast<long long>(_integer);
}
- (unsigned long long)unsignedLongLongValue {
  return _integer;
}
@end

@implementation EmulatorBoolean
@end

extern "C" {
CFTypeID CFBooleanGetTypeID() {
  return 21;
}
CFTypeID CFGetTypeID(CFTypeRef object) {
  return [(__bridge id)object isKindOfClass:[EmulatorBoolean class]] ? CFBooleanGetTypeID() : 1;
}
void CFRelease(CFTypeRef object) {
  (void)(__bridge_transfer id)object;
}
}

@implementation NSDate {
  NSTimeInterval _seconds;
}
+ (instancetype)dateWithTimeIntervalSinceReferenceDate:(NSTimeInterval)seconds {
  NSDate* const date = [[self alloc] init];
  date->_seconds = seconds;
  return date;
}
- (NSTimeInterval)timeIntervalSinceReferenceDate {
  return _seconds;
}
@end

@implementation NSArray {
 @protected
  std::vector<id> _objects;
}
- (NSUInteger)count {
  return _objects.size();
}
- (id)objectAtIndex:(NSUInteger)index {
  if (index >= _objects.size()) {
    emulator::raise("NSRangeException", "there are " + std::to_string(_objects.size()) +
                                            " objects and none at " + std::to_string(index));
  }
  return _objects[index];
}
@end

@implementation NSMutableArray
+ (instancetype)array {
  return [[self alloc] init];
}
- (void)addObject:(id)object {
  if (object == nil) emulator::raise("NSInvalidArgumentException", "nil in a list");
  _objects.push_back(object);
}
@end

@implementation NSDictionary {
 @protected
  std::vector<std::pair<id, id>> _entries;
}
- (NSArray*)allKeys {
  NSMutableArray* const keys = [NSMutableArray array];
  for (const auto& [key, object] : _entries) [keys addObject:key];
  return keys;
}
- (id)objectForKey:(id)wanted {
  for (const auto& [key, object] : _entries) {
    if ([key isEqual:wanted]) return object;
  }
  return nil;
}
@end

@implementation NSMutableDictionary
+ (instancetype)dictionary {
  return [[self alloc] init];
}
- (void)setObject:(id)object forKey:(id)wanted {
  if (object == nil || wanted == nil) {
    emulator::raise("NSInvalidArgumentException", "nil in a dictionary");
  }
  for (auto& [key, held] : _entries) {
    if (![key isEqual:wanted]) continue;
    held = object;
    return;
  }
  _entries.emplace_back(wanted, object);
}
@end

@interface NSNull : NSObject
@end
@implementation NSNull
@end

@implementation NSError {
  NSString* _domain;
  NSInteger _code;
  NSDictionary* _userInfo;
}
+ (instancetype)errorWithDomain:(NSString*)domain
                           code:(NSInteger)code
                       userInfo:(NSDictionary*)userInfo {
  NSError* const error = [[self alloc] init];
  error->_domain = domain;
  error->_code = code;
  error->_userInfo = userInfo != nil ? userInfo : [NSMutableDictionary dictionary];
  return error;
}
- (NSString*)domain {
  return _domain;
}
- (NSInteger)code {
  return _code;
}
- (NSDictionary*)userInfo {
  return _userInfo;
}
- (NSString*)localizedDescription {
  NSString* const text = [_userInfo objectForKey:@"NSLocalizedDescription"];
  if (text != nil) return text;
  return emulator::text("The operation couldn\u2019t be completed. (" + emulator::content(_domain) +
                        " error " + std::to_string(_code) + ".)");
}
@end

@interface NSException ()
- (instancetype)initWithName:(NSString*)name reason:(NSString*)reason;
@end

@implementation NSException {
  NSString* _name;
  NSString* _reason;
}
- (instancetype)initWithName:(NSString*)name reason:(NSString*)reason {
  self = [super init];
  if (self != nil) {
    _name = name;
    _reason = reason;
  }
  return self;
}
- (NSString*)name {
  return _name;
}
- (NSString*)reason {
  return _reason;
}
@end

namespace emulator {

NSString* text(std::string_view content) {
  return [[NSString alloc] initWithBytes:content.data()
                                  length:content.size()
                                encoding:NSUTF8StringEncoding];
}

std::string content(NSString* text) {
  return std::string([text emulatorText]);
}

void raise(const char* name, const std::string& reason) {
  @throw [[NSException alloc] initWithName:text(name) reason:text(reason)];
}

}  // namespace emulator
