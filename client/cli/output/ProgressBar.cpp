#include "client/cli/output/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/ioctl.h>
#include <unistd.h>

#include "client/cli/output/Report.h"
#include "foundation/NoDestructor.h"
#include "foundation/Unicode.h"

namespace corvane::cli {

namespace {

constexpr std::chrono::milliseconds betweenTurns{200};
constexpr std::string_view turns = "|/-\\";
constexpr std::size_t widestBar = 40;
constexpr std::size_t narrowestBar = 5;
constexpr std::size_t frame = 3;  // " [" and "]"
constexpr std::string_view omission = "...";

bool isTerminal() {
  const char* name = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && name != nullptr && *name != '\0' &&
         std::string_view(name) != "dumb";
}

// What the terminal shows for Ctrl-C behind the line, and the last column, where it would wrap.
constexpr std::size_t columnsLeftFree = 3;

std::size_t lineWidth() {
  winsize size{};
  const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  const std::size_t width = isKnown ? size.ws_col : std::size_t{80};
  return width - std::min(width, columnsLeftFree);
}

// The end of `text` in so many columns.
std::string endOf(std::string_view text, std::size_t width) {
  std::vector<std::pair<std::string_view, std::size_t>> characters;
  std::size_t needed = 0;
  while (!text.empty()) {
    const std::string_view rest = text;
    const auto character = takeUTF8Character(text);
    if (!character) break;
    const std::string_view shown = rest.substr(0, rest.size() - text.size());
    const std::size_t columns = columnsOf(shown);
    characters.emplace_back(shown, columns);
    needed += columns;
  }
  if (needed > width && width < omission.size()) return {};
  std::string end;
  auto first = characters.begin();
  if (needed > width) {
    end = omission;
    for (; needed > width - omission.size(); ++first) needed -= first->second;
  }
  for (; first != characters.end(); ++first) end += first->first;
  return end;
}

std::string elapsed(std::chrono::steady_clock::duration duration) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(duration).count();
  const std::string rest = std::to_string(seconds % 60);
  return std::to_string(seconds / 60) + (rest.size() < 2 ? ":0" : ":") + rest;
}

// The line that this process shows, if it does: there is one terminal.
struct Shown {
  std::mutex mutex;
  ProgressBar* bar = nullptr;
};
Shown& lineOfProcess() {
  static NoDestructor<Shown> shared;
  return *shared;
}

}  // namespace

ProgressBar::ProgressBar(bool isWanted, bool isMeasured)
    : _isShown(isWanted && isTerminal()), _isMeasured(isMeasured) {
  const std::lock_guard held(lineOfProcess().mutex);
  lineOfProcess().bar = this;
}

ProgressBar::~ProgressBar() {
  {
    const std::lock_guard held(lineOfProcess().mutex);
    lineOfProcess().bar = nullptr;
  }
  {
    const std::lock_guard lock(_mutex);
    _isEnding = true;
    _changed.notify_all();
  }
  if (_thread.joinable()) _thread.join();
  erase();
}

void ProgressBar::show(double fraction) {
  const std::lock_guard lock(_mutex);
  if (!_isShown) return;
  _percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100);
  const bool wasOnScreen = std::exchange(_isOnScreen, true);
  if (!_begin) {
    _begin = std::chrono::steady_clock::now();
    _thread = std::thread([this] { run(); });
  }
  // What comes fast is drawn with the next turn.
  if (!wasOnScreen || _percent == 100) draw();
}

void ProgressBar::name(const std::string& object) {
  const std::lock_guard lock(_mutex);
  _object = object;
}

void ProgressBar::hide() {
  const std::lock_guard lock(_mutex);
  erase();
}

bool ProgressBar::hideAny() {
  const std::lock_guard held(lineOfProcess().mutex);
  if (lineOfProcess().bar == nullptr) return false;
  const std::lock_guard lock(lineOfProcess().bar->_mutex);
  return lineOfProcess().bar->erase();
}

void ProgressBar::run() {
  std::unique_lock lock(_mutex);
  while (!_changed.wait_for(lock, betweenTurns, [this] { return _isEnding; })) {
    ++_turn;
    if (_isOnScreen) draw();
  }
}

void ProgressBar::draw() {
  std::fprintf(stderr, "\r%s\033[K", line(lineWidth()).c_str());
}

bool ProgressBar::erase() {
  if (!std::exchange(_isOnScreen, false)) return false;
  std::fputs("\r\033[K", stderr);
  return true;
}

std::string ProgressBar::line(std::size_t width) const {
  std::string shown(1, turns[_turn % turns.size()]);
  shown += ' ' + elapsed(std::chrono::steady_clock::now() - *_begin);
  if (_isMeasured) {
    std::string percent = std::to_string(_percent) + '%';
    percent.insert(0, 5 - percent.size(), ' ');
    // A third of the line; the rest is for what it is at. What is counted comes before the bar.
    const std::size_t bar = std::min(width / 3, widestBar);
    if (bar >= narrowestBar && shown.size() + bar + frame + percent.size() <= width) {
      const std::size_t filled = bar * static_cast<std::size_t>(_percent) / 100;
      shown += " [" + std::string(filled, '#') + std::string(bar - filled, '.') + ']';
    }
    shown += percent;
  }
  shown.resize(std::min(shown.size(), width));
  if (shown.size() + 1 < width) shown += ' ' + endOf(printable(_object), width - shown.size() - 1);
  return shown;
}

}  // namespace corvane::cli
