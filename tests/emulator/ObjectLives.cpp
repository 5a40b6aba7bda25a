#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include "tests/emulator/Objects.h"
#include "tests/emulator/Symbols.h"

namespace emulator {

namespace {

// What is before every object. Its memory is never used again, so that what comes after its end is
// seen whenever it comes.
struct Header {
  std::atomic<std::int64_t> count;
  const Class* kind;
};
static_assert(sizeof(Header) == 16);

struct Block {
  const void* kind;
  std::atomic<std::int32_t> flags;
  std::int32_t reserved;
  void (*invoke)();
  struct Description {
    std::uint64_t reserved;
    std::uint64_t size;
    void (*copy)(Block*, const Block*);
    void (*destroy)(Block*);
  } const* description;
};
constexpr std::int32_t blockIsOnHeap = 1 << 24;
constexpr std::int32_t blockHasHelpers = 1 << 25;

// The classes of blocks have no methods here.
Class stackBlock;
Class globalBlock;
Class heapBlock;

std::mutex& lock() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}
std::map<std::string, std::int64_t>& census() {
  static auto* const all = new std::map<std::string, std::int64_t>;
  return *all;
}
void enter(const std::string& kind, int change) {
  const std::lock_guard held(lock());
  census()[kind] += change;
}

Header* headerOf(const void* object) {
  return static_cast<Header*>(const_cast<void*>(object)) - 1;
}

bool isBlock(const void* object) {
  const void* const kind = static_cast<const Object*>(object)->kind;
  return kind == &stackBlock || kind == &globalBlock || kind == &heapBlock;
}
// Neither classes nor what else stands in programs is counted.
bool isCounted(const Object* object) {
  return Image::around(object) == nullptr;
}

Block* copyBlock(Block* block) {
  if (block == nullptr || block->kind == &globalBlock) return block;
  if (block->kind == &heapBlock) {
    ++headerOf(block)->count;
    return block;
  }
  const std::size_t size = block->description->size;
  auto* const header = static_cast<Header*>(std::malloc(sizeof(Header) + size));
  if (header == nullptr) fail("there is no memory");
  new (header) Header{1, &heapBlock};
  auto* const copy = reinterpret_cast<Block*>(header + 1);
  std::memcpy(static_cast<void*>(copy), static_cast<const void*>(block), size);
  copy->kind = &heapBlock;
  copy->flags |= blockIsOnHeap;
  if ((copy->flags & blockHasHelpers) != 0) block->description->copy(copy, block);
  enter("a block", 1);
  return copy;
}

void releaseBlock(Block* block) {
  if (block == nullptr || block->kind != &heapBlock) return;
  const std::int64_t left = --headerOf(block)->count;
  if (left < 0) fail("a block was released once too often");
  if (left > 0) return;
  if ((block->flags & blockHasHelpers) != 0) block->description->destroy(block);
  enter("a block", -1);
}

Object* retain(Object* object) {
  if (object == nullptr) return nullptr;
  // One on the stack stays there until it is copied.
  if (isBlock(object)) {
    if (static_cast<const void*>(object->kind) == &heapBlock) ++headerOf(object)->count;
    return object;
  }
  requireLiving(object);
  if (!isCounted(object)) return object;
  ++headerOf(object)->count;
  return object;
}

void forgetWeakly(Object* object);

void release(Object* object) {
  if (object == nullptr) return;
  if (isBlock(object)) return releaseBlock(reinterpret_cast<Block*>(object));
  requireLiving(object);
  if (!isCounted(object)) return;
  {
    const std::lock_guard held(lock());
    if (--headerOf(object)->count > 0) return;
  }
  forgetWeakly(object);
  static const Selector dealloc = selectorNamed("dealloc");
  reinterpret_cast<void (*)(Object*, Selector)>(methodFor(object, dealloc))(object, dealloc);
}

// The objects that wait for the end of their pool, in one list for each thread: a pool is how many
// were in it before. What has no pool is released with its thread.
struct Waiting {
  std::vector<Object*> objects;
  Waiting() = default;
  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;
  ~Waiting() { releaseDownTo(0); }

