#ifndef CORVANE_BENCH_DAEMON_OWNFORM_H
#define CORVANE_BENCH_DAEMON_OWNFORM_H

#include "foundation/Value.h"

namespace corvane::bench {

/// The external form that the issuer of the daemon's authorizations would give this process.
Data ownForm();

}  // namespace corvane::bench

#endif
