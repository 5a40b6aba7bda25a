#ifndef CORVANE_TESTS_EMULATOR_OBJECTS_H
#define CORVANE_TESTS_EMULATOR_OBJECTS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "tests/emulator/Image.h"

// The runtime of Objective-C, of which compilers know the layouts here and the functions that
// `objectSymbols` has.
namespace emulator {

struct Object;
using Method = void (*)();
/// One for each name, so that they are compared as pointers.
using Selector = const char*;

struct MethodList {
  std::uint32_t entrySize;
  std::uint32_t count;
  struct Entry {
    Selector selector;
    const char* types;
    Method method;
  };
  Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
};

struct FieldList {
  std::uint32_t entrySize;
  std::uint32_t count;
  struct Entry {
    std::uint32_t* offset;
    const char* name;
    const char* type;
    std::uint32_t alignment;
    std::uint32_t size;
  };
  Entry* entries() { return reinterpret_cast<Entry*>(this + 1); }
};

struct ProtocolDescription;
struct ProtocolList {
  std::uint64_t count;
  ProtocolDescription** entries() { return reinterpret_cast<ProtocolDescription**>(this + 1); }
};
struct ProtocolDescription {
  const void* kind;
  const char* name;
  ProtocolList* protocols;
  MethodList* methods;
  MethodList* classMethods;
  MethodList* optionalMethods;
};

struct ClassDescription {
  std::uint32_t flags;
  std::uint32_t start;
  std::uint32_t size;
  std::uint32_t reserved;
  const void* strongFields;
  const char* name;
  MethodList* methods;
  ProtocolList* protocols;
  FieldList* fields;
};

struct Class {
  const Class* kind;
  const Class* parent;
  const void* cache;
  std::uint64_t table;
  std::uintptr_t data;

  ClassDescription* description() const {
    // NOLINTNEXTLINE(performance-no-int-to-ptr)
    return reinterpret_cast<ClassDescription*>(data & ~std::uintptr_t{7});
  }
};
static_assert(sizeof(Class) == 40 && sizeof(MethodList::Entry) == 24 &&
              sizeof(FieldList::Entry) == 32 && offsetof(ClassDescription, fields) == 48);

struct Object {
  const Class* kind;
};

/// Takes in the classes of an image, whose fields begin where those of their parents end.
void takeObjects(const Image& image);

Selector selectorNamed(const std::string& name);
/// Null if there is none by that name, in the class and in those above it.
Method methodOf(const Class* kind, Selector selector);
/// The same with an end of the process, saying which class has which message not.
Method methodFor(const Object* object, Selector selector);
bool isKindOf(const Class* kind, const Class* ancestor);

/// A class that there is not. A message to it ends the process with its name.
Class* missingClass(const std::string& name);

/// The class of texts that stand in programs, which are in no image's list of classes.
Class* constantTextClass();

/// An object with all fields zero, and one reference to it.
Object* newObject(const Class* kind);
/// Its fields first. A message to it after this ends the process.
void endObject(Object* object);
/// Ends the process if the object has come to its end.
void requireLiving(const Object* object);

}  // namespace emulator

#endif
