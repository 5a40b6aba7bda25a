#include "operationset-vnt/FolderWalk.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

// An open folder, and how many levels it is below the top.
struct Place {
  std::shared_ptr<FolderReader> reader;
  std::size_t depth = 0;
};

// A subfolder whose walk is left to whichever thread has nothing else to do.
struct Subtree {
  Place parent;
  std::string name;
};

// The threads of one walk, and what they share.
class WalkPool {
 public:
  WalkPool(FolderVisitor& visitor, unsigned threads, const FileIdentity& top,
           const FileIdentity& parentOfTop, const std::stop_token& stop)
      : _visitor(visitor), _threads(threads), _top(top), _parentOfTop(parentOfTop), _stop(stop) {}

  std::optional<Error> run(std::shared_ptr<FolderReader> top);

  FolderVisitor& visitor() { return _visitor; }
  // Whoever asked for the walk wants no more of it.
  bool isCancelled() const { return _stop.stop_requested(); }
  // It has failed.
  bool isStopped() const { return _stopped.load(std::memory_order_relaxed); }
  // Fails if a folder is not, or no longer, where it was met.
  std::optional<Error> check(const Place& place) const;
  // True if the subtree was taken; false if the caller should see to it itself.
  bool offer(const Place& parent, const std::string& name);

 private:
  static constexpr std::size_t queueLimit = 8;

  void work();
  std::optional<Error> perform(const Subtree& subtree);
  template <typename Part>
  void attempt(const Part& part) noexcept;
  void finish(std::optional<Error> error, std::exception_ptr exception);

  FolderVisitor& _visitor;
  const unsigned _threads;
  const FileIdentity _top;
  const FileIdentity _parentOfTop;
  const std::stop_token _stop;
  std::atomic<bool> _stopped = false;
  std::atomic<bool> _hasRoom = true;

  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Subtree> _queue;
  unsigned _busyThreads = 1;
  unsigned _idleThreads = 0;
  std::optional<Error> _error;
  std::exception_ptr _exception;
  std::vector<std::jthread> _helpers;
};

// One thread's way through one subtree, depth first.
class Walker {
 public:
  explicit Walker(WalkPool& pool) : _pool(pool) {}

  std::optional<Error> walk(Place top);

 private:
  // A folder between the top and where the walk is. Only the last few are open; of the others
  // `identity` and `position` are kept, by which the walk finds back to them.
  struct Level {
    std::string name;
    std::shared_ptr<FolderReader> reader;
    // One subfolder is held back, so that there is work left once others were given away.
    std::string heldBack;
    FileIdentity identity;
    FolderReader::Place place;
  };

  static constexpr std::size_t openLevels = 8;
  // Before this many entries, another thread would cost more than it could help.
  static constexpr std::size_t entriesBeforeSharing = 256;
  // How much is done, at the most, between two looks at where the folder is.
  static constexpr std::size_t entriesBetweenChecks = 64;
  // A look takes longer the deeper the folder is, and is taken less often in return.
  static constexpr std::size_t levelsPerEntry = 16;

  std::optional<Error> step();
  std::optional<Error> meetSubfolder(std::string name);
  std::optional<Error> descend(std::string name);
  std::optional<Error> ascend();
  std::optional<Error> open(int folder, const char* name, FileDescriptor& subfolder);
  std::optional<Error> closeTopmost();
  std::optional<Error> checkPlace(bool isTurningPoint);
  std::size_t openCount() const { return _levels.size() - _closedLevels; }
  std::size_t depth() const { return _depthOfTop + _levels.size() - 1; }
  Place place() const { return {_levels.back().reader, depth()}; }

  WalkPool& _pool;
  std::deque<Level> _levels;
  std::size_t _depthOfTop = 0;
  /// From the top.
  std::size_t _closedLevels = 0;
  std::size_t _entries = 0;
  std::size_t _unchecked = 0;
};

