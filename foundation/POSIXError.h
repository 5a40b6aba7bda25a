#ifndef CORVANE_FOUNDATION_POSIXERROR_H
#define CORVANE_FOUNDATION_POSIXERROR_H

#include <cstdint>
#include <string>

#include "foundation/Error.h"

namespace corvane {

/// The numbers of POSIX errors as this system speaks them, on every platform: the BSD numbering.
/// They are what travels to clients; a host's own `errno` never does.
enum class POSIXErrorCode : std::int32_t {
  NotPermitted = 1,          ///< EPERM
  NoEntry = 2,               ///< ENOENT
  Interrupted = 4,           ///< EINTR
  InputOutput = 5,           ///< EIO
  Access = 13,               ///< EACCES
  Busy = 16,                 ///< EBUSY
  Exists = 17,               ///< EEXIST
  NotDirectory = 20,         ///< ENOTDIR
  IsDirectory = 21,          ///< EISDIR
  Invalid = 22,              ///< EINVAL
  TooManyOpenFiles = 24,     ///< EMFILE
  NoSpace = 28,              ///< ENOSPC
  ReadOnly = 30,             ///< EROFS
  Again = 35,                ///< EAGAIN
  NotSupported = 45,         ///< ENOTSUP
  ConnectionReset = 54,      ///< ECONNRESET
  TimedOut = 60,             ///< ETIMEDOUT
  ConnectionRefused = 61,    ///< ECONNREFUSED
  LinkLoop = 62,             ///< ELOOP
  NameTooLong = 63,          ///< ENAMETOOLONG
  NotEmpty = 66,             ///< ENOTEMPTY
  Stale = 70,                ///< ESTALE
  NotImplemented = 78,       ///< ENOSYS
  Canceled = 89,             ///< ECANCELED
  IllegalByteSequence = 92,  ///< EILSEQ
  BadMessage = 94,           ///< EBADMSG
};

/// The number this system uses for the host's `errno` value: the value itself on a host of the BSD
/// numbering; elsewhere EIO (5) for one that this system has no number for.
std::int32_t posixCodeFromHost(int hostErrno);

/// An error in `NSPOSIXErrorDomain` without user information, or with it.
Error posixError(POSIXErrorCode code);
Error posixError(POSIXErrorCode code, Dictionary userInfo);
/// The same from the host's `errno` value.
Error posixErrorFromHost(int hostErrno);
/// The same about the object at `path`, which its user information and description name.
Error posixErrorAbout(const std::string& path, int hostErrno);
/// True if `error` is in `NSPOSIXErrorDomain` with this code.
bool isPOSIXError(const Error& error, POSIXErrorCode code);

/// What the code means, in English; "Unknown error: N" for a number that has no meaning.
std::string posixDescription(std::int64_t code);

}  // namespace corvane

#endif
