// What the request of an ordinary user pays for its authorization when the embedded authority
// decides: the external form is checked, the right is asked for and the authorization freed.
// Against what no check of a form can do without: a bare keyed hash of its content and a bare look
// at the process that it names. Needs root.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sodium.h>
#include <unistd.h>

#include "bench/support/Helper.h"
#include "bench/support/Program.h"
#include "bench/support/Rounds.h"
#include "bench/support/TemporaryFolder.h"
#include "platform/Authorization.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/FileStamp.h"

namespace corvane {
namespace {

constexpr int calls = 10'000;
constexpr int rounds = 9;
constexpr const char* rightName = "com.corvane.bench.allowed";

void require(OSStatus status) {
  if (status != errAuthorizationSuccess) throw std::runtime_error("not authorized");
}

/// An authorization service of this program's own, in which everybody has the right, and a form of
/// this process as an ordinary user's.
class Service {
 public:
  Service() {
    ::setenv(AuthorizationDirectoryVariable, _folder.path().c_str(), 1);
    // No polkit of this machine is asked.
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    AuthorizationRef own = nullptr;
    require(AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &own));
    require(AuthorizationRightSet(own, rightName, "allow", "", nullptr));
    AuthorizationFree(own, kAuthorizationFlagDefaults);
    ProcessIdentity subject = ProcessIdentity::ofThisProcess();
    subject.uid = 65534;
    const Data form = bench::formOf(subject);
    std::copy(form.begin(), form.end(), std::begin(_form.bytes));
    // A helper is in use long after its files were made.
    while (!FileStamp::of(_folder.path() + "/key")->isSettled()) std::this_thread::yield();
  }

  void checkRequest() const {
    AuthorizationItem item{rightName, 0, nullptr, 0};
    const AuthorizationRights rights{1, &item};
    const AuthorizationEnvironment environment{0, nullptr};
    AuthorizationRef authorization = nullptr;
    require(AuthorizationCreateFromExternalForm(&_form, &authorization));
    require(AuthorizationCopyRights(
        authorization, &rights, &environment,
        kAuthorizationFlagInteractionAllowed | kAuthorizationFlagExtendRights, nullptr));
    AuthorizationFree(authorization, kAuthorizationFlagDefaults);
  }

 private:
  bench::TemporaryFolder _folder;
  AuthorizationExternalForm _form = {};
};

void checkBare() {
  static const std::array<unsigned char, 32> key{};
  static const std::array<unsigned char, kAuthorizationExternalFormLength - 16> content{};
  static const std::string path = "/proc/" + std::to_string(::getpid()) + "/stat";
  std::array<unsigned char, 16> hash{};
  std::array<char, 1024> text{};
  const bool isHashed = crypto_generichash(hash.data(), hash.size(), content.data(), content.size(),
                                           key.data(), key.size()) == 0;
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!isHashed || ::read(file.get(), text.data(), text.size()) <= 0) {
    throw std::runtime_error("no bare check");
  }
}

void measure() {
  const Service service;
  bench::compare(
      bench::perCall("check by the embedded authority", calls, [&] { service.checkRequest(); }),
      bench::perCall("bare hash and look at the process", calls, &checkBare), rounds, "us a call",
      2.5);
}

}  // namespace
}  // namespace corvane

int main() {
  return corvane::bench::runProgram(&corvane::measure);
}
