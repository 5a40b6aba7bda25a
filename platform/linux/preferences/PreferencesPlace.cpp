#include "platform/linux/preferences/PreferencesPlace.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <string_view>

#include <systemd/sd-id128.h>
#include <unistd.h>

#include "foundation/NoDestructor.h"
#include "foundation/Unicode.h"

namespace corvane {

namespace {

constexpr std::string_view extension = ".plist";

const std::string& root() {
  static NoDestructor<const std::string> root([] {
    const char* value = ::secure_getenv("CORVANE_PREFERENCES_ROOT");
    return std::string(value != nullptr ? value : "");
  }());
  return *root;
}

/// The file's name without what tells hosts apart. An identifier is a name, not a path: no slash,
/// no point at its begin (those names are the system's) and no two points in a row.
std::optional<std::string> nameForApplication(const std::string& application) {
  if (application == kCFPreferencesAnyApplication) return ".GlobalPreferences";
  const auto isForbidden = [](unsigned char c) { return c < 0x20 || c == 0x7F || c == '/'; };
  if (application.empty() || application.starts_with('.') ||
      application.find("..") != std::string::npos || !isUTF8(application) ||
      std::any_of(application.begin(), application.end(), isForbidden)) {
    return std::nullopt;
  }
  return application;
}

std::string machineName() {
  std::array<char, HOST_NAME_MAX + 1> name{};
  if (::gethostname(name.data(), name.size() - 1) != 0) return "";
  return name.data();
}

std::optional<std::string> machineID() {
  sd_id128_t id;
  if (::sd_id128_get_machine(&id) < 0) return std::nullopt;
  std::array<char, SD_ID128_STRING_MAX> text{};
  return ::sd_id128_to_string(id, text.data());
}

}  // namespace

std::variant<PreferencesPlace, PreferencesDomainFault> placeOfPreferences(
    const std::string& application, const std::string& user, const std::string& host) {
  std::optional<std::string> name = nameForApplication(application);
  if (!name) return PreferencesDomainFault::ApplicationIdentifier;
  PreferencesPlace place{};
  if (user == kCFPreferencesAnyUser) {
    place.anchor = root() + "/etc";
    place.folders = {"xdg", "preferences"};
    place.owner = root().empty() ? 0 : ::geteuid();
    place.folderMode = 0755;
    place.fileMode = 0644;
  } else {
    std::optional<User> account =
        user == kCFPreferencesCurrentUser ? userWithID(::geteuid()) : userNamed(user);
    if (!account) return PreferencesDomainFault::User;
    place.anchor = root() + account->home;
    place.folders = {".config", "preferences"};
    place.owner = account->uid;
    place.folderMode = 0700;
    place.fileMode = 0600;
    if (::geteuid() == 0 && account->uid != 0) place.rights = std::move(account);
  }
  if (host != kCFPreferencesAnyHost) {
    // Another machine's preferences are not kept here.
    if (host != kCFPreferencesCurrentHost && host != machineName()) {
      return PreferencesDomainFault::Host;
    }
    const std::optional<std::string> machine = machineID();
    if (!machine) return PreferencesDomainFault::Host;
    place.folders.emplace_back("ByHost");
    *name += "." + *machine;
  }
  place.fileName = *name + std::string(extension);
  if (place.fileName.size() > NAME_MAX) return PreferencesDomainFault::ApplicationTooLong;
  return place;
}

}  // namespace corvane
