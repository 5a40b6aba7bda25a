#include <cstring>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <unordered_map>
#include <vector>

#include "tests/emulator/Objects.h"
#include "tests/emulator/Symbols.h"

extern "C" {
void emulatorMessage();
void emulatorMessageToParent();
void emulatorForward();
void* emulatorMethodFor(const emulator::Object* object, const char* selector);
void* emulatorMethodOfParent(const void* receiverAndClass, const char* selector);
void emulatorHandOn(const std::uint64_t* registers, const std::uint64_t* stack);
}

// Sending a message is a jump to its method, with every register as it was. Nil answers zero.
asm(R"(
    .macro SAVE
    push %rbp
    mov %rsp, %rbp
    sub $192, %rsp
    mov %rdi, (%rsp)
    mov %rsi, 8(%rsp)
    mov %rdx, 16(%rsp)
    mov %rcx, 24(%rsp)
    mov %r8, 32(%rsp)
    mov %r9, 40(%rsp)
    mov %rax, 48(%rsp)
    movdqu %xmm0, 64(%rsp)
    movdqu %xmm1, 80(%rsp)
    movdqu %xmm2, 96(%rsp)
    movdqu %xmm3, 112(%rsp)
    movdqu %xmm4, 128(%rsp)
    movdqu %xmm5, 144(%rsp)
    movdqu %xmm6, 160(%rsp)
    movdqu %xmm7, 176(%rsp)
    .endm
    .macro RESTORE
    mov (%rsp), %rdi
    mov 8(%rsp), %rsi
    mov 16(%rsp), %rdx
    mov 24(%rsp), %rcx
    mov 32(%rsp), %r8
    mov 40(%rsp), %r9
    mov 48(%rsp), %rax
    movdqu 64(%rsp), %xmm0
    movdqu 80(%rsp), %xmm1
    movdqu 96(%rsp), %xmm2
    movdqu 112(%rsp), %xmm3
    movdqu 128(%rsp), %xmm4
    movdqu 144(%rsp), %xmm5
    movdqu 160(%rsp), %xmm6
    movdqu 176(%rsp), %xmm7
    leave
    .endm

    .text
    .globl emulatorMessage
    .type emulatorMessage, @function
emulatorMessage:
    test %rdi, %rdi
    je 1f
    SAVE
    call emulatorMethodFor
    mov %rax, %r11
    RESTORE
    jmp *%r11
1:  xor %eax, %eax
    xor %edx, %edx
    pxor %xmm0, %xmm0
    pxor %xmm1, %xmm1
    ret
    .size emulatorMessage, .-emulatorMessage

    .globl emulatorMessageToParent
    .type emulatorMessageToParent, @function
emulatorMessageToParent:
    SAVE
    call emulatorMethodOfParent
    mov %rax, %r11
    RESTORE
    mov (%rdi), %rdi
    jmp *%r11
    .size emulatorMessageToParent, .-emulatorMessageToParent

    .globl emulatorForward
    .type emulatorForward, @function
emulatorForward:
    SAVE
    mov %rsp, %rdi
    lea 16(%rbp), %rsi
    call emulatorHandOn
    leave
    ret
    .size emulatorForward, .-emulatorForward
)");

