// Sets one key in a large preferences file and compares that with what plistutil takes to convert
// the file once; then lets four processes set a thousand keys at the same time.

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/TemporaryFolder.h"
#include "foundation/PropertyList.h"
#include "platform/Preferences.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

const std::string application = "com.example.bench";
const std::string user(kCFPreferencesAnyUser);
const std::string host(kCFPreferencesAnyHost);

void set(const std::string& key, Value value) {
  CFPreferencesSetValue(key, std::move(value), application, user, host);
  if (!CFPreferencesSynchronize(application, user, host))
    throw std::runtime_error("a key could not be set");
}

void convert(const fs::path& from, const fs::path& to, const char* format) {
  const std::string input = from;
  const std::string output = to;
  const char* arguments[] = {"plistutil",   "-f", format,         "-i",
                             input.c_str(), "-o", output.c_str(), nullptr};
  pid_t process = -1;
  if (::posix_spawnp(&process, arguments[0], nullptr, nullptr, const_cast<char* const*>(arguments),
                     environ) != 0) {
    throw std::runtime_error("plistutil is missing");
  }
  int status = 0;
  ::waitpid(process, &status, 0);
  if (status != 0) throw std::runtime_error("plistutil failed");
}

void compareWithConversion(const fs::path& file, PropertyListFormat format) {
  constexpr int keys = 10'000;
  constexpr int rounds = 21;
  constexpr double atMost = 1.5;
  Dictionary preferences;
  for (int i = 0; i < keys; ++i) {
    preferences.append("Key " + std::to_string(i), "Value of the key " + std::to_string(i));
  }
  const auto written = writePropertyList(preferences, format);
  fs::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << stringFromData(*written);

  const bool isXML = format == PropertyListFormat::XML;
  const fs::path converted = file.parent_path() / "converted";
  int counter = 0;
  bench::compare(
      {isXML ? "set one of 10,000 keys, XML" : "set one of 10,000 keys, binary",
       [&] { return bench::secondsFor([&] { set("Key 5000", ++counter); }) * 1e3; }},
      {isXML ? "plistutil, XML to binary" : "plistutil, binary to XML",
       [&] {
         return bench::secondsFor([&] { convert(file, converted, isXML ? "bin" : "xml"); }) * 1e3;
       }},
      rounds, "ms", atMost);
}

void setFromFourProcesses() {
  constexpr int processes = 4;
  constexpr int setsEach = 250;
  const double seconds = bench::secondsFor([] {
    for (int process = 0; process < processes; ++process) {
      if (::fork() != 0) continue;
      try {
        for (int i = 0; i < setsEach; ++i) {
          set(std::to_string(process) + "." + std::to_string(i), i);
        }
      } catch (const std::exception& exception) {
        std::fprintf(stderr, "%s\n", exception.what());
        ::_exit(EXIT_FAILURE);
      }
      ::_exit(EXIT_SUCCESS);
    }
    for (int process = 0; process < processes; ++process) {
      int status = 0;
      if (::waitpid(-1, &status, 0) <= 0 || status != 0)
        throw std::runtime_error("a process failed");
    }
  });
  int found = 0;
  for (int process = 0; process < processes; ++process) {
    for (int i = 0; i < setsEach; ++i) {
      const std::string key = std::to_string(process) + "." + std::to_string(i);
      found += CFPreferencesCopyValue(key, application, user, host) == Value(i) ? 1 : 0;
    }
  }
  std::printf("%d of %d sets from four processes are there, after %.2f s\n", found,
              processes * setsEach, seconds);
  if (found != processes * setsEach) throw std::runtime_error("sets were lost");
}

void measure() {
  const bench::TemporaryFolder root;
  ::setenv("CORVANE_PREFERENCES_ROOT", root.path().c_str(), 1);
  const fs::path file = fs::path(root.path()) / "etc/xdg/preferences" / (application + ".plist");
  compareWithConversion(file, PropertyListFormat::XML);
  compareWithConversion(file, PropertyListFormat::Binary);
  fs::remove(file);
  setFromFourProcesses();
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
