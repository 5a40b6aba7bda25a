#ifndef CORVANE_TESTS_SUPPORT_TEMPORARYFOLDER_H
#define CORVANE_TESTS_SUPPORT_TEMPORARYFOLDER_H

#include <string>
#include <string_view>

namespace corvane {

/// A folder of a test, which every user may enter, gone with all that is in it when the test is
/// over, protected or not. Failures throw std::system_error.
class TemporaryFolder {
 public:
  /// Without a parent, it is where files can be protected if they can be anywhere.
  explicit TemporaryFolder(const std::string& parent = "/var/tmp");
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::string& path() const { return _path; }
  std::string path(std::string_view name) const { return _path + "/" + std::string(name); }

  /// Each makes an object and returns its path. A file is overwritten if it is there already, and
  /// the folders on the way to it are made.
  std::string makeFile(std::string_view name, std::string_view content = "") const;
  /// A script of the shell that every user may run.
  std::string makeScript(std::string_view name, std::string_view commands) const;
  std::string makeFolder(std::string_view name) const;
  std::string makeLink(std::string_view name, const std::string& target) const;
  std::string makeWhiteout(std::string_view name) const;
  std::string makeFifo(std::string_view name) const;

 private:
  std::string _path;
};

}  // namespace corvane

#endif
