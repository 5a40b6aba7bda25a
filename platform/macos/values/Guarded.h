#ifndef CORVANE_PLATFORM_MACOS_VALUES_GUARDED_H
#define CORVANE_PLATFORM_MACOS_VALUES_GUARDED_H

#include "foundation/Exception.h"
#include "platform/macos/values/ObjectValue.h"

// The runtime's own, which its headers do not declare.
extern "C" {
void* objc_autoreleasePoolPush();
void objc_autoreleasePoolPop(void* pool);
}

namespace corvane {

/// A pool for objects that ends with its scope. The language's own ends with an outer one, or with
/// the thread, when an exception leaves it.
class ObjectPool {
 public:
  ObjectPool() : _pool(objc_autoreleasePoolPush()) {}
  ObjectPool(const ObjectPool&) = delete;
  ObjectPool& operator=(const ObjectPool&) = delete;
  ~ObjectPool() { objc_autoreleasePoolPop(_pool); }

 private:
  void* _pool;
};

/// Does `work` for a caller above the seam: in a pool of its own, so that nothing waits there for
/// the end of a thread, and with an exception of the system's runtime turned into one of ours.
template <typename Work>
auto guarded(Work work) {
  const ObjectPool pool;
  @try {
    return work();
  } @catch (NSException* exception) {
    throw Exception(textFromObject(exception.name).value_or("NSException"),
                    textFromObject(exception.reason).value_or(""));
  }
}

}  // namespace corvane

#endif
