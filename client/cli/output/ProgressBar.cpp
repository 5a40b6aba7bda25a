#include "client/cli/output/ProgressBar.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <sys/ioctl.h>
#include <unistd.h>

namespace corvane::cli {

namespace {

constexpr int widest = 60;

int barWidth() {
  winsize size{};
  const bool isKnown = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  // Room for the brackets and the percentage.
  return std::clamp((isKnown ? size.ws_col : 80) - 8, 10, widest);
}

}  // namespace

ProgressBar::ProgressBar(bool isWanted) : _isShown(isWanted && ::isatty(STDERR_FILENO) == 1) {}

ProgressBar::~ProgressBar() {
  if (_percent >= 0) std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(double fraction) {
  const int percent = static_cast<int>(std::clamp(fraction, 0.0, 1.0) * 100);
  if (!_isShown || percent == _percent) return;
  _percent = percent;
  const int width = barWidth();
  const auto filled = static_cast<std::size_t>(width * percent / 100);
  std::string bar(static_cast<std::size_t>(width), '.');
  std::fill_n(bar.begin(), filled, '#');
  std::fprintf(stderr, "\r[%s] %3d%%", bar.c_str(), percent);
}

}  // namespace corvane::cli
