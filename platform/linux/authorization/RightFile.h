#ifndef CORVANE_PLATFORM_LINUX_AUTHORIZATION_RIGHTFILE_H
#define CORVANE_PLATFORM_LINUX_AUTHORIZATION_RIGHTFILE_H

#include <functional>
#include <optional>
#include <string>

#include "platform/RightFaults.h"
#include "platform/linux/authorization/Authority.h"

namespace corvane {

/// A file of a folder of root's that defines one right for one authority.
struct RightFile {
  std::string folder;
  std::string name;
  std::string right;
};

/// What such a file says; nothing if it defines nothing.
using ReadRight = std::function<std::optional<RightDefinition>(const Data& bytes)>;
/// What a rule is called in such a file.
using NameOfRule = std::function<std::string(const std::string& rule)>;

/// What keeps `file` from being the one with the bytes `expected`, which say `definition`.
std::optional<RightFault> faultOf(const RightFile& file, const Data& expected,
                                  const RightDefinition& definition, const ReadRight& read,
                                  const NameOfRule& nameOfRule);

}  // namespace corvane

#endif