namespace emulator {

namespace {

constexpr std::uint32_t isMeta = 0x1;

std::shared_mutex& lock() {
  static auto* const mutex = new std::shared_mutex;
  return *mutex;
}

struct Key {
  const Class* kind;
  Selector selector;
  bool operator==(const Key&) const = default;
};
struct Hash {
  std::size_t operator()(const Key& key) const {
    return std::hash<const void*>()(key.kind) * 31 + std::hash<const void*>()(key.selector);
  }
};
std::unordered_map<Key, Method, Hash>& methods() {
  static auto* const all = new std::unordered_map<Key, Method, Hash>;
  return *all;
}
std::unordered_map<std::string, Class*>& classes() {
  static auto* const all = new std::unordered_map<std::string, Class*>;
  return *all;
}

std::set<std::string>& names() {
  static auto* const all = new std::set<std::string>;
  return *all;
}
// With the lock held.
Selector unique(const char* name) {
  return names().emplace(name).first->c_str();
}

void takeMethods(const Class* kind) {
  MethodList* const list = kind->description()->methods;
  for (std::uint32_t i = 0; list != nullptr && i < list->count; ++i) {
    MethodList::Entry& entry = list->entries()[i];
    methods()[{kind, unique(entry.selector)}] = entry.method;
  }
}

std::uint32_t sizeOf(const Class* kind) {
  return kind->description()->size;
}

// A class was compiled with the size of its parent as that was then.
void moveFields(const Class* kind) {
  if (kind->parent == nullptr) return;
  ClassDescription* const own = kind->description();
  const std::uint32_t parentSize = sizeOf(kind->parent);
  if (own->start >= parentSize) return;
  const std::uint32_t by = (parentSize - own->start + 15) / 16 * 16;
  for (std::uint32_t i = 0; own->fields != nullptr && i < own->fields->count; ++i) {
    std::uint32_t* const offset = own->fields->entries()[i].offset;
    if (offset != nullptr) *offset += by;
  }
  own->start += by;
  own->size += by;
}

// A method can be called by any thread while none changes the table.
void takeClass(Class* kind) {
  static auto* const taken = new std::set<const Class*>;
  if (!taken->insert(kind).second) return;
  if (kind->parent != nullptr) takeClass(const_cast<Class*>(kind->parent));
  moveFields(kind);
  takeMethods(kind);
  takeMethods(kind->kind);
  const std::string name = kind->description()->name;
  classes()[name] = kind;
  // Texts in programs are of a class that goes by another name there.
  if (name == "EmulatorConstantText") {
    *constantTextClass() = *kind;
    takeMethods(constantTextClass());
  }
}

template <typename T>
std::span<T> entriesOf(const Image& image, const std::string& name) {
  for (const Image::Section& section : image.sections()) {
    if (section.name != name) continue;
    const auto content = image.content(section.segment, name);
    // NOLINTNEXTLINE(bugprone-sizeof-expression)
    return {reinterpret_cast<T*>(content.data()), content.size() / sizeof(T)};
  }
  return {};
}

void takeProtocol(ProtocolDescription* protocol) {
  for (MethodList* list : {protocol->methods, protocol->optionalMethods}) {
    for (std::uint32_t i = 0; list != nullptr && i < list->count; ++i) {
      list->entries()[i].selector = unique(list->entries()[i].selector);
    }
  }
}

std::string nameOf(const Class* kind) {
  return kind->description()->name;
}

// What the compiler and the library for macOS ask for.

const Class* classOf(const Object* object) {
  return object != nullptr ? object->kind : nullptr;
}
const Class* parentOf(const Class* kind) {
  return kind != nullptr ? kind->parent : nullptr;
}
const char* nameOfClass(const Class* kind) {
  return kind->description()->name;
}
const Class* classNamed(const char* name) {
  const std::shared_lock held(lock());
  const auto found = classes().find(name);
  return found != classes().end() ? found->second : nullptr;
}
signed char respondsTo(const Class* kind, Selector selector) {
  return methodOf(kind, selector) != nullptr ? 1 : 0;
}
signed char isKind(const Class* kind, const Class* ancestor) {
  return isKindOf(kind, ancestor) ? 1 : 0;
}
const char* nameOfSelector(Selector selector) {
  return selector;
}
Selector registerName(const char* name) {
  return selectorNamed(name);
}

// The description of a method, in a protocol and in those that it adopts; null if it has none.
const char* typesIn(ProtocolDescription* protocol, Selector selector) {
  for (MethodList* list : {protocol->methods, protocol->optionalMethods}) {
    for (std::uint32_t i = 0; list != nullptr && i < list->count; ++i) {
      const MethodList::Entry& entry = list->entries()[i];
      if (std::strcmp(entry.selector, selector) == 0) return entry.types;
    }
  }
  ProtocolList* const adopted = protocol->protocols;
  for (std::uint64_t i = 0; adopted != nullptr && i < adopted->count; ++i) {
    if (const char* types = typesIn(adopted->entries()[i], selector)) return types;
  }
  return nullptr;
}

}  // namespace

Class* missingClass(const std::string& name) {
  auto* const description = new ClassDescription{};
  description->flags = isMeta;
  description->name = ::strdup(name.c_str());
  auto* const kind = new Class{};
  kind->kind = kind;
  kind->data = reinterpret_cast<std::uintptr_t>(description);
  return kind;
}

Class* constantTextClass() {
  static Class kind{};
  return &kind;
}

void takeObjects(const Image& image) {
  if (!entriesOf<const void*>(image, "__objc_catlist").empty()) fail("categories are not known");
  const std::unique_lock held(lock());
  for (Selector& selector : entriesOf<Selector>(image, "__objc_selrefs")) {
    selector = unique(selector);
  }
  for (Class* kind : entriesOf<Class*>(image, "__objc_classlist")) takeClass(kind);
  for (ProtocolDescription* protocol : entriesOf<ProtocolDescription*>(image, "__objc_protolist")) {
    takeProtocol(protocol);
    protocol->kind = classes()["Protocol"];
  }
}

Selector selectorNamed(const std::string& name) {
  const std::unique_lock held(lock());
  return unique(name.c_str());
}

Method methodOf(const Class* kind, Selector selector) {
  const std::shared_lock held(lock());
  for (; kind != nullptr; kind = kind->parent) {
    const auto found = methods().find({kind, selector});
    if (found != methods().end()) return found->second;
  }
  return nullptr;
}

bool isKindOf(const Class* kind, const Class* ancestor) {
  for (; kind != nullptr; kind = kind->parent) {
    if (kind == ancestor) return true;
  }
  return false;
}

Method methodFor(const Object* object, Selector selector) {
  requireLiving(object);
  if (const Method method = methodOf(object->kind, selector)) return method;
  // An object that hands messages on gets them as they are.
  static const Selector hands = selectorNamed("emulatorHandOn:");
  if (methodOf(object->kind, hands) != nullptr) return &emulatorForward;
  const bool isClass = (object->kind->description()->flags & isMeta) != 0;
  fail(std::string(isClass ? "+" : "-") + nameOf(object->kind) + " has no " + selector);
}

std::span<const Symbol> objectClassSymbols() {
  static const Symbol symbols[] = {
      function("_objc_msgSend", &emulatorMessage),
      function("_objc_msgSendSuper2", &emulatorMessageToParent),
      function("_object_getClass", &classOf),
      function("_class_getSuperclass", &parentOf),
      function("_class_getName", &nameOfClass),
      function("_class_respondsToSelector", &respondsTo),
      function("_objc_getClass", &classNamed),
      function("_objc_lookUpClass", &classNamed),
      function("_sel_getName", &nameOfSelector),
      function("_sel_registerName", &registerName),
      function("_emulator_is_kind_of", &isKind),
      function("_emulator_types_in_protocol", &typesIn),
      {"___CFConstantStringClassReference", constantTextClass()},
      {"__objc_empty_cache", constantTextClass()},
  };
  return symbols;
}

}  // namespace emulator

