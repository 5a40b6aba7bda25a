#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include <pthread.h>
#include <unistd.h>

#include "tests/emulator/Image.h"
#include "tests/emulator/Symbols.h"

// NOLINTNEXTLINE(bugprone-reserved-identifier): the C library's, which no header of it declares
extern "C" int __cxa_thread_atexit_impl(void (*destroy)(void*), void* object, void* library);
extern "C" void* emulatorThreadVariable(void* descriptor);

// Where a variable of the calling thread is; called with its descriptor in rdi, by code that
// expects every other register to stay as it is.
asm(R"(
    .text
    .globl emulatorThreadVariableThunk
    .type emulatorThreadVariableThunk, @function
emulatorThreadVariableThunk:
    push %rbp
    mov %rsp, %rbp
    push %rdi
    push %rsi
    push %rdx
    push %rcx
    push %r8
    push %r9
    push %r10
    push %r11
    sub $256, %rsp
    movdqu %xmm0, (%rsp)
    movdqu %xmm1, 16(%rsp)
    movdqu %xmm2, 32(%rsp)
    movdqu %xmm3, 48(%rsp)
    movdqu %xmm4, 64(%rsp)
    movdqu %xmm5, 80(%rsp)
    movdqu %xmm6, 96(%rsp)
    movdqu %xmm7, 112(%rsp)
    movdqu %xmm8, 128(%rsp)
    movdqu %xmm9, 144(%rsp)
    movdqu %xmm10, 160(%rsp)
    movdqu %xmm11, 176(%rsp)
    movdqu %xmm12, 192(%rsp)
    movdqu %xmm13, 208(%rsp)
    movdqu %xmm14, 224(%rsp)
    movdqu %xmm15, 240(%rsp)
    call emulatorThreadVariable
    movdqu (%rsp), %xmm0
    movdqu 16(%rsp), %xmm1
    movdqu 32(%rsp), %xmm2
    movdqu 48(%rsp), %xmm3
    movdqu 64(%rsp), %xmm4
    movdqu 80(%rsp), %xmm5
    movdqu 96(%rsp), %xmm6
    movdqu 112(%rsp), %xmm7
    movdqu 128(%rsp), %xmm8
    movdqu 144(%rsp), %xmm9
    movdqu 160(%rsp), %xmm10
    movdqu 176(%rsp), %xmm11
    movdqu 192(%rsp), %xmm12
    movdqu 208(%rsp), %xmm13
    movdqu 224(%rsp), %xmm14
    movdqu 240(%rsp), %xmm15
    add $256, %rsp
    pop %r11
    pop %r10
    pop %r9
    pop %r8
    pop %rcx
    pop %rdx
    pop %rsi
    pop %rdi
    pop %rbp
    ret
    .size emulatorThreadVariableThunk, .-emulatorThreadVariableThunk
)");
extern "C" void emulatorThreadVariableThunk();

namespace {

// What the linker makes of each variable: the last word is its place among all of them.
struct ThreadVariable {
  void (*thunk)();
  std::uint64_t key;
  std::uint64_t offset;
};

struct Free {
  void operator()(void* memory) const { std::free(memory); }
};
using Variables = std::unique_ptr<std::byte, Free>;
// Those of each image.
thread_local std::unordered_map<const emulator::Image*, Variables> variables;

// The variables of a thread as they begin: those with values, then those that are zero.
std::byte* newVariables(const emulator::Image& image) {
  constexpr std::uint32_t regular = 0x11;
  constexpr std::uint32_t zeroed = 0x12;
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  std::span<const std::byte> content;
  for (const auto& section : image.sections()) {
    if (section.type != regular && section.type != zeroed) continue;
    if (begin == 0) begin = section.address;
    end = section.address + section.size;
    if (section.type == regular) {
      content = image.content(section.segment, section.name);
    }
  }
  auto* const memory =
      static_cast<std::byte*>(std::aligned_alloc(64, (end - begin + 63) / 64 * 64));
  std::memset(memory, 0, end - begin);
  if (!content.empty()) {
    std::memcpy(memory + (reinterpret_cast<std::uint64_t>(content.data()) - begin), content.data(),
                content.size());
  }
  return memory;
}

}  // namespace

void* emulatorThreadVariable(void* descriptor) {
  const emulator::Image* const image = emulator::Image::around(descriptor);
  Variables& ofImage = variables[image];
  if (ofImage == nullptr) ofImage.reset(newVariables(*image));
  return ofImage.get() + static_cast<const ThreadVariable*>(descriptor)->offset;
}

