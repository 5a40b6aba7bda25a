#ifndef CORVANE_CLIENT_CLI_OUTPUT_OUTPUTWRITER_H
#define CORVANE_CLIENT_CLI_OUTPUT_OUTPUTWRITER_H

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <map>
#include <mutex>
#include <thread>

#include "foundation/Value.h"

namespace corvane::cli {

/// Writes chunks to descriptors, in the order in which they came, on a thread of its own: a reader
/// that pauses does not hold up the one that the chunks come from.
class OutputWriter {
 public:
  /// How much may wait for a reader, in bytes. With more, write() waits too.
  static constexpr std::size_t maximumPending = std::size_t{64} << 20;

  OutputWriter();
  OutputWriter(const OutputWriter&) = delete;
  OutputWriter& operator=(const OutputWriter&) = delete;
  /// Finishes.
  ~OutputWriter();

  void write(int descriptor, Data chunk);
  /// Waits until everything is written. The errno value of the first failure, or 0; a reader that
  /// has left is none, and misses the rest.
  int finish();

 private:
  struct Pending {
    int descriptor;
    Data chunk;
  };

  void run();

  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Pending> _pending;
  std::size_t _pendingSize = 0;
  bool _isFinishing = false;
  /// The descriptors that nothing more is written to, and why.
  std::map<int, int> _failures;
  std::thread _thread;
};

}  // namespace corvane::cli

#endif
