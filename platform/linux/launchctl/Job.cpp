#include "platform/linux/launchctl/Job.h"

#include <string_view>

#include <sys/wait.h>

namespace corvane {

namespace {

constexpr std::string_view serviceSuffix = ".service";
constexpr std::string_view socketSuffix = ".socket";

}  // namespace

std::optional<Job> Job::named(ServiceManager& manager, const std::string& label) {
  Job job(label);
  job._hasService = manager.isKnown(job.service());
  job._hasSocket = manager.isKnown(job.socket());
  if (!job._hasService && !job._hasSocket) return std::nullopt;
  return job;
}

std::map<std::string, Job> Job::all(ServiceManager& manager) {
  std::map<std::string, Job> jobs;
  for (const std::string& unit : manager.loadedUnits({"*.service", "*.socket"})) {
    const bool isService = unit.ends_with(serviceSuffix);
    const std::string label =
        unit.substr(0, unit.size() - (isService ? serviceSuffix : socketSuffix).size());
    Job& job = jobs.try_emplace(label, Job(label)).first->second;
    (isService ? job._hasService : job._hasSocket) = true;
  }
  return jobs;
}

std::vector<std::string> Job::units() const {
  std::vector<std::string> units;
  if (_hasSocket) units.push_back(socket());
  if (_hasService) units.push_back(service());
  return units;
}

std::optional<std::int64_t> Job::pid(ServiceManager& manager) const {
  const std::int64_t pid =
      _hasService ? manager.integer(service(), serviceInterface, "MainPID") : 0;
  if (pid == 0) return std::nullopt;
  return pid;
}

std::int64_t Job::lastExit(ServiceManager& manager) const {
  if (!_hasService) return 0;
  const std::int64_t kind = manager.integer(service(), serviceInterface, "ExecMainCode");
  const std::int64_t status = manager.integer(service(), serviceInterface, "ExecMainStatus");
  return kind == CLD_KILLED || kind == CLD_DUMPED ? -status : status;
}

std::string Job::state(ServiceManager& manager) const {
  return manager.text(units().back(), unitInterface, "ActiveState");
}

std::string Job::path(ServiceManager& manager) const {
  return manager.text(units().back(), unitInterface, "FragmentPath");
}

std::vector<std::string> Job::command(ServiceManager& manager) const {
  if (!_hasService) return {};
  return manager.commandOfService(service());
}

}  // namespace corvane
