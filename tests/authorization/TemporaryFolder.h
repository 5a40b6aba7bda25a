#ifndef CORVANE_TESTS_AUTHORIZATION_TEMPORARYFOLDER_H
#define CORVANE_TESTS_AUTHORIZATION_TEMPORARYFOLDER_H

#include <string>

namespace corvane {

/// A new folder of root's own, removed with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  const std::string& path() const { return _path; }
  std::string operator/(const std::string& name) const { return _path + "/" + name; }

 private:
  std::string _path;
};

/// The folder that the process's own authorization service works in during the tests.
const TemporaryFolder& authorizationFolder();

std::string contentOf(const std::string& path);
void writeFile(const std::string& path, const std::string& content, unsigned permissions = 0600);

}  // namespace corvane

#endif
