#ifndef CORVANE_CLIENT_PRIVILEGEDHELPERCLIENT_H
#define CORVANE_CLIENT_PRIVILEGEDHELPERCLIENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "foundation/AuthorizationState.h"
#include "foundation/CommunicationFailure.h"
#include "foundation/Error.h"
#include "foundation/Value.h"

namespace corvane {

/// Has the privileged helper carry out operations for this process.
///
/// The first call connects, which starts a helper that is not running, and registers this process
/// with it; the destructor unregisters, and the last client's helper ends. Calls wait for their
/// answer. An object may be used by one thread at a time, different objects by different threads;
/// any thread may cancel.
class PrivilegedHelperClient {
 public:
  struct Options {
    /// Where the helper listens, in the words of the system: on Linux the path of a socket. Empty
    /// for the system's own place.
    std::string helperAddress;
    /// The same for where authorizations are issued.
    std::string issuerAddress;
    /// For each step but an operation itself: connecting, and short questions.
    std::chrono::milliseconds patience{10000};
    /// For an operation, dialogs included. Nothing: as long as it takes.
    std::optional<std::chrono::milliseconds> operationTimeout;
    /// What the authorization dialog shows in place of the operation's own sentence and icon.
    std::optional<std::string> prompt;
    std::optional<std::string> iconPath;
    /// Shows authorization dialogs on this process's terminal when the system has nobody else who
    /// could.
    bool asksOnTerminal = false;
    /// Called before a dialog is shown there, on the calling thread: what else is shown there must
    /// make way. Must not throw.
    std::function<void()> beforeAskingOnTerminal;
    /// Without, nobody is asked: an operation that would need a dialog ends with -60007.
    bool isInteractionAllowed = true;
  };

  /// What a running operation reports. Called on a thread of the client, one at a time, and not
  /// after the call that runs the operation has returned. Empty functions are not called; the
  /// others must not throw.
  struct Feedback {
    /// The part that is done, 0.0 to 1.0, and never less than before. The first call tells that the
    /// request was authorized.
    std::function<void(double fraction)> progress;
    /// The path that a deletion has come to; before `progress`.
    std::function<void(const std::string& path)> object;
    /// A chunk of the program's standard output, and of its standard error; possibly empty.
    std::function<void(const Data& chunk)> output;
    std::function<void(const Data& chunk)> errorOutput;
  };

  /// What became of an operation, for whoever does something else in each case.
  enum class Ending : std::uint8_t {
    Done,
    Failed,       ///< it was not authorized for another reason than those below, or failed itself
    Cancelled,    ///< by `cancel`
    Dismissed,    ///< somebody was asked, and closed the dialog
    Denied,       ///< somebody was asked in vain, or nobody is, as the answer is no
    NobodyToAsk,  ///< somebody would be asked, but nobody can be, or the options do not allow it
    NoAuthority,  ///< the same, as the system has no authority that asks
  };

  /// How an operation ended, in an `Answer`: without one, nobody answered, and whether the
  /// operation was carried out is not known if the connection was lost or no answer came in time.
  ///
  ///     const auto outcome = client.nop();
  ///     if (!outcome) return complain(outcome.error().description);
  ///     if (outcome->error) return complain(outcome->error->localizedDescription());
  struct Outcome {
    /// Why it failed; nothing if it succeeded. In NSPOSIXErrorDomain EPERM (1) for a refused
    /// authorization and ECANCELED (89) for a dialog that was dismissed or an operation that was
    /// cancelled, or the operation's own error. EILSEQ (92) if nothing was asked because an
    /// argument cannot be sent: texts are UTF-8, without zero bytes. EMFILE (24) if nothing was
    /// asked because this process has no descriptor or thread left to receive feedback with.
    std::optional<Error> error = std::nullopt;
    /// Feedback that had begun did not come to its end: the last of it is missing. The helper
    /// gives up a receiver that takes nothing for ten seconds.
    bool hasLostFeedback = false;
    /// Whether the request was authorized. Nothing if that is not known: EPERM stands both for a
    /// refusal and for what the file system does not permit, ECANCELED both for what was cancelled
    /// in its dialog and later. Feedback, which begins after the authorization, tells an ordinary
    /// user's process which of them it is, and so does an authority that does not ask each time.
    std::optional<bool> wasAuthorized = std::nullopt;
    /// Somebody was asked, and the answer was not accepted: a mistyped password.
    bool wasAnswerRefused = false;
    /// `cancel` was called meanwhile, in time or not.
    bool wasCancelRequested = false;

    bool isSuccess() const { return !error; }
    /// All of this in one word. It may look at the system, and wait for a moment.
    Ending ending() const;
  };

  struct DeletionOptions {
    /// Deletes folders with their contents.
    bool isRecursive = false;
    /// Deletes in the order of the paths, and nothing behind the first object that cannot be
    /// deleted.
    bool stopsOnFirstError = false;
  };
  /// An object that a deletion has not deleted.
  struct ObjectLeft {
    std::string path;
    /// Why; nothing if that is not known, or if the deletion stopped before it.
    std::optional<Error> error;
  };
  struct DeletionOutcome {
    /// That of all objects; its error is that of the last that has one.
    Answer<Outcome> answer = Outcome();
    /// Both in the order of the paths: what is left, and what could not be deleted. The latter is
    /// without what a deletion that stops did not come to, and has paths where nothing was, unless
    /// the deletion was recursive.
    std::vector<ObjectLeft> left;
    std::vector<ObjectLeft> failed;
    /// The paths where nothing was.
    std::vector<std::string> missing;
    /// Some of what is left is append-only, and was not touched: somebody else could have made its
    /// path lead elsewhere meanwhile, or its name cannot be sent.
    bool isAppendOnlyLeft = false;
  };

