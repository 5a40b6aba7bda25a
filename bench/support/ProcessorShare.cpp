#include "bench/support/ProcessorShare.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include <unistd.h>

namespace corvane::bench {

namespace {

// Where the groups are that divide the processor: in a hierarchy of their own on older systems.
std::string topGroup() {
  return std::filesystem::exists("/sys/fs/cgroup/cgroup.controllers") ? "/sys/fs/cgroup"
                                                                      : "/sys/fs/cgroup/cpu";
}

bool dividesProcessor(std::string_view controllers) {
  // Without names it is the one hierarchy of newer systems.
  if (controllers.empty()) return topGroup() == "/sys/fs/cgroup";
  return ("," + std::string(controllers) + ",").find(",cpu,") != std::string::npos;
}

// Lines are "number:controllers:group".
std::string ownGroup() {
  std::ifstream groups("/proc/self/cgroup");
  for (std::string line; std::getline(groups, line);) {
    const std::size_t controllers = line.find(':') + 1;
    const std::size_t group = line.find(':', controllers) + 1;
    if (dividesProcessor(std::string_view(line).substr(controllers, group - 1 - controllers))) {
      return topGroup() + line.substr(group);
    }
  }
  throw std::runtime_error("no control group divides the processor");
}

void write(const std::string& path, const char* text) {
  std::ofstream file(path);
  if (!(file << text << std::flush)) throw std::system_error(errno, std::generic_category(), path);
}

void enter(const std::string& group) {
  write(group + "/cgroup.procs", "0");
}

}  // namespace

ProcessorShare::ProcessorShare(const std::string& name)
    : _group(topGroup() + "/corvane-bench-" + std::to_string(::getpid()) + "-" + name) {
  if (topGroup() == "/sys/fs/cgroup") write(topGroup() + "/cgroup.subtree_control", "+cpu");
  std::filesystem::create_directory(_group);
}

ProcessorShare::~ProcessorShare() {
  // The files in it are not real ones, so it is empty to the kernel.
  ::rmdir(_group.c_str());
}

ProcessorShare::Taken::Taken(const ProcessorShare& share) : _before(ownGroup()) {
  enter(share._group);
}

ProcessorShare::Taken::~Taken() {
  enter(_before);
}

}  // namespace corvane::bench
