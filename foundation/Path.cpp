#include "foundation/Path.h"

namespace corvane {

namespace {

std::string_view withoutSlashesAtEnd(std::string_view path) {
  const auto last = path.find_last_not_of('/');
  // Of nothing but slashes, one stays.
  return path.substr(0, last == std::string_view::npos ? 1 : last + 1);
}

}  // namespace

std::string lastPathComponent(std::string_view path) {
  const std::string_view trimmed = withoutSlashesAtEnd(path);
  if (trimmed == "/") return "/";
  return std::string(trimmed.substr(trimmed.find_last_of('/') + 1));
}

std::string deletingLastPathComponent(std::string_view path) {
  const std::string_view trimmed = withoutSlashesAtEnd(path);
  const auto slash = trimmed.find_last_of('/');
  if (slash == std::string_view::npos) return {};
  return std::string(withoutSlashesAtEnd(trimmed.substr(0, slash + 1)));
}

}  // namespace corvane
