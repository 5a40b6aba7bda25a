#ifndef CORVANE_FOUNDATION_FILEDESCRIPTOR_H
#define CORVANE_FOUNDATION_FILEDESCRIPTOR_H

#include <utility>

#include <unistd.h>

namespace corvane {

/// Owns a file descriptor and closes it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  /// Takes ownership of `descriptor`; a negative number owns nothing.
  explicit FileDescriptor(int descriptor) : _descriptor(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : _descriptor(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    reset(other.release());
    return *this;
  }
  ~FileDescriptor() { reset(); }

  int get() const { return _descriptor; }
  explicit operator bool() const { return _descriptor >= 0; }

  /// Gives the descriptor up without closing it.
  int release() { return std::exchange(_descriptor, -1); }
  void reset(int descriptor = -1) {
    // close() releases the descriptor even when it is interrupted, so it is never called twice.
    if (_descriptor >= 0 && _descriptor != descriptor) ::close(_descriptor);
    _descriptor = descriptor;
  }

 private:
  int _descriptor = -1;
};

}  // namespace corvane

#endif
