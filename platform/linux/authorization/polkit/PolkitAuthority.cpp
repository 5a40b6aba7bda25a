#include "platform/linux/authorization/polkit/PolkitAuthority.h"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

#include "foundation/POSIXError.h"
#include "platform/StandardLog.h"
#include "platform/linux/authorization/RightFile.h"
#include "platform/linux/authorization/RootFolder.h"
#include "platform/linux/authorization/polkit/AgentPresence.h"
#include "platform/linux/authorization/polkit/Asker.h"
#include "platform/linux/authorization/polkit/DialogText.h"
#include "platform/linux/transport/CurrentPeer.h"

namespace corvane {

namespace {

std::string fileNameFor(const std::string& rightName) {
  return rightName + ".policy";
}

int askersConnection() {
  const Peer* peer = currentPeer();
  return peer == nullptr ? -1 : peer->connection;
}

// Waits until the user's place is taken.
Result<void, PolkitFailure> waitFor(UserPlaces::Place& place, const std::stop_token& stop,
                                    std::chrono::milliseconds patience) {
  if (place.isTaken()) return {};
  constexpr std::chrono::milliseconds pause{20};
  const Asker asker(askersConnection(), stop);
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!place.take()) {
    if (std::chrono::steady_clock::now() >= deadline) return PolkitFailure::Failed;
    if (asker.hasGoneWhileWaiting(-1, 0, pause)) return PolkitFailure::Abandoned;
  }
  return {};
}

Decision decisionOf(const PolkitAnswer& answer) {
  if (answer.isDismissed) return Decision::Dismissed;
  // Whoever would have to be asked is not there or must not be asked.
  if (answer.isChallenge) return Decision::DialogNeeded;
  return answer.isAuthorized ? Decision::Granted : Decision::Denied;
}

bool isUndefined(const Result<void>& removed) {
  return !removed && isPOSIXError(removed.error(), POSIXErrorCode::NoEntry);
}

}  // namespace

PolkitAuthority::PolkitAuthority(const Places& places, Translate translate,
                                 Authority& withoutPolkit, std::chrono::milliseconds patience)
    : _polkit(places.busAddress, patience),
      _patience(patience),
      _actionsDirectory(places.actionsDirectory),
      _translate(std::move(translate)),
      _withoutPolkit(withoutPolkit),
      _discarded(places.discardedDirectory) {}

Result<Decision> PolkitAuthority::decide(const ProcessIdentity& subject,
                                         const RightRequest& request) {
  const std::optional<RunningProgram> asking = RunningProgram::of(subject.pid);
  const auto grantedSince = _discarded.grantedSince(subject);
  const Answer answer =
      grantedSince ? askAfterDiscard(subject, request, *grantedSince) : ask(subject, request);
  if (answer) {
    const Decision decision = decisionOf(*answer);
    // If the process runs another program by now, the person has agreed to something else than what
    // would profit from it.
    const bool isAnother =
        decision == Decision::Granted && asking && asking != RunningProgram::of(subject.pid);
    return isAnother ? Decision::Outdated : decision;
  }
  switch (answer.error()) {
    case PolkitFailure::Absent:
      return _withoutPolkit.decide(subject, request);
    case PolkitFailure::Abandoned:
      return Decision::Dismissed;
    case PolkitFailure::Failed:
      break;
  }
  return posixError(POSIXErrorCode::InputOutput);
}

PolkitAuthority::Answer PolkitAuthority::ask(const ProcessIdentity& subject,
                                             const RightRequest& request) {
  const Answer answer = askQuietly(subject, request);
  const bool isDialogNeeded = answer && !answer->isAuthorized && answer->isChallenge;
  return isDialogNeeded && request.isInteractionAllowed ? askPerson(subject, request) : answer;
}

PolkitAuthority::Answer PolkitAuthority::askQuietly(const ProcessIdentity& subject,
                                                    const RightRequest& request) {
  UserPlaces::Place place(_questions, subject.uid);
  const auto waited = waitFor(place, request.stop, _patience);
  if (!waited) return waited.error();
  return _polkit.checkAuthorization({subject, request.rightName, {}, {}, false}, askersConnection(),
                                    request.stop);
}

PolkitAuthority::Answer PolkitAuthority::askPerson(const ProcessIdentity& subject,
                                                   const RightRequest& request) {
  const UserPlaces::Place place(_dialogs, subject.uid);
  // The user has as many dialogs open as one may have: the answer is that of a system on which
  // nobody can be asked.
  if (!place.isTaken()) return PolkitAnswer{false, true, false, {}};
  return _polkit.checkAuthorization(
      {subject, request.rightName, dialogText(request.prompt), dialogIcon(request.iconPath), true},
      askersConnection(), request.stop);
}

