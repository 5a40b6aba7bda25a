#ifndef CORVANE_FOUNDATION_ATOMIC_H
#define CORVANE_FOUNDATION_ATOMIC_H

#include <mutex>
#include <utility>

namespace corvane {

/// A value that any thread reads and replaces as a whole, whatever its size.
template <typename T>
class Atomic {
 public:
  Atomic() = default;
  explicit Atomic(T value) : _value(std::move(value)) {}

  T load() const {
    const std::lock_guard lock(_mutex);
    return _value;
  }
  void store(T value) {
    // Swapped, so that the old value is destroyed with the parameter, after the lock is free again.
    const std::lock_guard lock(_mutex);
    std::swap(_value, value);
  }
  /// Stores `value` unless there is one already (a value that is true); tells whether it did.
  bool storeIfEmpty(T value) {
    const std::lock_guard lock(_mutex);
    if (_value) return false;
    _value = std::move(value);
    return true;
  }

 private:
  mutable std::mutex _mutex;
  T _value{};
};

}  // namespace corvane

#endif
