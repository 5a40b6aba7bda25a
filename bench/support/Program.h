#ifndef CORVANE_BENCH_SUPPORT_PROGRAM_H
#define CORVANE_BENCH_SUPPORT_PROGRAM_H

namespace corvane::bench {

/// A benchmark as a program: its exit status, after what it threw was told on standard error.
int runProgram(void (*measure)());

}  // namespace corvane::bench

#endif
