#ifndef CORVANE_CLIENT_CLI_OUTPUT_PROGRESSBAR_H
#define CORVANE_CLIENT_CLI_OUTPUT_PROGRESSBAR_H

namespace corvane::cli {

/// A bar on standard error that fills from left to right. Shows nothing unless standard error is a
/// terminal. One thread at a time.
class ProgressBar {
 public:
  explicit ProgressBar(bool isWanted);
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;
  /// Takes the bar off the screen.
  ~ProgressBar();

  /// Shows that `fraction` (0.0 to 1.0) is done.
  void show(double fraction);

 private:
  bool _isShown;
  int _percent = -1;
};

}  // namespace corvane::cli

#endif