  void releaseDownTo(std::size_t count) {
    while (objects.size() > count) {
      Object* const last = objects.back();
      objects.pop_back();
      release(last);
    }
  }
};
thread_local Waiting waiting;

Object* autorelease(Object* object) {
  if (object != nullptr) waiting.objects.push_back(object);
  return object;
}
std::size_t pushPool() {
  return waiting.objects.size();
}
void popPool(std::size_t pool) {
  if (pool > waiting.objects.size()) fail("a pool ends before one that is in it");
  waiting.releaseDownTo(pool);
}
// Nothing was handed over by anything but a pool.
Object* returned(Object* object) {
  return object;
}
Object* retainAutorelease(Object* object) {
  return autorelease(retain(object));
}

// Places that hold an object without keeping it.
std::map<Object**, Object*>& weakPlaces() {
  static auto* const all = new std::map<Object**, Object*>;
  return *all;
}
Object* storeWeak(Object** place, Object* object) {
  const std::lock_guard held(lock());
  *place = object;
  if (object == nullptr) {
    weakPlaces().erase(place);
  } else {
    weakPlaces()[place] = object;
  }
  return object;
}
Object* loadWeak(Object** place) {
  const std::lock_guard held(lock());
  Object* const object = *place;
  // One on its way to its end stays on it.
  if (object == nullptr || !isCounted(object) || headerOf(object)->count == 0) return nullptr;
  ++headerOf(object)->count;
  return object;
}
void destroyWeak(Object** place) {
  storeWeak(place, nullptr);
}
void copyWeak(Object** to, Object** from) {
  Object* const object = loadWeak(from);
  storeWeak(to, object);
  release(object);
}
void forgetWeakly(Object* object) {
  const std::lock_guard held(lock());
  std::erase_if(weakPlaces(), [object](const auto& place) {
    if (place.second != object) return false;
    *place.first = nullptr;
    return true;
  });
}

void storeStrong(Object** place, Object* object) {
  Object* const before = *place;
  *place = retain(object);
  release(before);
}

// Objects as they are: what is copied here never changes.
Object* copyOf(Object* object) {
  if (object == nullptr || !isBlock(object)) return retain(object);
  return reinterpret_cast<Object*>(copyBlock(reinterpret_cast<Block*>(object)));
}

// Properties, at an offset in their object.
std::mutex& propertyLock() {
  static auto* const mutex = new std::mutex;
  return *mutex;
}
Object** propertyAt(Object* object, std::ptrdiff_t offset) {
  return reinterpret_cast<Object**>(reinterpret_cast<std::byte*>(object) + offset);
}
Object* getProperty(Object* object, Selector /*name*/, std::ptrdiff_t offset, bool /*isAtomic*/) {
  const std::lock_guard held(propertyLock());
  return retainAutorelease(*propertyAt(object, offset));
}
void exchangeProperty(Object* object, Object* value, std::ptrdiff_t offset) {
  Object* before = nullptr;
  {
    const std::lock_guard held(propertyLock());
    before = std::exchange(*propertyAt(object, offset), value);
  }
  release(before);
}
void setProperty(Object* object, Selector /*name*/, Object* value, std::ptrdiff_t offset) {
  exchangeProperty(object, retain(value), offset);
}
void setCopiedProperty(Object* object, Selector /*name*/, Object* value, std::ptrdiff_t offset) {
  exchangeProperty(object, copyOf(value), offset);
}

Object* allocate(const Class* kind) {
  static const Selector alloc = selectorNamed("alloc");
  const auto* const object = reinterpret_cast<const Object*>(kind);
  return reinterpret_cast<Object* (*)(const Object*, Selector)>(methodFor(object, alloc))(object,
                                                                                          alloc);
}

// What blocks hold that is no object of the compiler's own counting.
void assignInBlock(Object** place, Object* object, int kind) {
  constexpr int isObject = 3;
  constexpr int isBlock = 7;
  if (kind != isObject && kind != isBlock) fail("a variable of a block that is not known");
  *place = copyOf(object);
}
void disposeInBlock(Object* object, int /*kind*/) {
  release(object);
}

std::int64_t livingObjects() {
  const std::lock_guard held(lock());
  std::int64_t all = 0;
  for (const auto& [kind, count] : census()) all += count;
  return all;
}
// What there is of each class, in lines.
void describeLivingObjects(char* text, std::size_t size) {
  const std::lock_guard held(lock());
  std::string lines;
  for (const auto& [kind, count] : census()) {
    if (count != 0) lines += std::to_string(count) + " of " + kind + "\n";
  }
  std::snprintf(text, size, "%s", lines.c_str());
}

// Fields that are of C++ or hold objects have functions that make and destroy those of one class.
void callForFields(Object* object, const Class* kind, Selector selector) {
  using ForFields = void (*)(Object*, Selector);
  const Method own = methodOf(kind, selector);
  const Method above = kind->parent != nullptr ? methodOf(kind->parent, selector) : nullptr;
  if (own != nullptr && own != above) reinterpret_cast<ForFields>(own)(object, selector);
}
void makeFields(Object* object, const Class* kind) {
  static const Selector make = selectorNamed(".cxx_construct");
  if (kind->parent != nullptr) makeFields(object, kind->parent);
  callForFields(object, kind, make);
}

}  // namespace