namespace emulator {

namespace {

// A mutex of macOS has 64 bytes, of which the first eight say what it is; the rest begins as zeros,
// which is what one of this system begins as.
constexpr std::uint64_t mutexSignature = 0x32AAABA7;
struct Mutex {
  std::uint64_t signature;
  pthread_mutex_t host;
};
static_assert(sizeof(Mutex) <= 64);

int initializeMutex(Mutex* mutex, const void* attributes) {
  if (attributes != nullptr) fail("a mutex of another kind than the usual");
  mutex->signature = mutexSignature;
  return ::pthread_mutex_init(&mutex->host, nullptr);
}
int lockMutex(Mutex* mutex) {
  return ::pthread_mutex_lock(&mutex->host);
}
int tryToLockMutex(Mutex* mutex) {
  const int result = ::pthread_mutex_trylock(&mutex->host);
  return result == 0 ? 0 : darwinError(result);
}
int unlockMutex(Mutex* mutex) {
  return ::pthread_mutex_unlock(&mutex->host);
}
int destroyMutex(Mutex* mutex) {
  return ::pthread_mutex_destroy(&mutex->host);
}

// A condition has 48 bytes on both systems, so this one's takes the place of the signature as well,
// when it is first used.
constexpr std::uint64_t conditionSignature = 0x3CB0B1BB;
pthread_cond_t* condition(void* memory) {
  std::atomic_ref<std::uint64_t> signature(*static_cast<std::uint64_t*>(memory));
  std::uint64_t expected = conditionSignature;
  signature.compare_exchange_strong(expected, 0);
  return static_cast<pthread_cond_t*>(memory);
}
static_assert(sizeof(pthread_cond_t) == 48);

int signalCondition(void* memory) {
  return ::pthread_cond_signal(condition(memory));
}
int broadcastCondition(void* memory) {
  return ::pthread_cond_broadcast(condition(memory));
}
int waitForCondition(void* memory, Mutex* mutex) {
  return ::pthread_cond_wait(condition(memory), &mutex->host);
}
int waitForConditionUntil(void* memory, Mutex* mutex, const timespec* time) {
  const int result = ::pthread_cond_timedwait(condition(memory), &mutex->host, time);
  return result == 0 ? 0 : darwinError(result);
}
int destroyCondition(void* memory) {
  return ::pthread_cond_destroy(condition(memory));
}

// One of 200 bytes, which begins as a mutex does.
struct ReadWriteLock {
  std::uint64_t signature;
  pthread_rwlock_t host;
};
static_assert(sizeof(ReadWriteLock) <= 200);

int lockForReading(ReadWriteLock* lock) {
  return ::pthread_rwlock_rdlock(&lock->host);
}
int lockForWriting(ReadWriteLock* lock) {
  return ::pthread_rwlock_wrlock(&lock->host);
}
int unlockReadWrite(ReadWriteLock* lock) {
  return ::pthread_rwlock_unlock(&lock->host);
}

int createKey(unsigned long* key, void (*destroy)(void*)) {
  pthread_key_t host = 0;
  const int result = ::pthread_key_create(&host, destroy);
  *key = host;
  return result;
}
int setValueOfKey(unsigned long key, const void* value) {
  return ::pthread_setspecific(static_cast<pthread_key_t>(key), value);
}

int deleteKey(unsigned long key) {
  return ::pthread_key_delete(static_cast<pthread_key_t>(key));
}

int createThread(pthread_t* thread, const void* attributes, void* (*body)(void*), void* argument) {
  if (attributes != nullptr) fail("a thread of another kind than the usual");
  return ::pthread_create(thread, nullptr, body, argument);
}
unsigned int numberOfThread(pthread_t thread) {
  if (::pthread_equal(thread, ::pthread_self()) == 0) fail("the number of another thread");
  return static_cast<unsigned int>(::gettid());
}

int destroyAtEndOfThread(void (*destroy)(void*), void* object) {
  return __cxa_thread_atexit_impl(destroy, object, nullptr);
}

}  // namespace

std::span<const Symbol> threadSymbols() {
  static const Symbol symbols[] = {
      function("__tlv_bootstrap", &emulatorThreadVariableThunk),
      function("__tlv_atexit", &destroyAtEndOfThread),
      function("_pthread_mutex_init", &initializeMutex),
      function("_pthread_mutex_lock", &lockMutex),
      function("_pthread_mutex_trylock", &tryToLockMutex),
      function("_pthread_mutex_unlock", &unlockMutex),
      function("_pthread_mutex_destroy", &destroyMutex),
      function("_pthread_cond_signal", &signalCondition),
      function("_pthread_cond_broadcast", &broadcastCondition),
      function("_pthread_cond_wait", &waitForCondition),
      function("_pthread_cond_timedwait", &waitForConditionUntil),
      function("_pthread_cond_destroy", &destroyCondition),
      function("_pthread_key_create", &createKey),
      function("_pthread_setspecific", &setValueOfKey),
      function("_pthread_key_delete", &deleteKey),
      function("_pthread_rwlock_rdlock", &lockForReading),
      function("_pthread_rwlock_wrlock", &lockForWriting),
      function("_pthread_rwlock_unlock", &unlockReadWrite),
      function("_pthread_create", &createThread),
      function("_pthread_mach_thread_np", &numberOfThread),
  };
  return symbols;
}

}  // namespace emulator
