#ifndef CORVANE_FOUNDATION_EXCEPTION_H
#define CORVANE_FOUNDATION_EXCEPTION_H

#include <exception>
#include <string>
#include <utility>

namespace corvane {

/// What is raised where a failure is not a value: a name that tells the kind, and a reason.
///
/// This and what else derives from std::exception may pass the seam, in both directions, where its
/// headers do not say otherwise. A side catches the exceptions of a runtime of its system's own and
/// raises one of these in their place, and lets nothing of ours into frames of that runtime.
class Exception : public std::exception {
 public:
  Exception(std::string name, std::string reason)
      : _name(std::move(name)), _reason(std::move(reason)) {}

  const std::string& name() const { return _name; }
  /// May be empty.
  const std::string& reason() const { return _reason; }
  const char* what() const noexcept override { return _reason.c_str(); }

 private:
  std::string _name;
  std::string _reason;
};

}  // namespace corvane

#endif
