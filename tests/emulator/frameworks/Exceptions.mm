#include <exception>
#include <typeinfo>

#include <cxxabi.h>
#include <unwind.h>

#include "tests/emulator/frameworks/Runtime.h"

// Exceptions of Objective-C are those of C++ with types of their own, which the compiler lays out
// as std::type_info is: a table of functions, a name, and the class.

namespace __cxxabiv1 {
extern "C" {
_Unwind_Reason_Code __gxx_personality_v0(int version, _Unwind_Action actions,
                                         std::uint64_t exceptionClass, _Unwind_Exception* exception,
                                         _Unwind_Context* context);
}
}  // namespace __cxxabiv1

extern "C" {

struct ExceptionType {
  const void* const* functions;
  const char* name;
  __unsafe_unretained Class kind;
};
struct Thrown {
  __unsafe_unretained id object;
  ExceptionType type;
};

id objc_retain(id object);
void objc_release(id object);
void objc_exception_throw(id object);
id objc_begin_catch(void* exception);
void objc_end_catch();
void objc_exception_rethrow();
void objc_terminate();
extern const void* const objc_ehtype_vtable[];

static void nothing() {}

// Whether a handler takes what was thrown; what it gets then is the object.
static bool canCatch(const ExceptionType* handler, const ExceptionType* thrown, void** object) {
  if (thrown->functions != objc_ehtype_vtable + 2) return false;
  if (handler->kind != nil && !emulator_is_kind_of(thrown->kind, handler->kind)) return false;
  *object = *static_cast<void**>(*object);
  return true;
}

// As those of std::type_info: where its own begin, two destructors, two that are not used.
const void* const objc_ehtype_vtable[] = {nullptr,
                                          nullptr,
                                          reinterpret_cast<const void*>(&nothing),
                                          reinterpret_cast<const void*>(&nothing),
                                          reinterpret_cast<const void*>(&nothing),
                                          reinterpret_cast<const void*>(&nothing),
                                          reinterpret_cast<const void*>(&canCatch)};

static void destroyThrown(void* exception) {
  objc_release(static_cast<Thrown*>(exception)->object);
}

void objc_exception_throw(id object) {
  auto* const thrown = static_cast<Thrown*>(__cxxabiv1::__cxa_allocate_exception(sizeof(Thrown)));
  const Class kind = object_getClass(object);
  *thrown = {objc_retain(object), {objc_ehtype_vtable + 2, class_getName(kind), kind}};
  __cxxabiv1::__cxa_throw(thrown, reinterpret_cast<std::type_info*>(&thrown->type), &destroyThrown);
}

id objc_begin_catch(void* exception) {
  return (id)__cxxabiv1::__cxa_begin_catch(exception);
}
void objc_end_catch() {
  __cxxabiv1::__cxa_end_catch();
}
void objc_exception_rethrow() {
  __cxxabiv1::__cxa_rethrow();
}
void objc_terminate() {
  std::terminate();
}

_Unwind_Reason_Code __objc_personality_v0(int version, _Unwind_Action actions,
                                          std::uint64_t exceptionClass,
                                          _Unwind_Exception* exception, _Unwind_Context* context) {
  return __cxxabiv1::__gxx_personality_v0(version, actions, exceptionClass, exception, context);
}

}  // extern "C"
