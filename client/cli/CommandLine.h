#ifndef CORVANE_CLIENT_CLI_COMMANDLINE_H
#define CORVANE_CLIENT_CLI_COMMANDLINE_H

namespace corvane::cli {

/// Reads the command line and runs the command that it names. Tells what is wrong with one that
/// makes no sense. The status to exit with.
int runCommandLine(int argc, char** argv);

}  // namespace corvane::cli

#endif
