// What a request pays for its authorization when the embedded authority decides: the external form
// is checked, the right is asked for and the authorization freed. Needs root.

#include <cstdlib>
#include <filesystem>
#include <thread>

#include <benchmark/benchmark.h>

#include "platform/Authorization.h"
#include "platform/linux/authorization/AuthorizationDirectory.h"
#include "platform/linux/authorization/AuthorizationKey.h"
#include "platform/linux/authorization/ExternalForm.h"

namespace corvane {
namespace {

constexpr const char* rightName = "com.corvane.bench.allowed";

/// An authorization service of this program's own, and a form of this process as an ordinary
/// user's.
class Service {
 public:
  Service() {
    ::setenv(AuthorizationDirectoryVariable, ::mkdtemp(_folder.data()), 1);
    AuthorizationRef own = nullptr;
    AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagDefaults, &own);
    AuthorizationRightSet(own, rightName, "allow", "", nullptr);
    AuthorizationFree(own, kAuthorizationFlagDefaults);
    AuthorizationKeyFile keyFile(_folder);
    const auto key = keyFile.key();
    if (const auto* found = std::get_if<AuthorizationKey>(&key)) {
      ProcessIdentity subject = ProcessIdentity::ofThisProcess();
      subject.uid = 65534;
      _form = makeExternalForm(subject, *found);
      // A helper is in use long after its files were made.
      while (!FileStamp::of(_folder + "/key")->isSettled()) std::this_thread::yield();
    }
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() {
    std::error_code ignored;
    std::filesystem::remove_all(_folder, ignored);
  }

  const AuthorizationExternalForm& form() const { return _form; }

 private:
  std::string _folder = "/tmp/authorization-bench.XXXXXX";
  AuthorizationExternalForm _form = {};
};

void checkRequest(benchmark::State& state) {
  static const Service service;
  AuthorizationItem item{rightName, 0, nullptr, 0};
  const AuthorizationRights rights{1, &item};
  const AuthorizationEnvironment environment{0, nullptr};
  for ([[maybe_unused]] auto _ : state) {
    AuthorizationRef authorization = nullptr;
    OSStatus status = AuthorizationCreateFromExternalForm(&service.form(), &authorization);
    if (status == errAuthorizationSuccess) {
      status = AuthorizationCopyRights(authorization, &rights, &environment, 3, nullptr);
      AuthorizationFree(authorization, kAuthorizationFlagDefaults);
    }
    if (status != errAuthorizationSuccess) {
      state.SkipWithError("refused");
      break;
    }
  }
}
BENCHMARK(checkRequest)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace corvane
