#include "platform/linux/authorization/RightFile.h"

#include "foundation/POSIXError.h"
#include "platform/linux/authorization/RootFolder.h"

namespace corvane {

namespace {

using Kind = RightFault::Kind;

struct Finding {
  POSIXErrorCode code;
  Kind kind;
  const char* description;
};
// What it means that a file or its folder cannot be read.
constexpr Finding findings[] = {
    {POSIXErrorCode::NoEntry, Kind::Missing, "is missing"},
    {POSIXErrorCode::NotPermitted, Kind::Unsafe, "can be changed by others than root"},
    {POSIXErrorCode::LinkLoop, Kind::Unsafe, "is a link"},
    {POSIXErrorCode::Access, Kind::Unknown, "may be looked at by root only"},
};

RightFault faultFrom(const Error& error, const RightFile& file) {
  RightFault fault{Kind::Damaged, file.right,
                   error.userInfo().text(NSFilePathErrorKey).value_or(file.name),
                   "cannot be read: " + posixDescription(error.code())};
  for (const Finding& finding : findings) {
    if (!isPOSIXError(error, finding.code)) continue;
    fault.kind = finding.kind;
    fault.description = finding.description;
  }
  return fault;
}

}  // namespace

std::optional<RightFault> faultOf(const RightFile& file, const Data& expected,
                                  const RightDefinition& definition, const ReadRight& read,
                                  const NameOfRule& nameOfRule) {
  const Result<RootFolder> folder = RootFolder::open(file.folder);
  if (!folder) return faultFrom(folder.error(), file);
  const Result<Data> bytes = folder->read(file.name, everyoneElseReads);
  if (!bytes) return faultFrom(bytes.error(), file);
  if (*bytes == expected) return std::nullopt;

  const std::string path = file.folder + "/" + file.name;
  const auto found = read(*bytes);
  if (!found) return RightFault{Kind::Damaged, file.right, path, "is damaged"};
  const std::string change = found->rule == definition.rule
                                 ? ""
                                 : ": it says '" + nameOfRule(found->rule) + "' instead of '" +
                                       nameOfRule(definition.rule) + "'";
  return RightFault{Kind::Changed, file.right, path, "differs from what is shipped" + change};
}

}  // namespace corvane
