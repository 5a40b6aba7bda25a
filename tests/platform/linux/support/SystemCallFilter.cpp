#include "tests/platform/linux/support/SystemCallFilter.h"

#include <cstddef>
#include <vector>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>

#include "tests/support/Files.h"

namespace corvane {

void refuseSystemCalls(std::initializer_list<long> calls, int error) {
  constexpr unsigned short loadWord = BPF_LD | BPF_W | BPF_ABS;
  constexpr unsigned short jumpIfEqual = BPF_JMP | BPF_JEQ | BPF_K;
  constexpr unsigned short answer = BPF_RET | BPF_K;
  std::vector<sock_filter> rules = {{loadWord, 0, 0, offsetof(seccomp_data, nr)}};
  for (const long call : calls) {
    rules.push_back({jumpIfEqual, 0, 1, static_cast<unsigned>(call)});
    rules.push_back({answer, 0, 0, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)});
  }
  rules.push_back({answer, 0, 0, SECCOMP_RET_ALLOW});
  const sock_fprog program = {static_cast<unsigned short>(rules.size()), rules.data()};
  require(::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
              ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0,
          "a filter of system calls");
}

}  // namespace corvane