PolkitAuthority::Answer PolkitAuthority::askAfterDiscard(
    const ProcessIdentity& subject, const RightRequest& request,
    const std::set<std::string>& grantedSince) {
  Answer answer = askQuietly(subject, request);
  if (!answer) return answer;
  if (!answer->isAuthorized) {
    if (!answer->isChallenge || !request.isInteractionAllowed) return answer;
    answer = askPerson(subject, request);
    if (answer && !answer->temporaryAuthorization.empty()) {
      _discarded.grant(subject, answer->temporaryAuthorization);
    }
    return answer;
  }
  if (answer->temporaryAuthorization.empty() ||
      grantedSince.contains(answer->temporaryAuthorization)) {
    return answer;
  }
  // polkit said yes by an authorization that it keeps, from before the discard. As long as it keeps
  // it, it asks nobody for this action, so the right's other action is used, which is never kept.
  RightRequest anew = request;
  anew.rightName = anewActionOf(request.rightName);
  return ask(subject, anew);
}

bool PolkitAuthority::canShowDialog(const ProcessIdentity& subject) {
  switch (findAgentOf(subject)) {
    case AgentPresence::NoPolkit:
      return _withoutPolkit.canShowDialog(subject);
    case AgentPresence::Absent:
      return false;
    case AgentPresence::Present:
      break;
  }
  return true;
}

void PolkitAuthority::revoke(const ProcessIdentity& subject) {
  if (!_discarded.discard(subject)) {
    NSLog("WARNING: the authorizations of process %d could not be discarded!\n", subject.pid);
  }
  _withoutPolkit.revoke(subject);
}

bool PolkitAuthority::hasActions() const {
  struct stat status = {};
  return ::stat(_actionsDirectory.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

Result<RightDefinition> PolkitAuthority::rightGet(const std::string& rightName) {
  if (!hasActions()) return _withoutPolkit.rightGet(rightName);
  const Result<RootFolder> folder = RootFolder::open(_actionsDirectory);
  if (!folder) return folder.error();
  const Result<Data> bytes = folder->read(fileNameFor(rightName), everyoneElseReads);
  if (!bytes) return bytes.error();

  std::optional<RightDefinition> found = readActionFile(stringFromData(*bytes), rightName);
  if (!found) return folder->errorOf(fileNameFor(rightName), EBADMSG);
  // A right counts only where both authorities have it, so that registering it adds what is
  // missing. The other authority's folder may be closed to all but root, and then is not looked at.
  if (::geteuid() == 0) {
    const Result<RightDefinition> other = _withoutPolkit.rightGet(rightName);
    if (!other) return other.error();
  }
  return *std::move(found);
}

Result<void> PolkitAuthority::rightSet(const std::string& rightName,
                                       const RightDefinition& definition) {
  if (hasActions()) {
    const std::optional<std::string> text = actionFile(
        rightName, definition, _translate(definition.description, definition.stringsTable));
    const Result<RootFolder> folder = RootFolder::open(_actionsDirectory);
    if (!folder) return folder.error();
    if (!text) return folder->errorOf(fileNameFor(rightName), EINVAL);
    auto replaced =
        folder->replace(fileNameFor(rightName), dataFromString(*text), everyoneElseReads);
    if (!replaced) return replaced;
  }
  return _withoutPolkit.rightSet(rightName, definition);
}

Result<void> PolkitAuthority::rightRemove(const std::string& rightName) {
  Result<void> removed = posixError(POSIXErrorCode::NoEntry);
  if (hasActions()) {
    const Result<RootFolder> folder = RootFolder::open(_actionsDirectory);
    if (!folder) return folder.error();
    removed = folder->remove(fileNameFor(rightName));
    if (!removed && !isUndefined(removed)) return removed;
  }
  auto alsoRemoved = _withoutPolkit.rightRemove(rightName);
  return isUndefined(alsoRemoved) ? removed : alsoRemoved;
}

std::vector<RightFault> PolkitAuthority::faultsOf(const std::string& rightName,
                                                  const RightDefinition& definition) {
  auto faults = _withoutPolkit.faultsOf(rightName, definition);
  if (!hasActions()) return faults;
  const auto expected = actionFile(rightName, definition,
                                   _translate(definition.description, definition.stringsTable));
  const auto fault = faultOf(
      {_actionsDirectory, fileNameFor(rightName), rightName}, dataFromString(expected.value_or("")),
      definition,
      [&rightName](const Data& bytes) { return readActionFile(stringFromData(bytes), rightName); },
      implicitOf);
  if (fault) faults.push_back(*fault);
  return faults;
}

}  // namespace corvane