std::optional<Error> Walker::walk(Place top) {
  _depthOfTop = top.depth;
  _levels.push_back({{}, std::move(top.reader), {}, {}, {}});
  while (!_levels.empty() && !_pool.isStopped()) {
    if (auto error = step()) return error;
  }
  return std::nullopt;
}

std::optional<Error> Walker::step() {
  if (_pool.isCancelled()) return posixError(POSIXErrorCode::Canceled);
  Level& level = _levels.back();
  std::optional<Error> error;
  if (const FolderEntry* entry = level.reader->next(error)) {
    ++_entries;
    if ((error = checkPlace(level.reader->hasJustRead()))) return error;
    bool hasContents = false;
    error = _pool.visitor().visit(level.reader->folder(), *entry, hasContents);
    if (error || !hasContents) return error;
    return meetSubfolder(entry->name);
  }
  if (error) return error;
  if (!level.heldBack.empty()) return descend(std::exchange(level.heldBack, {}));
  return ascend();
}

std::optional<Error> Walker::meetSubfolder(std::string name) {
  Level& level = _levels.back();
  name.swap(level.heldBack);
  if (name.empty()) return std::nullopt;
  if (_entries >= entriesBeforeSharing && _pool.offer(place(), name)) return std::nullopt;
  return descend(std::move(name));
}

std::optional<Error> Walker::descend(std::string name) {
  if (depth() + 1 == maximumWalkDepth) return posixError(POSIXErrorCode::NameTooLong);
  FileDescriptor folder;
  if (auto error = open(_levels.back().reader->folder(), name.c_str(), folder)) {
    return isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }
  _levels.push_back(
      {std::move(name), std::make_shared<FolderReader>(std::move(folder)), {}, {}, {}});
  return openCount() > openLevels ? closeTopmost() : std::nullopt;
}

std::optional<Error> Walker::ascend() {
  const Level child = std::move(_levels.back());
  _levels.pop_back();
  if (_levels.empty()) return std::nullopt;
  Level& level = _levels.back();
  if (level.reader == nullptr) {
    FileDescriptor folder;
    if (auto error = open(child.reader->folder(), "..", folder)) return error;
    FileIdentity identity;
    if (auto error = ancestorOf(folder.get(), 0, identity)) return error;
    if (identity != level.identity) return posixError(POSIXErrorCode::Stale);
    level.reader = std::make_shared<FolderReader>(std::move(folder), std::move(level.place));
    --_closedLevels;
  }
  if (auto error = checkPlace(true)) return error;
  return _pool.visitor().leave(level.reader->folder(), child.name.c_str());
}

// Where descriptors are scarce, makes do with fewer open levels.
std::optional<Error> Walker::open(int folder, const char* name, FileDescriptor& subfolder) {
  for (;;) {
    auto error = openFolder(folder, name, subfolder);
    const bool isShort = error && isPOSIXError(*error, POSIXErrorCode::TooManyOpenFiles);
    if (!isShort || openCount() < 2) return error;
    if (auto failure = closeTopmost()) return failure;
  }
}

std::optional<Error> Walker::closeTopmost() {
  Level& level = _levels[_closedLevels];
  if (auto error = ancestorOf(level.reader->folder(), 0, level.identity)) return error;
  level.place = level.reader->takePlace();
  level.reader.reset();
  ++_closedLevels;
  return std::nullopt;
}

// At a turning point, or when much has been done since the last time.
std::optional<Error> Walker::checkPlace(bool isTurningPoint) {
  ++_unchecked;
  const bool isDue = isTurningPoint || _unchecked >= entriesBetweenChecks;
  if (!isDue || _unchecked < depth() / levelsPerEntry) return std::nullopt;
  _unchecked = 0;
  return _pool.check(place());
}

std::optional<Error> WalkPool::check(const Place& place) const {
  const int folder = place.reader->folder();
  FileIdentity top;
  if (auto error = ancestorOf(folder, place.depth, top)) return error;
  FileIdentity parentOfTop;
  if (auto error = ancestorOf(folder, place.depth + 1, parentOfTop)) return error;
  const bool isInPlace = top == _top && parentOfTop == _parentOfTop;
  return isInPlace ? std::nullopt : std::optional(posixError(POSIXErrorCode::Stale));
}

