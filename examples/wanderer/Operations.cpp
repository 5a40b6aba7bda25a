// What changes when a machine is taken somewhere else: its time zone, and the names of the hosts
// around it.

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <corvane/foundation/POSIXError.h>
#include <corvane/operations/OperationError.h>
#include <corvane/operations/PrincipalClass.h>

#include "corvane-helper.h"

using namespace corvane;
namespace fs = std::filesystem;

namespace {

const fs::path zones = "/usr/share/zoneinfo";

constexpr OperationErrorText noZoneError = {
    1, "There is no such time zone.", "Choose one of the folder '$1$', such as 'Europe/Berlin'."};
constexpr OperationErrorText noEntryError = {2, "This is no entry for a host.",
                                             "'$1$' is to be an address, a space and a name."};
constexpr OperationErrorText unknownHostsError = {3, "Some of the hosts are not known.",
                                                  "Of these, add those that are missing: $1$."};

// Puts `text` in the place of a file in one step: nobody sees half of it. The folder is root's.
std::optional<Error> replaceFile(const std::string& path, const std::string& text) {
  const std::string made = path + ".wanderer";
  std::ofstream file(made);
  if (!(file << text).flush()) return posixErrorAbout(made, EIO);
  std::error_code failure;
  fs::rename(made, path, failure);
  if (failure) return posixErrorAbout(path, failure.value());
  return std::nullopt;
}

// set-time-zone ZONE
std::optional<Error> setTimeZone(const OperationRun& /*run*/, const std::string& zone) {
  // What is asked for is a name, and must not become a way out of the folder of zones.
  std::error_code failure;
  const fs::path file = fs::canonical(zones / zone, failure);
  const bool isInside =
      std::mismatch(zones.begin(), zones.end(), file.begin(), file.end()).first == zones.end();
  if (failure || !isInside || !fs::is_regular_file(file, failure)) {
    return operationError(noZoneError, {zones.string()}, zone);
  }
  fs::remove("/etc/localtime.wanderer", failure);
  fs::create_symlink(zones / zone, "/etc/localtime.wanderer", failure);
  if (!failure) fs::rename("/etc/localtime.wanderer", "/etc/localtime", failure);
  if (failure) return posixErrorAbout("/etc/localtime", failure.value());
  return std::nullopt;
}

// An address of either kind, one space, and a name of letters, digits, "." and "-".
bool isEntry(const std::string& entry) {
  const std::size_t space = entry.find(' ');
  if (space == std::string::npos || space + 1 == entry.size()) return false;
  const std::string address = entry.substr(0, space);
  in6_addr ignored{};
  return (inet_pton(AF_INET, address.c_str(), &ignored) == 1 ||
          inet_pton(AF_INET6, address.c_str(), &ignored) == 1) &&
         std::all_of(entry.begin() + static_cast<std::ptrdiff_t>(space) + 1, entry.end(),
                     [](unsigned char c) { return std::isalnum(c) || c == '.' || c == '-'; });
}

// Requests of several clients run at the same time: no two of them change the file.
std::mutex hostsMutex;

// add-hosts ENTRY...
std::optional<Error> addHosts(const ProgressRun& run, const std::vector<std::string>& entries) {
  const std::lock_guard lock(hostsMutex);
  std::ifstream file("/etc/hosts");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  if (!text.empty() && text.back() != '\n') text += '\n';
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (run.isCancelled()) return OperationRun::cancelled();
    if (!isEntry(entries[i])) return operationError(noEntryError, {entries[i]});
    text += entries[i] + "\n";
    run.reportProgress(static_cast<double>(i + 1) / static_cast<double>(entries.size()));
  }
  return replaceFile("/etc/hosts", text);
}

// look-up-hosts NAME...
std::optional<Error> lookUpHosts(const OutputRun& run, const std::vector<std::string>& names) {
  std::vector<std::string> arguments = {"-s", "files", "hosts", "--"};
  arguments.insert(arguments.end(), names.begin(), names.end());
  const Result<std::int32_t> status = run.runProgram("/usr/bin/getent", arguments);
  if (!status) return status.error();
  if (*status != 0) {
    std::string all;
    for (const std::string& name : names) all += (all.empty() ? "" : ", ") + name;
    return operationError(unknownHostsError, {all});
  }
  return std::nullopt;
}

class WandererOperations : public TableOperationSet {
 public:
  WandererOperations()
      : TableOperationSet(thisHelper,
                          {{0, "set-time-zone", OperationPolicy::DefaultRule,
                            "Wanderer would like to set the time zone.", &setTimeZone},
                           {1, "add-hosts", OperationPolicy::DefaultRule,
                            "Wanderer would like to add names of hosts.", &addHosts},
                           {2, "look-up-hosts", OperationPolicy::Allow,
                            "Wanderer would like to look up names of hosts.", &lookUpHosts}}) {}
};

const PrincipalClass principalClass(
    thisHelper.principalClass,
    &ZELPrivilegedOperationSet::privilegedOperationSetOf<WandererOperations>);

}  // namespace