void* emulatorMethodFor(const emulator::Object* object, const char* selector) {
  return reinterpret_cast<void*>(emulator::methodFor(object, selector));
}

// What a message that an object hands on was sent with, the object and the selector first. None has
// more than this.
void emulatorHandOn(const std::uint64_t* registers, const std::uint64_t* stack) {
  std::uint64_t words[8];
  std::memcpy(words, registers, 6 * sizeof words[0]);
  std::memcpy(words + 6, stack, 2 * sizeof words[0]);
  // NOLINTNEXTLINE(performance-no-int-to-ptr)
  auto* const object = reinterpret_cast<emulator::Object*>(words[0]);
  static const emulator::Selector hands = emulator::selectorNamed("emulatorHandOn:");
  using HandOn = void (*)(emulator::Object*, emulator::Selector, const std::uint64_t*);
  reinterpret_cast<HandOn>(emulator::methodOf(object->kind, hands))(object, hands, words);
}

void* emulatorMethodOfParent(const void* receiverAndClass, const char* selector) {
  const auto* const pair = static_cast<const void* const*>(receiverAndClass);
  const auto* const kind = static_cast<const emulator::Class*>(pair[1]);
  const emulator::Method method = emulator::methodOf(kind->parent, selector);
  if (method == nullptr) {
    emulator::fail(std::string(kind->description()->name) + "'s parent has no " + selector);
  }
  return reinterpret_cast<void*>(method);
}
