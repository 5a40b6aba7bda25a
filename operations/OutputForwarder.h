#ifndef CORVANE_OPERATIONS_OUTPUTFORWARDER_H
#define CORVANE_OPERATIONS_OUTPUTFORWARDER_H

#include <optional>

#include "foundation/Value.h"
#include "operations/ZELPrivilegedOperationSet.h"
#include "process/ZELTaskExecutorDelegate.h"

namespace corvane {

/// The delegate of one run of a program: sends each chunk that it writes as a message of its own.
/// It holds the connection of its own request, so that output finds its client whichever run has
/// begun since. Without a connection, which a client need not give, the output is dropped.
class OutputForwarder : public ZELTaskExecutorDelegate {
 public:
  explicit OutputForwarder(FeedbackConnection connection);

  void receiveTaskOutput(std::optional<Data> chunk, std::optional<Number> isError) override;

 private:
  FeedbackConnection _connection;
};

}  // namespace corvane

#endif
