#ifndef CORVANE_CLIENT_CLI_SETUP_PROTECTEDTREE_H
#define CORVANE_CLIENT_CLI_SETUP_PROTECTEDTREE_H

#include <optional>
#include <string>

#include "foundation/Error.h"

namespace corvane::cli {

/// A small tree of folders and files that cannot be changed, in a new folder that only this user
/// can enter. What nobody has deleted is removed with this object.
class ProtectedTree {
 public:
  ProtectedTree();
  ProtectedTree(const ProtectedTree&) = delete;
  ProtectedTree& operator=(const ProtectedTree&) = delete;
  ~ProtectedTree();

  /// Why there is none; nothing if it was made.
  const std::optional<Error>& error() const { return _error; }
  const std::string& path() const { return _path; }
  /// Whether anything is left of it.
  bool isThere() const;

 private:
  std::optional<Error> make();

  std::string _folder;
  std::string _path;
  std::optional<Error> _error;
};

}  // namespace corvane::cli

#endif
