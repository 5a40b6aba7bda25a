#include "client/FileObjectDeletion.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <set>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>

#include "client/AppendOnlyObjects.h"
#include "foundation/POSIXError.h"
#include "operations/OperationCodes.h"
#include "platform/AuthenticationAgent.h"
#include "platform/FileSystem.h"

namespace corvane {

namespace {

namespace fs = std::filesystem;

// What a message surely holds.
constexpr std::size_t maximumSize = std::size_t{4} << 20;
constexpr std::size_t maximumShortPaths = 10000;
constexpr std::size_t shortPathSize = 8;

// How many objects are asked about one by one, to learn the error of each.
constexpr std::size_t maximumSeparateRequests = 256;

bool isThere(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

bool isLink(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

// Each path once, in the order of the list.
PathPointers eachOnce(const std::vector<std::string>& paths) {
  PathPointers each;
  each.reserve(paths.size());
  for (const std::string& path : paths) each.push_back(&path);
  std::ranges::sort(each, [](const std::string* one, const std::string* other) {
    const int order = one->compare(*other);
    return order != 0 ? order < 0 : one < other;
  });
  const auto isSame = [](const std::string* one, const std::string* other) {
    return *one == *other;
  };
  each.erase(std::unique(each.begin(), each.end(), isSame), each.end());
  std::ranges::sort(each);
  return each;
}

using Outcome = PrivilegedHelperClient::Outcome;

// Whether nothing more is asked for: nobody answers, it is refused, or it is cancelled.
bool isEnd(const Answer<Outcome>& answer) {
  if (!answer) return true;
  if (!answer->error) return false;
  return answer->wasAuthorized == false || isPOSIXError(*answer->error, POSIXErrorCode::Canceled);
}

// How all ended, of which `last` is the last part.
Answer<Outcome> joined(const Answer<Outcome>& before, Answer<Outcome> last) {
  if (!before || !last) return last;
  if (!last->error) last->error = before->error;
  last->hasLostFeedback |= before->hasLostFeedback;
  return last;
}

// Counts what goes into one message.
class Portion {
 public:
  // Whether the path still fits, and is counted in.
  bool takes(const std::string& path) {
    _size += path.size() + 2 * shortPathSize;
    _shortPaths += path.size() < shortPathSize ? 1 : 0;
    return _size <= maximumSize && _shortPaths <= maximumShortPaths;
  }

 private:
  std::size_t _size = 0;
  std::size_t _shortPaths = 0;
};

}  // namespace

PathPointers whereSomethingIs(const PathPointers& paths) {
  PathPointers left;
  left.reserve(paths.size());
  std::ranges::copy_if(paths, std::back_inserter(left),
                       [](const std::string* path) { return isThere(*path); });
  return left;
}

bool isEvidentlyAuthorized(const PathPointers& there, bool recursive) {
  const FileFlags kept = recursive ? FileFlag::UserAppend | FileFlag::SystemImmutable |
                                         FileFlag::SystemAppend | FileFlag::Restricted
                                   : FileFlag::Restricted;
  return std::ranges::any_of(there, [kept](const std::string* path) {
    FileStatus status;
    FileStatus folder;
    return !isThere(*path) ||
           (!statusOf(AT_FDCWD, path->c_str(), FinalLink::Keep, status) &&
            (status.flags & kept) != 0) ||
           (!statusOf(AT_FDCWD, fs::path(*path).parent_path().c_str(), FinalLink::Keep, folder) &&
            folder.flags != 0);
  });
}

FileObjectDeletion::FileObjectDeletion(PrivilegedHelperClient& client,
                                       const std::vector<std::string>& paths,
                                       const PrivilegedHelperClient::DeletionOptions& options,
                                       const std::optional<Feedback>& feedback)
    : _client(client),
      _paths(paths),
      _isRecursive(options.isRecursive),
      _stopsOnFirstError(options.stopsOnFirstError),
      _feedback(feedback) {}

PrivilegedHelperClient::DeletionOutcome FileObjectDeletion::run() {
  PathPointers there;
  there.reserve(_paths.size());
  for (const std::string& path : _paths) {
    if (isThere(path)) {
      there.push_back(&path);
    } else {
      _outcome.missing.push_back(path);
      _missing.insert(path);
    }
  }
  bool hasStopped = false;
  for (const Step& step : steps()) {
    Answer<Outcome> answer = perform(step);
    _done += step.paths.size();
    hasStopped = isEnd(answer) || (answer->error && _stopsOnFirstError);
    _outcome.answer = joined(_outcome.answer, std::move(answer));
    if (hasStopped) break;
  }
  Answer<Outcome>& all = _outcome.answer;
  if (all && all->error && !all->wasAuthorized && isEvidentlyAuthorized(there, _isRecursive)) {
    all->wasAuthorized = true;
    all->wasAnswerRefused = false;
  }
  if (!hasStopped && _feedback && _feedback->progress) _feedback->progress(1.0);

  for (const std::string* path : eachOnce(_paths)) conclude(*path, hasStopped);
  return std::move(_outcome);
}

void FileObjectDeletion::conclude(const std::string& path, bool hasStopped) {
  const auto known = _errors.find(path);
  std::optional<Error> error;
  if (known != _errors.end()) error = known->second;
  const bool isLeft = isThere(path);
  if (isLeft) _outcome.left.push_back({path, error});
  const bool isMissed = _missing.contains(path) && !_isRecursive && !isLeft;
  if (isMissed && !error) error = posixError(POSIXErrorCode::NoEntry);
  if (known != _errors.end() || (!hasStopped && (isLeft || isMissed))) {
    _outcome.failed.push_back({path, error});
  }
}

// The recursive deletion leaves a link whose target is missing; the single one does not.
std::vector<FileObjectDeletion::Step> FileObjectDeletion::steps() const {
  std::vector<std::pair<const std::string*, bool>> ordered;
  ordered.reserve(_paths.size());
  for (const std::string& path : _paths) ordered.emplace_back(&path, _isRecursive && !isLink(path));
  if (!_stopsOnFirstError) {
    std::stable_partition(ordered.begin(), ordered.end(),
                          [](const auto& each) { return each.second; });
  }
  std::vector<Step> steps;
  Portion portion;
  for (const auto& [path, isRecursive] : ordered) {
    const bool fits = portion.takes(*path);
    if (steps.empty() || steps.back().isRecursive != isRecursive || !fits) {
      steps.push_back({{}, isRecursive});
      portion = Portion();
      portion.takes(*path);
    }
    steps.back().paths.push_back(path);
  }
  return steps;
}

Answer<Outcome> FileObjectDeletion::request(const PathPointers& paths, bool recursive,
                                            const std::optional<Feedback>& feedback) {
  return _client.perform(codeDeleteFileobjects,
                         {recursive ? "1" : "0", _stopsOnFirstError ? "1" : "0"}, paths, feedback);
}

// A deletion that stops has done so at the first object that is left: nothing behind that is
// touched before the helper gets there.
Answer<Outcome> FileObjectDeletion::perform(const Step& step) {
  Answer<Outcome> answer = request(step.paths, step.isRecursive, feedbackAbout(step.paths));
  Step rest = step;
  const std::string* obstacle = nullptr;
  while (!isEnd(answer) && answer->error) {
    rest.paths = whereSomethingIs(rest.paths);
    if (rest.paths.empty() || rest.paths.front() == obstacle) break;
    const bool isLifted =
        step.isRecursive &&
        lift(_stopsOnFirstError ? std::vector{rest.paths.front()} : rest.paths, answer);
    if (isEnd(answer)) return answer;
    const bool isUnasked = authorizationDialogsOfThisProcess() == AuthorizationDialogs::NotNeeded;
    if (!_stopsOnFirstError && isUnasked && rest.paths.size() <= maximumSeparateRequests &&
        failuresOf(step).size() > 1) {
      return performSeparately(rest);
    }
    if (!isLifted) break;
    obstacle = rest.paths.front();
    rest.paths = whereSomethingIs(rest.paths);
    if (rest.paths.empty()) {
      return Outcome{.hasLostFeedback = answer->hasLostFeedback, .wasAuthorized = true};
    }
    // The pause that ends feedback is worth it only where there is more than one thing to tell.
    answer = request(rest.paths, step.isRecursive,
                     rest.paths.size() > 1 ? feedbackAbout(rest.paths) : std::nullopt);
    if (!_stopsOnFirstError) break;
  }
  if (!isEnd(answer) && answer->error) noteErrors(step, *answer->error);
  return answer;
}

Answer<Outcome> FileObjectDeletion::performSeparately(const Step& step) {
  Answer<Outcome> last = Outcome();
  std::optional<Error> error;
  for (const std::string* path : step.paths) {
    last = request({path}, step.isRecursive, std::nullopt);
    if (isEnd(last)) return last;
    if (!last->error) continue;
    error = last->error;
    _errors.insert_or_assign(*path, *last->error);
  }
  last->error = error;
  return last;
}

// Takes from the trees what makes them append-only. This process does so itself if it may, which is
// safe whosever the folders are; else the helper's single deletion does it. True if something was
// done; `answer` is replaced by one that ends the deletion.
bool FileObjectDeletion::lift(const PathPointers& trees, Answer<Outcome>& answer) {
  bool isLifted = false;
  std::set<std::string> taken;
  std::vector<PathPointers> requests;
  Portion portion;
  for (const std::string* tree : trees) {
    const AppendOnlyObjects found = appendOnlyObjects(*tree);
    if (found.areInVain || (found.reachable.empty() && !found.areOthersThere)) continue;
    if (clearAppendOnlyFlags(*tree)) {
      isLifted = true;
      continue;
    }
    _outcome.isAppendOnlyLeft |= found.areOthersThere;
    for (const std::string& object : found.reachable) {
      const auto [place, isNew] = taken.insert(object);
      if (!isNew) continue;
      if (!portion.takes(object) || requests.empty()) {
        requests.emplace_back();
        portion = Portion();
        portion.takes(object);
      }
      requests.back().push_back(&*place);
    }
  }
  for (const PathPointers& objects : requests) {
    // Feedback is wanted only to learn whether a person refused: that one is not asked again.
    const bool isUnknown = !answer->wasAuthorized;
    Answer<Outcome> lifted =
        _client.perform(codeDeleteFileobjects, {"0", "0"}, objects,
                        isUnknown ? std::optional<Feedback>(Feedback()) : std::nullopt);
    if (isEnd(lifted)) {
      answer = std::move(lifted);
      return isLifted;
    }
    if (isUnknown) answer->wasAuthorized = lifted->wasAuthorized;
    isLifted = true;
  }
  return isLifted;
}

// What is left of it, and what was not there for a deletion that finds that an error.
PathPointers FileObjectDeletion::failuresOf(const Step& step) const {
  PathPointers failed;
  for (const std::string* path : step.paths) {
    const bool isMissed = !step.isRecursive && _missing.contains(*path);
    if (isThere(*path) || isMissed) failed.push_back(path);
  }
  return failed;
}

// The one error of a request is that of the last object that it failed for, or of the first if it
// stopped there.
void FileObjectDeletion::noteErrors(const Step& step, const Error& error) {
  const PathPointers failed = failuresOf(step);
  if (failed.empty()) return;
  _errors.insert_or_assign(_stopsOnFirstError ? *failed.front() : *failed.back(), error);
}

std::optional<FileObjectDeletion::Feedback> FileObjectDeletion::feedbackAbout(
    const PathPointers& paths) {
  if (!_feedback) return std::nullopt;
  Feedback part;
  part.progress = [this, &paths, before = _done](double fraction) {
    const double done = fraction * static_cast<double>(paths.size());
    const auto index = std::min(static_cast<std::size_t>(std::lround(done)), paths.size() - 1);
    if (_feedback->object) _feedback->object(*paths[index]);
    tellProgress((static_cast<double>(before) + done) / static_cast<double>(_paths.size()));
  };
  return part;
}

// All is done only when the last answer is in.
void FileObjectDeletion::tellProgress(double fraction) {
  if (fraction < 1.0) _progress = std::max(_progress, fraction);
  if (_feedback->progress) _feedback->progress(_progress);
}

}  // namespace corvane
