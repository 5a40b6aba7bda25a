#ifndef CORVANE_OPERATIONS_OPERATIONRUN_H
#define CORVANE_OPERATIONS_OPERATIONRUN_H

#include <cstdint>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include "foundation/Error.h"
#include "foundation/Result.h"
#include "foundation/Value.h"
#include "operations/ZELPrivilegedOperationSet.h"

namespace corvane {

/// One run of an operation, for the method that carries it out. It is there until the method
/// returns, and any thread of the method may use it; other runs go on at the same time in other
/// threads.
class OperationRun {
 public:
  /// `arguments` is not copied.
  OperationRun(const Array& arguments, FeedbackConnection connection, std::stop_token stop);

  /// The arguments as they came, of the number and kinds that the row of the operation says.
  const Array& arguments() const { return *_arguments; }

  /// Whether the client has asked for the end. A method that works for long looks at it between
  /// two steps, and returns `cancelled()`; what it has done until then stays done.
  bool isCancelled() const { return _stop.stop_requested(); }
  const std::stop_token& stop() const { return _stop; }
  /// ECANCELED (89).
  static Error cancelled();

  /// Runs the program at `path` and waits for its end: its exit status, or the number of the signal
  /// that ended it. It is started as it is, with no shell in between, and with a PATH that holds
  /// folders of the system alone. What it writes goes to the client while it runs if the operation
  /// has live output, and is dropped otherwise. A cancel asks it to end, and kills it ten seconds
  /// later.
  ///
  /// ENOENT (2) if there is no such file, EACCES (13) if others than root may change the program or
  /// its folder, ECANCELED (89) after a cancel, EIO (5) if it could not be started. Each but
  /// ECANCELED names the path.
  Result<std::int32_t> runProgram(const std::string& path,
                                  const std::vector<std::string>& arguments) const;

 protected:
  /// Null if the client wants no feedback.
  const FeedbackConnection& connection() const { return _connection; }
  void sendOutputOfPrograms() { _output = _connection; }

 private:
  const Array* _arguments;
  FeedbackConnection _connection;
  FeedbackConnection _output;  ///< where that of programs goes; null to drop it
  std::stop_token _stop;
};

/// The run of an operation that tells how far it is.
class ProgressRun : public OperationRun {
 public:
  using OperationRun::OperationRun;

  /// Tells the client which part of the work is done, 0.0 to 1.0; a number beyond is held to that.
  /// Nothing happens if the client does not listen.
  void reportProgress(double fraction) const;
};

/// The run of an operation with live output.
class OutputRun : public OperationRun {
 public:
  OutputRun(const Array& arguments, FeedbackConnection connection, std::stop_token stop);

  /// Sends a text to where the client has the standard output of a program, or its standard error.
  /// Nothing happens if the client does not listen.
  void write(std::string_view text) const;
  void writeError(std::string_view text) const;
};

}  // namespace corvane

#endif
