#ifndef CORVANE_CLIENT_CLI_OUTPUT_PROGRESSBAR_H
#define CORVANE_CLIENT_CLI_OUTPUT_PROGRESSBAR_H

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace corvane::cli {

/// One line on standard error that tells for how long something has been going on, how much of it
/// is done, and what it is at; it moves by itself. Shows nothing unless standard error is a
/// terminal that can take a line back. Safe on any thread.
class ProgressBar {
 public:
  /// `isMeasured` if there are parts that it can tell: else nothing is said of how much is done.
  ProgressBar(bool isWanted, bool isMeasured);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  /// Takes the line off the screen.
  ~ProgressBar();

  bool isShown() const { return _isShown; }

  /// Shows that `fraction` (0.0 to 1.0) is done, from now on.
  void show(double fraction);
  /// What it is at.
  void name(const std::string& object);
  /// Takes the line off the screen until the next `show`.
  void hide();
  /// The same for whatever line this process shows. False if it shows none.
  static bool hideAny();

 private:
  void run();
  void draw();
  bool erase();
  std::string line(std::size_t width) const;

  const bool _isShown;
  const bool _isMeasured;
  std::mutex _mutex;
  std::condition_variable _changed;
  std::optional<std::chrono::steady_clock::time_point> _begin;
  bool _isOnScreen = false;
  bool _isEnding = false;
  int _percent = 0;
  std::size_t _turn = 0;
  std::string _object;
  std::thread _thread;
};

}  // namespace corvane::cli

#endif
