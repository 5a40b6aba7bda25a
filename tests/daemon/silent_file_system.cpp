// A file system that answers nothing: who asks it for anything waits, and cannot be killed.
//
//     silent-file-system FOLDER UID GID
//
// It is mounted on the folder for that user, until it is killed.

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <unistd.h>

#include "foundation/FileDescriptor.h"

namespace {

// The kernel passes no request on before it knows that there is somebody.
bool answerInit(int device, const fuse_in_header& request) {
  struct {
    fuse_out_header header;
    fuse_init_out body;
  } answer{};
  answer.header = {sizeof answer, 0, request.unique};
  answer.body.major = FUSE_KERNEL_VERSION;
  answer.body.minor = FUSE_KERNEL_MINOR_VERSION;
  answer.body.max_write = 4096;
  return ::write(device, &answer, sizeof answer) == sizeof answer;
}

int fail(const char* what) {
  std::perror(what);
  return 1;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc != 4) return 2;
  const corvane::FileDescriptor device(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
  if (!device) return fail("/dev/fuse");
  const std::string options = "fd=" + std::to_string(device.get()) +
                              ",rootmode=40000,user_id=" + argv[2] + ",group_id=" + argv[3];
  if (::mount("silent", argv[1], "fuse", MS_NODEV | MS_NOSUID, options.c_str()) != 0) {
    return fail(argv[1]);
  }
  // What was read and not answered is waited for; what nobody read could be given up.
  std::array<char, FUSE_MIN_READ_BUFFER> buffer{};
  while (::read(device.get(), buffer.data(), buffer.size()) > 0) {
    fuse_in_header request{};
    std::memcpy(&request, buffer.data(), sizeof request);
    if (request.opcode == FUSE_INIT && !answerInit(device.get(), request)) return fail("init");
  }
  return errno == ENODEV ? 0 : fail("/dev/fuse");
}