  /// What a preference is called. `application` may be the text of NSGlobalDomain, `user` and
  /// `host` those of the platform's constants; the current user is the helper's own, root.
  struct Preference {
    std::string key;
    std::string application;
    std::string user;
    std::string host;
  };

  explicit PrivilegedHelperClient(Options options);
  PrivilegedHelperClient(const PrivilegedHelperClient&) = delete;
  PrivilegedHelperClient& operator=(const PrivilegedHelperClient&) = delete;
  ~PrivilegedHelperClient();

  /// Unregisters this process wherever objects have registered it, as their destructors would, for
  /// a process that is about to be ended without them, as by a signal; waits for each helper as
  /// long as `patience`. Any thread may call it while others wait for answers. The process must end
  /// after it: a helper that ends with its last client leaves requests unanswered, and who waits
  /// for one, or begins with a helper, does not return any more.
  static void leaveHelpersBeforeEnd(std::chrono::milliseconds patience = std::chrono::milliseconds{
                                        10000});

  /// Has every operation of this process, whatever object performs it, end as `cancel` does, and
  /// every later one before it begins. Does not wait: the helpers are told on a thread of its own.
  /// False if none was in progress; if one is, `tell` is called before any of them ends. It must
  /// not use this library. Any thread.
  static bool cancelOperationsBeforeEnd(
      const std::function<void()>& tell = {},
      std::chrono::milliseconds patience = std::chrono::milliseconds{10000});

  /// Whether that was called: operations of this process do not begin any more.
  static bool isCancellingOperations();

  /// Where the helper listens.
  const std::string& helperAddress() const;

  /// Connects and registers, unless that was done before.
  Answer<void> connect();

  /// The version of the helper's operation set, such as "1.3".
  Answer<std::string> helperVersion();

  /// Switches the helper's debug messages on or off. A helper that ends forgets it, so this does
  /// not register: a helper that was started for it keeps running.
  Answer<void> enableDebugMode(bool flag);

  /// Performs the operation `code` with its arguments. With feedback, the operation reports to it
  /// if it can.
  Answer<Outcome> perform(std::uint64_t code, std::vector<Value> arguments,
                          const std::optional<Feedback>& feedback = std::nullopt);

  /// Has the operation that another thread performs with this object end at its next safe point:
  /// it is waited for, and ends with ECANCELED (89), or as it would have if it was past the last
  /// one. What was done stays done. Nothing happens if none is performed. Any thread.
  Answer<void> cancel();
  /// What the operation `code` would meet, without asking anybody. The answer may be another by the
  /// time of the operation. BadMessage if there is no such operation.
  Answer<AuthorizationState> queryAuthorization(std::uint64_t code);

  /// Does nothing, with authorization.
  Answer<Outcome> nop();
  /// Makes the system ask again before it authorizes anything more for this process.
  Answer<Outcome> discardAuthorization();
  /// Deletes the objects at absolute paths, whatever protects them. A link is deleted itself, be
  /// its target there or not. Goes on after an object that cannot be deleted, unless the options
  /// say otherwise; the outcome is then the error of the last.
  ///
  /// This may take several requests, of which each is authorized: with links among trees, with more
  /// paths than a message holds, and with append-only objects in a tree, which the helper's own
  /// recursive deletion keeps. What is sent once more is only what is left. Progress is that of
  /// all.
  DeletionOutcome deleteFileObjects(const std::vector<std::string>& paths,
                                    const DeletionOptions& options,
                                    const std::optional<Feedback>& feedback = std::nullopt);
  /// Deletes single objects; never folders with contents. Meant for the helper's own files, which
  /// it does not check: it deletes whatever is named.
  Answer<Outcome> deleteFiles(const std::vector<std::string>& paths);
  /// Sets a preference of any user: `value` is the text of a property list, and empty to remove the
  /// key.
  Answer<Outcome> modifyPreferences(const Preference& preference, const std::string& value);
  /// Runs a utility that the helper knows as root. `applicationPath` is the bundle of the calling
  /// application, from which the helper takes utilities that come with it; not empty. A utility
  /// goes on to its end even if this process does not wait for it.
  Answer<Outcome> executeUtility(const std::string& applicationPath, const std::string& utility,
                                 const std::vector<std::string>& arguments,
                                 const std::optional<Feedback>& feedback = std::nullopt);
  /// Has the helper remove itself from the system: it deletes its two files, its rights and its
  /// job, and ends, which is what success looks like from here. EBUSY (16) says that another
  /// process is registered with it and still running.
  Answer<Outcome> performUninstall(const std::string& programPath, const std::string& jobPath);

 private:
  friend class FileObjectDeletion;
  friend class OperationQueue;

  /// With texts behind the arguments.
  Answer<Outcome> perform(std::uint64_t code, std::vector<Value> arguments,
                          std::span<const std::string* const> texts,
                          const std::optional<Feedback>& feedback);

  /// As `cancel`; whether one was performed.
  Answer<bool> cancelIfInProgress();

  class Session;
  std::unique_ptr<Session> _session;
};

}  // namespace corvane

#endif
