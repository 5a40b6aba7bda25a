#include "platform/posix/MountedPlaces.h"

#include <fstream>
#include <sstream>

namespace corvane {

namespace {

// The place of the mount point in a line of /proc/self/mountinfo.
constexpr int fieldsBefore = 4;

// Spaces and the like are written as "\040".
std::string unescaped(const std::string& text) {
  constexpr std::size_t digits = 3;
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + digits < text.size()) {
      plain += static_cast<char>(std::stoi(text.substr(i + 1, digits), nullptr, 8));
      i += digits;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

}  // namespace

std::vector<std::string> mountedPlaces() {
  std::vector<std::string> places;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string place;
    for (int field = 0; field <= fieldsBefore; ++field) fields >> place;
    places.push_back(unescaped(place));
  }
  return places;
}

}  // namespace corvane
