#ifndef CORVANE_FOUNDATION_NODESTRUCTOR_H
#define CORVANE_FOUNDATION_NODESTRUCTOR_H

#include <utility>

namespace corvane {

/// What a function has as a `static` and is never destroyed: other threads may still use it while
/// the process ends, when others' statics are destroyed in the order opposite to their making.
template <typename T>
class NoDestructor {
 public:
  template <typename... Arguments>
  explicit NoDestructor(Arguments&&... arguments) : _value(std::forward<Arguments>(arguments)...) {}
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() {}

  T& operator*() { return _value; }
  T* operator->() { return &_value; }

 private:
  // A union does not destroy what it holds.
  union {
    T _value;
  };
};

}  // namespace corvane

#endif
