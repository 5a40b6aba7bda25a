#include "operations/OutputForwarder.h"

#include <utility>

namespace corvane {

OutputForwarder::OutputForwarder(FeedbackConnection connection)
    : _connection(std::move(connection)) {}

void OutputForwarder::receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) {
  if (!chunk || !isError || !_connection) return;
  // Moved into the message and not copied.
  Dictionary feedback;
  feedback.append(isError->boolValue() ? ErrorDataKey : OutputDataKey, *std::move(chunk));
  _connection->remoteObjectProxy().processPrivilegedOperationFeedback(feedback);
}

}  // namespace corvane
