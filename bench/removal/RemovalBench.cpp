// Removes trees in turn with this project's code and with what one would use instead, and prints
// how they compare. Every removal runs in a process of its own, so that peak memory is its own.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/removal/TestTree.h"
#include "bench/support/Rounds.h"
#include "operations/ObjectLocation.h"
#include "operationset-vnt/RecursiveRemoval.h"

namespace corvane {
namespace {

using bench::median;
using Command = std::vector<std::string>;

struct Run {
  double seconds = 0;
  double processorSeconds = 0;
  double peakMemoryMiB = 0;
};

struct Contender {
  const char* name;
  // Run one after the other, each with the path of the tree as a further argument.
  std::vector<Command> commands;
};

constexpr std::string_view removeMode = "--remove";

std::optional<Error> remove(const std::string& path) {
  const Result<ObjectLocation> location = locateObject(path);
  if (!location) return location.error();
  return removeObjectRecursively(*location);
}

// Where all trees are made. Gone with what is left of them, be it that a contender failed.
class TreesFolder {
 public:
  explicit TreesFolder(std::string path) : _path(std::move(path)) { makeTree(_path, {}); }
  TreesFolder(const TreesFolder&) = delete;
  TreesFolder& operator=(const TreesFolder&) = delete;
  ~TreesFolder() { remove(_path); }

  const std::string& path() const { return _path; }

 private:
  const std::string _path;
};

int removeTree(const std::string& path) {
  const auto error = remove(path);
  if (!error) return EXIT_SUCCESS;
  std::fprintf(stderr, "%s: %s\n", path.c_str(), error->localizedDescription().c_str());
  return EXIT_FAILURE;
}

double secondsOf(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
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
    result.processorSeconds += secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    result.peakMemoryMiB =
        std::max(result.peakMemoryMiB, static_cast<double>(usage.ru_maxrss) / 1024);
  }
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  result.seconds = elapsed.count();
  if (::access(path.c_str(), F_OK) == 0) throw std::runtime_error(path + " is still there");
  ::sync();
  return result;
}

// The removals that are compared with each other: each contender has a tree of its own per round.
struct Comparison {
  std::string title;
  TreeShape shape;
  std::vector<Contender> contenders;

  std::string treePath(const std::string& directory, int round, std::size_t contender) const {
    return directory + "/" + title + " " + std::to_string(round) + "." + std::to_string(contender);
  }
};

// The first contender is compared with each of the others.
void compare(const Comparison& comparison, const std::string& directory, int rounds) {
  std::vector<std::vector<double>> seconds(comparison.contenders.size());
  std::vector<std::vector<double>> processorSeconds(comparison.contenders.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < seconds.size(); ++i) {
      const Run result = run(comparison.contenders[i], comparison.treePath(directory, round, i));
      seconds[i].push_back(result.seconds);
      processorSeconds[i].push_back(result.processorSeconds);
    }
  }
  std::printf("%s\n", comparison.title.c_str());
  const double own = median(seconds[0]);
  for (std::size_t i = 0; i < seconds.size(); ++i) {
    const auto [least, most] = std::minmax_element(seconds[i].begin(), seconds[i].end());
    const double value = median(seconds[i]);
    std::printf("  %-24s median %.3f s (%.3f to %.3f), processor time %.3f s",
                comparison.contenders[i].name, value, *least, *most, median(processorSeconds[i]));
    if (i > 0) std::printf(", ratio %.2f", value / own);
    std::printf("\n");
  }
  std::fflush(stdout);
}

int benchmark(const std::string& parent, int rounds, std::size_t files) {
  const Contender own = {"enforced removal", {{"/proc/self/exe", std::string(removeMode)}}};
  const Contender remove = {"rm -rf", {{"rm", "-rf"}}};
  const Contender unprotect = {"chattr -R -i; rm -rf", {{"chattr", "-R", "-i"}, {"rm", "-rf"}}};
  const std::vector<Comparison> comparisons = {
      {"100,000 files in 1,000 folders", {1000, 100, 0}, {own, remove, unprotect}},
      {"100,000 files in 1,000 folders, every tenth immutable", {1000, 100, 10}, {own, unprotect}},
  };
  const std::vector<std::size_t> sizes = {files / 1000, files};

  // All trees are made before any is removed: for minutes after a removal, a file system may take
  // its time to look for inodes that were not freed just now.
  const TreesFolder folder(parent + "/removal-bench." + std::to_string(::getpid()));
  const std::string& directory = folder.path();
  for (const Comparison& comparison : comparisons) {
    for (int round = 0; round < rounds; ++round) {
      for (std::size_t i = 0; i < comparison.contenders.size(); ++i) {
        makeTree(comparison.treePath(directory, round, i), comparison.shape);
      }
    }
  }
  for (const std::size_t size : sizes) {
    makeTree(directory + "/" + std::to_string(size),
             {(size + 999) / 1000, std::min<std::size_t>(size, 1000), 0});
  }

  for (const Comparison& comparison : comparisons) compare(comparison, directory, rounds);
  for (const std::size_t size : sizes) {
    const Run result = run(own, directory + "/" + std::to_string(size));
    std::printf("peak memory of the removal of %zu files: %.1f MiB\n", size, result.peakMemoryMiB);
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
    return corvane::benchmark(argc > 1 ? arguments[1] : "/var/tmp",
                              argc > 2 ? std::stoi(arguments[2]) : 5,
                              argc > 3 ? std::stoul(arguments[3]) : 1000000);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "removal-bench: %s\n", failure.what());
    return EXIT_FAILURE;
  }
}
