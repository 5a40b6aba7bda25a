// launchctl, for machines whose services are systemd's: a job with the label L is the units
// L.service and L.socket.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include <systemd/sd-login.h>

#include "platform/linux/launchctl/Job.h"

namespace corvane {
namespace {

constexpr int statusDone = 0;
constexpr int statusFailed = 1;
constexpr int statusUsage = 64;
constexpr int statusUnavailable = 69;
constexpr int statusNoSuchJob = 113;

using Words = std::vector<std::string>;

struct Command {
  const char* name;
  const char* parameters;
  const char* description;
  std::size_t leastWords;
  std::size_t mostWords;
  int (*run)(const Words& words);
};

int usageError(const Command& command) {
  std::fprintf(stderr, "Usage: launchctl %s %s\n", command.name, command.parameters);
  return statusUsage;
}

// A job may be named with the domain that it is in, of which there is one.
std::string labelOf(const std::string& name) {
  constexpr std::string_view domain = "system/";
  return name.starts_with(domain) ? name.substr(domain.size()) : name;
}

template <typename Action>
int withJob(const std::string& name, const Action& action) {
  const std::string label = labelOf(name);
  ServiceManager manager;
  const auto job = label.empty() || label.find('/') != std::string::npos
                       ? std::nullopt
                       : Job::named(manager, label);
  if (!job) {
    std::fprintf(stderr, "Could not find service \"%s\" in domain for system\n", label.c_str());
    return statusNoSuchJob;
  }
  action(manager, *job);
  return statusDone;
}

void printQuoted(const char* indent, const std::string& key, const std::string& value) {
  std::printf("%s\"%s\" = \"%s\";\n", indent, key.c_str(), value.c_str());
}

void listJob(ServiceManager& manager, const Job& job) {
  // An exit status of a wait call, in which the number of a signal stands in the low bits.
  const std::int64_t lastExit = job.lastExit(manager);
  std::printf("{\n");
  printQuoted("\t", "LimitLoadToSessionType", "System");
  printQuoted("\t", "Label", job.label());
  std::printf("\t\"OnDemand\" = %s;\n", job.hasSocket() ? "true" : "false");
  std::printf("\t\"LastExitStatus\" = %lld;\n",
              static_cast<long long>(lastExit < 0 ? -lastExit : lastExit << 8U));
  if (const auto pid = job.pid(manager)) {
    std::printf("\t\"PID\" = %lld;\n", static_cast<long long>(*pid));
  }
  const auto command = job.command(manager);
  if (!command.empty()) {
    printQuoted("\t", "Program", command.front());
    std::printf("\t\"ProgramArguments\" = (\n");
    for (const std::string& word : command) std::printf("\t\t\"%s\";\n", word.c_str());
    std::printf("\t);\n");
  }
  std::printf("};\n");
}

int list(const Words& words) {
  if (!words.empty()) return withJob(words[0], listJob);
  ServiceManager manager;
  const auto jobs = Job::all(manager);
  std::printf("PID\tStatus\tLabel\n");
  for (const auto& [label, job] : jobs) {
    const auto pid = job.pid(manager);
    std::printf("%s\t%lld\t%s\n", pid ? std::to_string(*pid).c_str() : "-",
                static_cast<long long>(job.lastExit(manager)), label.c_str());
  }
  return statusDone;
}

void printJob(ServiceManager& manager, const Job& job) {
  const auto pid = job.pid(manager);
  const auto command = job.command(manager);
  const std::int64_t lastExit = job.lastExit(manager);
  std::printf("system/%s = {\n", job.label().c_str());
  std::printf("\tactive count = %d\n", pid ? 1 : 0);
  std::printf("\tpath = %s\n", job.path(manager).c_str());
  std::printf("\tstate = %s\n", pid ? "running" : job.state(manager).c_str());
  if (!command.empty()) {
    std::printf("\n\tprogram = %s\n\targuments = {\n", command.front().c_str());
    for (const std::string& word : command) std::printf("\t\t%s\n", word.c_str());
    std::printf("\t}\n\n");
  }
  if (pid) std::printf("\tpid = %lld\n", static_cast<long long>(*pid));
  if (lastExit < 0) {
    std::printf("\tlast terminating signal = %lld\n", static_cast<long long>(-lastExit));
  } else {
    std::printf("\tlast exit code = %lld\n", static_cast<long long>(lastExit));
  }
  std::printf("\tunits = {\n");
  for (const std::string& unit : job.units()) std::printf("\t\t%s\n", unit.c_str());
  std::printf("\t}\n}\n");
}

int print(const Words& words) {
  return withJob(words[0], printJob);
}

// The unit that runs the job: its service or, if it has none of its own, its socket.
std::string mainUnit(const Job& job) {
  return job.hasService() ? job.service() : job.socket();
}

int start(const Words& words) {
  return withJob(words[0], [](ServiceManager& manager, const Job& job) {
    manager.changeUnit("StartUnit", mainUnit(job));
  });
}

int stop(const Words& words) {
  return withJob(words[0], [](ServiceManager& manager, const Job& job) {
    manager.changeUnit("StopUnit", mainUnit(job));
  });
}

int kickstart(const Words& words) {
  const auto has = [&words](std::string_view option) {
    return std::find(words.begin(), words.end() - 1, option) != words.end() - 1;
  };
  return withJob(words.back(), [&](ServiceManager& manager, const Job& job) {
    manager.changeUnit(has("-k") ? "RestartUnit" : "StartUnit", mainUnit(job));
    const auto pid = job.pid(manager);
    if (has("-p") && pid) {
      std::printf("service spawned with pid: %lld\n", static_cast<long long>(*pid));
    }
  });
}

int enable(const Words& words) {
  return withJob(words[0], [](ServiceManager& manager, const Job& job) {
    bool isEnabled = false;
    for (const std::string& unit : job.units()) isEnabled |= manager.enableUnit(unit);
    if (!isEnabled) {
      throw ServiceManagerFailure(
          ServiceManagerFailure::Kind::Refused,
          "the units of " + job.label() + " do not say what they are to begin with");
    }
  });
}

int disable(const Words& words) {
  return withJob(words[0], [](ServiceManager& manager, const Job& job) {
    for (const std::string& unit : job.units()) manager.disableUnit(unit);
  });
}

// True if this process belongs to the unit.
bool runsInUnit(const std::string& unit) {
  char* own = nullptr;
  const bool isIn = sd_pid_get_unit(0, &own) >= 0 && unit == own;
  std::free(own);
  return isIn;
}

// Stops a unit that systemd may not know any more: one whose file is gone is forgotten as soon as
// it has been disabled.
template <typename Stop>
void stopIfLoaded(const Stop& stop) {
  try {
    stop();
  } catch (const ServiceManagerFailure& failure) {
    if (failure.kind() != ServiceManagerFailure::Kind::NoSuchUnit) throw;
  }
}

int remove(const Words& words) {
  return withJob(words[0], [](ServiceManager& manager, const Job& job) {
    for (const std::string& unit : job.units()) manager.disableUnit(unit);
    if (job.hasSocket()) stopIfLoaded([&] { manager.changeUnit("StopUnit", job.socket()); });
    // A service whose own process runs this program is removing itself: stopping it would end it in
    // the middle of that.
    if (job.hasService() && !runsInUnit(job.service())) {
      stopIfLoaded([&] { manager.queueChangeOfUnit("StopUnit", job.service()); });
    }
  });
}

int version(const Words& words);
int help(const Words& words);

constexpr auto commands = std::to_array<Command>({
    {"list", "[LABEL]", "Lists the jobs, or describes one.", 0, 1, list},
    {"print", "LABEL", "Prints what is known of a job.", 1, 1, print},
    {"start", "LABEL", "Starts a job.", 1, 1, start},
    {"stop", "LABEL", "Stops a job. One that is started on demand stays in wait.", 1, 1, stop},
    {"kickstart", "[-k] [-p] LABEL",
     "Starts a job; -k ends one that runs first, -p prints its process.", 1, 3, kickstart},
    {"enable", "LABEL", "Has a job begin with the system.", 1, 1, enable},
    {"disable", "LABEL", "Has a job not begin with the system.", 1, 1, disable},
    {"remove", "LABEL", "Stops a job, without waiting for its end, and disables it.", 1, 1, remove},
    {"version", "", "Prints the version of this program and of systemd.", 0, 0, version},
    {"help", "", "Prints this text.", 0, 0, help},
});

int version(const Words& /*words*/) {
  std::printf("launchctl for systemd, version %s\n", LAUNCHCTL_VERSION);
  std::printf("systemd %s\n", ServiceManager().version().c_str());
  return statusDone;
}

int help(const Words& /*words*/) {
  std::printf(
      "Usage: launchctl SUBCOMMAND [ARGUMENT...]\n\n"
      "A job with the label L is the systemd units L.service and L.socket. A label may be\n"
      "preceded by \"system/\".\n\n");
  for (const Command& command : commands) {
    const std::string usage = std::string(command.name) + " " + command.parameters;
    std::printf("  %-26s  %s\n", usage.c_str(), command.description);
  }
  std::printf(
      "\nExit status: 0 done, 1 failed, 64 wrong usage, 69 systemd is not running, 113 no such "
      "job.\n");
  return statusDone;
}

bool isUsageOf(const Command& command, const Words& words) {
  if (words.size() < command.leastWords || words.size() > command.mostWords) return false;
  // Options come before the label, and only one command has any.
  const auto isKnownOption = [&command](const std::string& word) {
    return command.run == kickstart && (word == "-k" || word == "-p");
  };
  return words.empty() || (!words.back().starts_with('-') &&
                           std::all_of(words.begin(), words.end() - 1, isKnownOption));
}

int runCommand(const Words& words) {
  const auto* const command = std::find_if(
      commands.begin(), commands.end(),
      [&](const Command& candidate) { return !words.empty() && words[0] == candidate.name; });
  if (command == commands.end()) {
    if (!words.empty()) std::fprintf(stderr, "Unrecognized subcommand: %s\n", words[0].c_str());
    std::fprintf(stderr, "Usage: launchctl SUBCOMMAND [ARGUMENT...]; see launchctl help\n");
    return statusUsage;
  }
  const Words rest(words.begin() + 1, words.end());
  if (!isUsageOf(*command, rest)) return usageError(*command);
  try {
    return command->run(rest);
  } catch (const ServiceManagerFailure& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "launchctl: %s\n", failure.what());
    return failure.kind() == ServiceManagerFailure::Kind::Unavailable ? statusUnavailable
                                                                      : statusFailed;
  }
}

}  // namespace
}  // namespace corvane

int main(int argc, char** argv) {
  return corvane::runCommand(corvane::Words(argv + 1, argv + argc));
}
