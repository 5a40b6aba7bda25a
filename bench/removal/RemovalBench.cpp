// Removes trees in turn with this project's code and with what one would use instead, and prints
// how they compare. Every removal runs in a process of its own, so that peak memory is its own.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/removal/TestTree.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"

namespace corvane {
namespace {

using Command = std::vector<std::string>;

struct Run {
  double seconds = 0;
  double peakMemoryMiB = 0;
};

struct Contender {
  const char* name;
  // Run one after the other, each with the path of the tree as a further argument.
  std::vector<Command> commands;
};

constexpr std::string_view removeMode = "--remove";

int removeTree(const std::string& path) {
  ZELPrivilegedOperationSetVNT set;
  const auto error =
      set.performOperationDeleteFileobjectsWithArguments(Array{"1", "1", path}, nullptr);
  if (!error) return EXIT_SUCCESS;
  std::fprintf(stderr, "%s: %s\n", path.c_str(), error->localizedDescription().c_str());
  return EXIT_FAILURE;
}

Run run(const Contender& contender, const std::string& path) {
  Run result;
  const auto start = std::chrono::steady_clock::now();
  for (Command command : contender.commands) {
    command.push_back(path);
    std::vector<char*> arguments;
    for (std::string& argument : command) arguments.push_back(argument.data());
    arguments.push_back(nullptr);
    pid_t process = 0;
    int status = 0;
    rusage usage{};
    if (::posix_spawnp(&process, arguments[0], nullptr, nullptr, arguments.data(), environ) != 0 ||
        ::wait4(process, &status, 0, &usage) != process || status != 0) {
      throw std::runtime_error(command[0] + " failed");
    }
    result.peakMemoryMiB =
        std::max(result.peakMemoryMiB, static_cast<double>(usage.ru_maxrss) / 1024);
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  result.seconds = elapsed.count();
  if (::access(path.c_str(), F_OK) == 0) throw std::runtime_error(path + " is still there");
  ::sync();
  return result;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The first contender is compared with each of the others.
void compare(const char* title, const std::vector<Contender>& contenders, const std::string& path,
             const TreeShape& shape, int rounds) {
  std::printf("%s\n", title);
  std::vector<std::vector<double>> seconds(contenders.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < contenders.size(); ++i) {
      makeTree(path, shape);
      seconds[i].push_back(run(contenders[i], path).seconds);
    }
  }
  const double own = median(seconds[0]);
  for (std::size_t i = 0; i < contenders.size(); ++i) {
    const auto [least, most] = std::minmax_element(seconds[i].begin(), seconds[i].end());
    const double value = median(seconds[i]);
    std::printf("  %-24s median %.3f s (%.3f to %.3f)", contenders[i].name, value, *least, *most);
    if (i > 0) std::printf(", ratio %.2f", value / own);
    std::printf("\n");
  }
  std::fflush(stdout);
}

int benchmark(const std::string& program, const std::string& directory, int rounds,
              std::size_t million) {
  const std::string path = directory + "/removal-bench." + std::to_string(::getpid());
  const Contender own = {"enforced removal", {{program, std::string(removeMode)}}};
  const Contender remove = {"rm -rf", {{"rm", "-rf"}}};
  const Contender unprotect = {"chattr -R -i; rm -rf", {{"chattr", "-R", "-i"}, {"rm", "-rf"}}};

  compare("100,000 files in 1,000 folders", {own, remove, unprotect}, path, {1000, 100, 0}, rounds);
  compare("100,000 files in 1,000 folders, every tenth immutable", {own, unprotect}, path,
          {1000, 100, 10}, rounds);

  for (const std::size_t files : {million / 1000, million}) {
    makeTree(path, {std::max<std::size_t>(files / 1000, 1), std::min<std::size_t>(files, 1000), 0});
    std::printf("peak memory of the removal of %zu files: %.1f MiB\n", files,
                run(own, path).peakMemoryMiB);
  }
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace corvane

// removal-bench [DIRECTORY [ROUNDS [FILES]]]: FILES is how many to measure memory with.
int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv, argv + argc);
  try {
    if (argc == 3 && arguments[1] == corvane::removeMode) return corvane::removeTree(arguments[2]);
    return corvane::benchmark("/proc/self/exe", argc > 1 ? arguments[1] : "/var/tmp",
                              argc > 2 ? std::stoi(arguments[2]) : 5,
                              argc > 3 ? std::stoul(arguments[3]) : 1000000);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "removal-bench: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
