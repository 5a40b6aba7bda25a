#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_PASSWORDTERMINAL_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_POLKIT_PASSWORDTERMINAL_H

#include <optional>

#include <sys/types.h>
#include <termios.h>

#include "foundation/FileDescriptor.h"

namespace corvane {

/// The controlling terminal of this process; none if it has none.
FileDescriptor controllingTerminal();

/// A terminal on which another process, the reader, reads passwords and switches the echo off
/// meanwhile. Whoever is stopped there (Ctrl-Z) gets the terminal back from a shell with the echo
/// on: so this process stops the reader along with itself, leaves the terminal as it was and, when
/// it goes on, hides again what is typed. There is one at a time that does so in a process, and
/// none where the process has its own mind about being stopped.
class PasswordTerminal {
 public:
  PasswordTerminal();
  PasswordTerminal(const PasswordTerminal&) = delete;
  PasswordTerminal& operator=(const PasswordTerminal&) = delete;
  /// Leaves the terminal as it was, and the line of the prompt.
  ~PasswordTerminal();

  /// Whether the reader is stopped by this process: the signal of the terminal is not for it then.
  bool stopsReader() const { return _isHeld; }
  /// Begins a new line behind the prompt of a reader that waits, or was ended while it did, unless
  /// that was done. False if there is none.
  static bool leavePrompt();
  /// A child of this process, not waited for as long as this is there.
  void setReader(pid_t reader);

 private:
  const FileDescriptor _terminal;
  std::optional<termios> _modes;  ///< before
  bool _isHeld = false;
};

}  // namespace corvane

#endif
