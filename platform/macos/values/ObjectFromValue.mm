#include "platform/macos/values/ObjectValue.h"

namespace corvane {

namespace {

NSNumber* objectFromNumber(const Number& number) {
  if (number.isBoolean()) return [NSNumber numberWithBool:number.boolValue()];
  if (number.isDouble()) return [NSNumber numberWithDouble:number.doubleValue()];
  if (number.isUnsigned()) {
    return [NSNumber numberWithUnsignedLongLong:number.unsignedLongLongValue()];
  }
  return [NSNumber numberWithLongLong:number.longLongValue()];
}

NSArray* objectFromArray(const Array& array) {
  NSMutableArray* const objects = [NSMutableArray array];
  for (const Value& value : array) {
    const id object = objectFromValue(value);
    if (object == nil) return nil;
    [objects addObject:object];
  }
  return objects;
}

NSDictionary* objectFromDictionary(const Dictionary& dictionary) {
  NSMutableDictionary* const objects = [NSMutableDictionary dictionary];
  for (const auto& [key, value] : dictionary) {
    NSString* const name = objectFromText(key);
    const id object = objectFromValue(value);
    if (name == nil || object == nil) return nil;
    [objects setObject:object forKey:name];
  }
  return objects;
}

}  // namespace

NSString* objectFromText(std::string_view text) {
  return [[NSString alloc] initWithBytes:text.empty() ? "" : text.data()
                                  length:text.size()
                                encoding:NSUTF8StringEncoding];
}

NSData* objectFromData(const Data& data) {
  return [NSData dataWithBytes:data.data() length:data.size()];
}

NSError* objectFromError(const Error& error) {
  NSMutableDictionary* const userInfo = [NSMutableDictionary dictionary];
  for (const auto& [key, value] : error.userInfo()) {
    NSString* const name = objectFromText(key);
    const id object = objectFromValue(value);
    if (name != nil && object != nil) [userInfo setObject:object forKey:name];
  }
  NSString* const domain = objectFromText(error.domain());
  return [NSError errorWithDomain:domain != nil ? domain : @""
                             code:static_cast<NSInteger>(error.code())
                         userInfo:userInfo];
}

id objectFromValue(const Value& value) {
  if (const std::string* text = value.string()) return objectFromText(*text);
  if (const Number* number = value.number()) return objectFromNumber(*number);
  if (const Data* data = value.data()) return objectFromData(*data);
  if (const Date* date = value.date()) {
    return [NSDate dateWithTimeIntervalSinceReferenceDate:date->secondsSinceReference];
  }
  if (const Array* array = value.array()) return objectFromArray(*array);
  if (const Dictionary* dictionary = value.dictionary()) return objectFromDictionary(*dictionary);
  if (const Error* error = value.error()) return objectFromError(*error);
  return nil;
}

}  // namespace corvane