bool WalkPool::offer(const Place& parent, const std::string& name) {
  if (_threads < 2 || !_hasRoom.load(std::memory_order_relaxed)) return false;
  const std::lock_guard lock(_mutex);
  if (_queue.size() >= queueLimit) return false;
  _queue.push_back({parent, name});
  _hasRoom.store(_queue.size() < queueLimit, std::memory_order_relaxed);
  if (_idleThreads > 0) {
    _changed.notify_one();
  } else if (_helpers.size() + 1 < _threads) {
    try {
      _helpers.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      // No more threads are to be had. Those that there are take the subtree from the queue, this
      // one at the latest.
    }
  }
  return true;
}

std::optional<Error> WalkPool::run(std::shared_ptr<FolderReader> top) {
  attempt([&] { return Walker(*this).walk({std::move(top), 0}); });
  work();
  // Joins the threads. None is at work any more, so none can be added meanwhile.
  _helpers.clear();
  if (_exception) std::rethrow_exception(_exception);
  return _error;
}

// Takes subtrees until there are none and nobody is busy who could offer one. After a failure, each
// of them ends before its first entry.
void WalkPool::work() {
  std::unique_lock lock(_mutex);
  for (;;) {
    ++_idleThreads;
    _changed.wait(lock, [this] { return !_queue.empty() || _busyThreads == 0; });
    --_idleThreads;
    if (_queue.empty()) return;
    const Subtree subtree = std::move(_queue.front());
    _queue.pop_front();
    _hasRoom.store(true, std::memory_order_relaxed);
    ++_busyThreads;
    lock.unlock();
    attempt([&] { return perform(subtree); });
    lock.lock();
  }
}

std::optional<Error> WalkPool::perform(const Subtree& subtree) {
  const Place& parent = subtree.parent;
  if (parent.depth + 1 == maximumWalkDepth) return posixError(POSIXErrorCode::NameTooLong);
  FileDescriptor folder;
  if (auto error = openFolder(parent.reader->folder(), subtree.name.c_str(), folder)) {
    return isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }
  auto reader = std::make_shared<FolderReader>(std::move(folder));
  if (auto error = Walker(*this).walk({std::move(reader), parent.depth + 1})) return error;
  if (isStopped()) return std::nullopt;
  if (auto error = check(parent)) return error;
  return _visitor.leave(parent.reader->folder(), subtree.name.c_str());
}

// One thread's part of the work. What it raises must not end the thread, and with it the process,
// nor leave the others waiting for it.
template <typename Part>
void WalkPool::attempt(const Part& part) noexcept {
  try {
    finish(part(), nullptr);
  } catch (...) {
    finish(std::nullopt, std::current_exception());
  }
}

void WalkPool::finish(std::optional<Error> error, std::exception_ptr exception) {
  const std::lock_guard lock(_mutex);
  --_busyThreads;
  if ((error || exception) && !isStopped()) {
    _error = std::move(error);
    _exception = std::move(exception);
    _stopped.store(true, std::memory_order_relaxed);
  }
  if (_busyThreads == 0) _changed.notify_all();
}

}  // namespace

std::optional<Error> walkFolder(int parent, const char* name, FolderVisitor& visitor,
                                unsigned threads, const std::stop_token& stop) {
  FileDescriptor folder;
  if (auto error = openFolder(parent, name, folder)) return error;
  FileIdentity top;
  if (auto error = ancestorOf(folder.get(), 0, top)) return error;
  FileIdentity parentOfTop;
  if (auto error = ancestorOf(parent, 0, parentOfTop)) return error;
  auto reader = std::make_shared<FolderReader>(std::move(folder));
  return WalkPool(visitor, threads, top, parentOfTop, stop).run(std::move(reader));
}

}  // namespace corvane
