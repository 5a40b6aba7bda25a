#include <exception>

#include "client/cli/CommandLine.h"
#include "client/cli/output/Report.h"
#include "client/cli/setup/EndingSignals.h"
#include "client/cli/setup/StandardStreams.h"

using namespace corvane::cli;

int main(int argc, char** argv) {
  openClosedStreams();
  try {
    leaveHelpersOnEndingSignals();
    return statusAfterOutput(runCommandLine(argc, argv));
  } catch (const std::exception& exception) {
    return reportException({}, exception);
  }
}