Object* newObject(const Class* kind) {
  void* const memory = std::calloc(1, sizeof(Header) + kind->description()->size);
  if (memory == nullptr) fail("there is no memory");
  auto* const header = new (memory) Header{1, kind};
  auto* const object = reinterpret_cast<Object*>(header + 1);
  object->kind = kind;
  makeFields(object, kind);
  enter(kind->description()->name, 1);
  return object;
}

void endObject(Object* object) {
  static const Selector destroy = selectorNamed(".cxx_destruct");
  const std::string name = object->kind->description()->name;
  for (const Class* kind = object->kind; kind != nullptr; kind = kind->parent) {
    callForFields(object, kind, destroy);
  }
  enter(name, -1);
  object->kind = nullptr;
}

void requireLiving(const Object* object) {
  if (object->kind != nullptr) return;
  fail(std::string("an object is used after its end: ") +
       headerOf(object)->kind->description()->name);
}

std::span<const Symbol> objectLifeSymbols() {
  static const Symbol symbols[] = {
      {"__NSConcreteStackBlock", &stackBlock},
      {"__NSConcreteGlobalBlock", &globalBlock},
      function("__Block_copy", &copyBlock),
      function("__Block_release", &releaseBlock),
      function("__Block_object_assign", &assignInBlock),
      function("__Block_object_dispose", &disposeInBlock),
      function("_objc_alloc", &allocate),
      function("_objc_retain", &retain),
      function("_objc_release", &release),
      function("_objc_autorelease", &autorelease),
      function("_objc_autoreleasePoolPush", &pushPool),
      function("_objc_autoreleasePoolPop", &popPool),
      function("_objc_autoreleaseReturnValue", &autorelease),
      function("_objc_retainAutorelease", &retainAutorelease),
      function("_objc_retainAutoreleaseReturnValue", &retainAutorelease),
      function("_objc_retainAutoreleasedReturnValue", &retain),
      function("_objc_unsafeClaimAutoreleasedReturnValue", &returned),
      function("_objc_retainBlock", &copyBlock),
      function("_objc_storeStrong", &storeStrong),
      function("_objc_storeWeak", &storeWeak),
      function("_objc_initWeak", &storeWeak),
      function("_objc_loadWeakRetained", &loadWeak),
      function("_objc_destroyWeak", &destroyWeak),
      function("_objc_copyWeak", &copyWeak),
      function("_objc_getProperty", &getProperty),
      function("_objc_setProperty_atomic", &setProperty),
      function("_objc_setProperty_nonatomic", &setProperty),
      function("_objc_setProperty_atomic_copy", &setCopiedProperty),
      function("_objc_setProperty_nonatomic_copy", &setCopiedProperty),
      function("_class_createInstance", &newObject),
      function("_object_dispose", &endObject),
      function("_emulator_living_objects", &livingObjects),
      function("_emulator_describe_living_objects", &describeLivingObjects),
  };
  return symbols;
}

}  // namespace emulator
