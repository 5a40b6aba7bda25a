// How often a client copies the paths of a deletion before they are in its messages: what it
// allocates from the call to its end, against the paths' text. The messages are the bus library's,
// which allocates without C++, and are not counted. Needs root.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "PrivilegedHelperClient.h"
#include "bench/support/Helper.h"
#include "bench/support/Issuer.h"
#include "bench/support/Program.h"
#include "bench/support/SocketActivation.h"

namespace {

std::atomic<std::size_t> allocated = 0;

}  // namespace

void* operator new(std::size_t size) {
  allocated += size;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  allocated += size;
  return std::malloc(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
  std::free(memory);
}

namespace corvane {
namespace {

constexpr int count = 73000;
constexpr std::size_t length = 100;

// Files of one folder, with names of a usual length for a list of that size.
std::vector<std::string> pathsIn(const std::string& folder) {
  std::vector<std::string> paths;
  paths.reserve(count);
  for (int i = 0; i < count; ++i) {
    std::string path = folder + "/" + std::to_string(i) + "-";
    path.resize(length, 'x');
    paths.push_back(std::move(path));
  }
  return paths;
}

void measure() {
  bench::SocketActivation daemon(bench::helperProgram);
  const bench::Issuer issuer(daemon.folder());
  daemon.start();
  PrivilegedHelperClient::Options options;
  options.helperAddress = daemon.socketPath();
  options.issuerAddress = issuer.socketPath();
  PrivilegedHelperClient client(options);
  if (const auto connected = client.connect(); !connected) {
    throw std::runtime_error(connected.error().description);
  }

  const std::vector<std::string> paths = pathsIn(daemon.folder());
  for (const std::string& path : paths) {
    std::FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) throw std::runtime_error("no file");
    std::fclose(file);
  }
  const std::size_t before = allocated;
  const auto deletion = client.deleteFileObjects(paths, {});
  const std::size_t during = allocated - before;
  if (!deletion.answer || !deletion.answer->isSuccess() || !deletion.left.empty()) {
    throw std::runtime_error("the files are not deleted");
  }
  const double text = static_cast<double>(count) * length;
  std::printf("%-44s %10.1f MB\n", "paths", text / 1e6);
  std::printf("%-44s %10.1f MB\n", "allocated to have them deleted",
              static_cast<double>(during) / 1e6);
  std::printf("%-44s %10.2f (at most 1.3)\n", "ratio", static_cast<double>(during) / text);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
