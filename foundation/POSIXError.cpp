#include "foundation/POSIXError.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>

#include "foundation/Value.h"

namespace corvane {

namespace {

// Then they are all known, also those that no other host has.
constexpr bool hostHasTheseNumbers = ENOTEMPTY == 66;

struct Pair {
  int host;
  std::int32_t code;
};

// Every errno that both systems know, with the BSD number on the right. Names that a host spells
// with one number (EAGAIN and EWOULDBLOCK, ENOTSUP and EOPNOTSUPP) stand once.
constexpr auto pairs = std::to_array<Pair>({
    {EPERM, 1},
    {ENOENT, 2},
    {ESRCH, 3},
    {EINTR, 4},
    {EIO, 5},
    {ENXIO, 6},
    {E2BIG, 7},
    {ENOEXEC, 8},
    {EBADF, 9},
    {ECHILD, 10},
    {EDEADLK, 11},
    {ENOMEM, 12},
    {EACCES, 13},
    {EFAULT, 14},
    {ENOTBLK, 15},
    {EBUSY, 16},
    {EEXIST, 17},
    {EXDEV, 18},
    {ENODEV, 19},
    {ENOTDIR, 20},
    {EISDIR, 21},
    {EINVAL, 22},
    {ENFILE, 23},
    {EMFILE, 24},
    {ENOTTY, 25},
    {ETXTBSY, 26},
    {EFBIG, 27},
    {ENOSPC, 28},
    {ESPIPE, 29},
    {EROFS, 30},
    {EMLINK, 31},
    {EPIPE, 32},
    {EDOM, 33},
    {ERANGE, 34},
    {EAGAIN, 35},
    {EINPROGRESS, 36},
    {EALREADY, 37},
    {ENOTSOCK, 38},
    {EDESTADDRREQ, 39},
    {EMSGSIZE, 40},
    {EPROTOTYPE, 41},
    {ENOPROTOOPT, 42},
    {EPROTONOSUPPORT, 43},
    {ESOCKTNOSUPPORT, 44},
    {ENOTSUP, 45},
    {EPFNOSUPPORT, 46},
    {EAFNOSUPPORT, 47},
    {EADDRINUSE, 48},
    {EADDRNOTAVAIL, 49},
    {ENETDOWN, 50},
    {ENETUNREACH, 51},
    {ENETRESET, 52},
    {ECONNABORTED, 53},
    {ECONNRESET, 54},
    {ENOBUFS, 55},
    {EISCONN, 56},
    {ENOTCONN, 57},
    {ESHUTDOWN, 58},
    {ETOOMANYREFS, 59},
    {ETIMEDOUT, 60},
    {ECONNREFUSED, 61},
    {ELOOP, 62},
    {ENAMETOOLONG, 63},
    {EHOSTDOWN, 64},
    {EHOSTUNREACH, 65},
    {ENOTEMPTY, 66},
    {EUSERS, 68},
    {EDQUOT, 69},
    {ESTALE, 70},
    {EREMOTE, 71},
    {ENOLCK, 77},
    {ENOSYS, 78},
    {EOVERFLOW, 84},
    {ECANCELED, 89},
    {EIDRM, 90},
    {ENOMSG, 91},
    {EILSEQ, 92},
    {EBADMSG, 94},
    {EMULTIHOP, 95},
    {ENODATA, 96},
    {ENOLINK, 97},
    {ENOSR, 98},
    {ENOSTR, 99},
    {EPROTO, 100},
    {ETIME, 101},
    {ENOTRECOVERABLE, 104},
    {EOWNERDEAD, 105},
});

}  // namespace

std::int32_t posixCodeFromHost(int hostErrno) {
  if constexpr (hostHasTheseNumbers) return hostErrno;
  const auto* pair =
      std::find_if(pairs.begin(), pairs.end(), [=](Pair p) { return p.host == hostErrno; });
  return pair == pairs.end() ? static_cast<std::int32_t>(POSIXErrorCode::InputOutput) : pair->code;
}

Error posixError(POSIXErrorCode code) {
  return Error(NSPOSIXErrorDomain, static_cast<std::int64_t>(code));
}

Error posixError(POSIXErrorCode code, Dictionary userInfo) {
  return Error(NSPOSIXErrorDomain, static_cast<std::int64_t>(code), std::move(userInfo));
}

Error posixErrorFromHost(int hostErrno) {
  return Error(NSPOSIXErrorDomain, posixCodeFromHost(hostErrno));
}

Error posixErrorAbout(const std::string& path, int hostErrno) {
  const std::int32_t code = posixCodeFromHost(hostErrno);
  return Error(NSPOSIXErrorDomain, code,
               {{NSFilePathErrorKey, path},
                {NSLocalizedDescriptionKey, path + ": " + posixDescription(code)}});
}

bool isPOSIXError(const Error& error, POSIXErrorCode code) {
  return error.is(NSPOSIXErrorDomain, static_cast<std::int64_t>(code));
}

std::string posixDescription(std::int64_t code) {
  if constexpr (hostHasTheseNumbers) {
    return std::generic_category().message(static_cast<int>(code));
  }
  const auto* pair =
      std::find_if(pairs.begin(), pairs.end(), [=](Pair p) { return p.code == code; });
  if (pair == pairs.end()) return "Unknown error: " + std::to_string(code);
  return std::generic_category().message(pair->host);
}

}  // namespace corvane
