#include "operationset-vnt/FolderWalk.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "foundation/POSIXError.h"

namespace corvane {

namespace {

// A subfolder whose walk is left to whichever thread has nothing else to do.
struct Subtree {
  std::shared_ptr<FolderReader> parent;
  std::string name;
};

// The threads of one walk, and what they share.
class WalkPool {
 public:
  WalkPool(FolderVisitor& visitor, unsigned threads) : _visitor(visitor), _threads(threads) {}

  std::optional<Error> run(std::shared_ptr<FolderReader> top);

  FolderVisitor& visitor() { return _visitor; }
  bool isStopped() const { return _stopped.load(std::memory_order_relaxed); }
  // True if the subtree was taken; false if the caller should see to it itself.
  bool offer(const std::shared_ptr<FolderReader>& parent, const std::string& name);

 private:
  static constexpr std::size_t queueLimit = 8;

  void work();
  std::optional<Error> perform(const Subtree& subtree);
  void finish(std::optional<Error> error);

  FolderVisitor& _visitor;
  const unsigned _threads;
  std::atomic<bool> _stopped = false;
  std::atomic<bool> _hasRoom = true;

  std::mutex _mutex;
  std::condition_variable _changed;
  std::deque<Subtree> _queue;
  unsigned _busy = 1;
  unsigned _idle = 0;
  std::optional<Error> _error;
  std::vector<std::jthread> _helpers;
};

// One thread's way through one subtree, depth first.
class Walker {
 public:
  explicit Walker(WalkPool& pool) : _pool(pool) {}

  std::optional<Error> walk(std::shared_ptr<FolderReader> top);

 private:
  // A folder between the top and where the walk is. Of those far above only what it takes to come
  // back to them is kept.
  struct Level {
    std::string name;
    std::shared_ptr<FolderReader> reader;
    // One subfolder is held back, so that there is work left once others were given away.
    std::string heldBack;
    FileIdentity identity;
    std::uint64_t position = 0;
  };

  static constexpr std::size_t openLevels = 8;
  // Before this many entries, another thread would cost more than it could help.
  static constexpr std::size_t entriesBeforeSharing = 256;

  std::optional<Error> step();
  std::optional<Error> meetSubfolder(std::string name);
  std::optional<Error> descend(std::string name);
  std::optional<Error> ascend();
  std::optional<Error> open(int folder, const char* name, FileDescriptor& subfolder);
  std::optional<Error> closeTopmost();
  std::size_t openCount() const { return _levels.size() - _closed; }

  WalkPool& _pool;
  std::deque<Level> _levels;
  std::size_t _closed = 0;  // how many levels, from the top, are not open
  std::size_t _entries = 0;
};

std::optional<Error> Walker::walk(std::shared_ptr<FolderReader> top) {
  _levels.push_back({{}, std::move(top), {}, {}, 0});
  while (!_levels.empty() && !_pool.isStopped()) {
    if (auto error = step()) return error;
  }
  return std::nullopt;
}

std::optional<Error> Walker::step() {
  Level& level = _levels.back();
  std::optional<Error> error;
  if (const FolderEntry* entry = level.reader->next(error)) {
    ++_entries;
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
  if (_entries >= entriesBeforeSharing && _pool.offer(level.reader, name)) return std::nullopt;
  return descend(std::move(name));
}

std::optional<Error> Walker::descend(std::string name) {
  FileDescriptor folder;
  if (auto error = open(_levels.back().reader->folder(), name.c_str(), folder)) {
    return isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }
  _levels.push_back(
      {std::move(name), std::make_shared<FolderReader>(std::move(folder)), {}, {}, 0});
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
    FileStatus status;
    if (auto error = fstat(folder.get(), status)) return error;
    if (status.identity != level.identity) return posixError(POSIXErrorCode::Stale);
    level.reader = std::make_shared<FolderReader>(std::move(folder), level.position);
    --_closed;
  }
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
  Level& level = _levels[_closed];
  FileStatus status;
  if (auto error = fstat(level.reader->folder(), status)) return error;
  level.identity = status.identity;
  level.position = level.reader->position();
  level.reader.reset();
  ++_closed;
  return std::nullopt;
}

bool WalkPool::offer(const std::shared_ptr<FolderReader>& parent, const std::string& name) {
  if (_threads < 2 || !_hasRoom.load(std::memory_order_relaxed)) return false;
  const std::lock_guard lock(_mutex);
  // No thread may be added to those that `run` waits for once it has begun to.
  if (isStopped() || _queue.size() >= queueLimit) return false;
  _queue.push_back({parent, name});
  _hasRoom.store(_queue.size() < queueLimit, std::memory_order_relaxed);
  if (_idle > 0) {
    _changed.notify_one();
  } else if (_helpers.size() + 1 < _threads) {
    try {
      _helpers.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
      // The threads there are do without another one; this one takes the subtree in the end.
    }
  }
  return true;
}

std::optional<Error> WalkPool::run(std::shared_ptr<FolderReader> top) {
  finish(Walker(*this).walk(std::move(top)));
  work();
  _helpers.clear();
  return _error;
}

void WalkPool::work() {
  std::unique_lock lock(_mutex);
  for (;;) {
    ++_idle;
    _changed.wait(lock, [this] { return !_queue.empty() || _busy == 0 || isStopped(); });
    --_idle;
    if (_queue.empty() || isStopped()) return;
    const Subtree subtree = std::move(_queue.front());
    _queue.pop_front();
    _hasRoom.store(true, std::memory_order_relaxed);
    ++_busy;
    lock.unlock();
    auto error = perform(subtree);
    finish(std::move(error));
    lock.lock();
  }
}

std::optional<Error> WalkPool::perform(const Subtree& subtree) {
  FileDescriptor folder;
  if (auto error = openFolder(subtree.parent->folder(), subtree.name.c_str(), folder)) {
    return isPOSIXError(*error, POSIXErrorCode::NoEntry) ? std::nullopt : error;
  }
  if (auto error = Walker(*this).walk(std::make_shared<FolderReader>(std::move(folder)))) {
    return error;
  }
  return isStopped() ? std::nullopt
                     : _visitor.leave(subtree.parent->folder(), subtree.name.c_str());
}

// One thread has come to the end of what it was at.
void WalkPool::finish(std::optional<Error> error) {
  const std::lock_guard lock(_mutex);
  --_busy;
  if (error && !_error) {
    _error = std::move(error);
    _stopped.store(true, std::memory_order_relaxed);
  }
  if (_busy == 0 || _error) _changed.notify_all();
}

}  // namespace

std::optional<Error> walkFolder(std::shared_ptr<FolderReader> folder, FolderVisitor& visitor,
                                unsigned threads) {
  return WalkPool(visitor, threads).run(std::move(folder));
}

}  // namespace corvane
