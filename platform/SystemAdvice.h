#ifndef CORVANE_PLATFORM_SYSTEMADVICE_H
#define CORVANE_PLATFORM_SYSTEMADVICE_H

namespace corvane {

/// What people are told about a system in its own words: by which command its logs are read, who
/// shows its dialogs, where an administrator keeps rules of his own. English sentences.
struct SystemAdvice {
  // About failures. These are keys of the client's strings table, too.
  const char* helperNotThere;   ///< nobody listens at its address
  const char* helperEnded;      ///< it was lost before it had answered
  const char* helperSilent;     ///< it did not answer in time
  const char* operationUndone;  ///< the helper answered that it could not carry an operation out
  const char* preferencesUnwritten;  ///< the helper could not write preferences
  const char* objectHeld;            ///< another program keeps an object from being deleted
  const char* nobodyCanBeAsked;      ///< an operation needs a dialog, and nothing can show one

  // About what keeps a helper from working; not translated.
  const char* helperUnreachable;
  const char* issuerUnreachable;
  const char* serviceChanged;  ///< the helper works, but not as far as it should
  const char* rightChanged;    ///< a right is defined by somebody else's words
  const char* noAuthority;     ///< AuthorizationDialogs::NoAuthority, in words
  const char* noAuthorityCure;
  const char* nobodyShowsDialogs;  ///< AuthorizationDialogs::Nobody, in words
  const char* nobodyShowsDialogsCure;
};
const SystemAdvice& systemAdvice();

}  // namespace corvane

#endif
