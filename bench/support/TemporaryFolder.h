#ifndef CORVANE_BENCH_SUPPORT_TEMPORARYFOLDER_H
#define CORVANE_BENCH_SUPPORT_TEMPORARYFOLDER_H

#include <string>

namespace corvane::bench {

/// A folder that only this user can enter, gone with its contents when the object goes. Failures
/// throw.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::string& path() const { return _path; }

 private:
  std::string _path;
};

}  // namespace corvane::bench

#endif
