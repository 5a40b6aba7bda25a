#ifndef CORVANE_CLIENT_CLI_SETUP_STANDARDSTREAMS_H
#define CORVANE_CLIENT_CLI_SETUP_STANDARDSTREAMS_H

namespace corvane::cli {

/// Has no descriptor of the process take the number of a stream that is closed: what is printed
/// would go there. A reader of the output who stops reading ends nothing.
void openClosedStreams();

/// The status to exit with where it would be `status`: another one if what was printed could not be
/// written, which is told.
int statusAfterOutput(int status);

}  // namespace corvane::cli

#endif
