#include "platform/macos/installation/LaunchdJob.h"

#include <utility>

#include "foundation/POSIXError.h"
#include "foundation/PropertyList.h"
#include "platform/posix/Program.h"

namespace corvane {

namespace {

constexpr const char* launchControl = "/bin/launchctl";

}  // namespace

Data LaunchdJob::contentFor(const std::string& program) const {
  const Dictionary job{{"Label", _label},
                       {"MachServices", Dictionary{{_label, true}}},
                       {"Program", program},
                       {"ProgramArguments", Array{program}}};
  Result<Data> content = writePropertyList(job, PropertyListFormat::XML);
  // Of texts like these there is always one.
  return *std::move(content);
}

bool LaunchdJob::isLoaded() const {
  return runProgram(launchControl, {"print", "system/" + _label}).status == 0;
}

Result<void> LaunchdJob::load() const {
  const ProgramResult result = runProgram(launchControl, {"bootstrap", "system", _path});
  if (result.status == 0) return {};
  return posixError(
      POSIXErrorCode::InputOutput,
      {{NSFilePathErrorKey, _path},
       {NSLocalizedDescriptionKey, _path + " is not taken by launchd: " + result.text},
       {NSLocalizedRecoverySuggestionErrorKey,
        "Unless it is disabled on purpose: launchctl enable system/" + _label +
            ", and try again."}});
}

void LaunchdJob::unload() const {
  runProgram(launchControl, {"bootout", "system/" + _label});
}

}  // namespace corvane
