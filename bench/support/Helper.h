#ifndef CORVANE_BENCH_SUPPORT_HELPER_H
#define CORVANE_BENCH_SUPPORT_HELPER_H

#include <memory>
#include <string>

#include "foundation/Value.h"
#include "platform/HelperConnection.h"
#include "platform/linux/processes/ProcessIdentity.h"

namespace corvane::bench {

/// The name of the daemon's program.
inline constexpr const char* helperProgram = "com.corvane.system.privilegedhelper-vnt";

/// Connects to the helper at `socketPath`. Failures throw, here and below.
std::unique_ptr<HelperConnection> connectToHelper(const std::string& socketPath);
/// Has the helper say its version.
void askForVersion(HelperConnection& connection);
/// Has the helper do nothing, authorized by `form`.
void performNop(HelperConnection& connection, const Data& form);

/// The external form that the issuer of this machine's authorizations would give `process`.
Data formOf(const ProcessIdentity& process);

}  // namespace corvane::bench

#endif
