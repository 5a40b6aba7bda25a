// Failed assertions end the process in every build.
#undef NDEBUG
#include <cassert>
#include <csignal>
#include <cstdio>
#include <optional>
#include <string>

#include <unistd.h>

#include "foundation/PropertyList.h"
#include "operations/PrincipalClass.h"
#include "platform/EmbeddedPropertyLists.h"
#include "platform/SystemLog.h"
#include "privilegedhelper-vnt/ZELPrivilegedHelper.h"

using namespace corvane;

namespace {

// The information property list of the program; empty if it has none that can be read.
Dictionary infoDictionary() {
  Result<Dictionary> dictionary = readDictionary(embeddedInfoPropertyList());
  return dictionary ? *std::move(dictionary) : Dictionary();
}

// A text of the information property list; empty if it does not have it.
std::string text(const Dictionary& info, const char* key) {
  return info.text(key).value_or("");
}

// Serves clients; the status to exit with if that ever ends.
int serve(ZELPrivilegedOperationSet& operationSet, const std::string& version, aslclient aslHandle,
          aslmsg aslMessage) {
  const std::string setVersion = operationSet.implementationVersion().value_or("(null)");
  const bool isVersionConsistent = version == setVersion;
  if (!isVersionConsistent) {
    asl_log(aslHandle, aslMessage, LogPriorityError,
            "Internal implementation error: executable version (%s) does not match implementation "
            "version of privileged command set (%s).",
            version.c_str(), setVersion.c_str());
  }

  if (getuid() != 0) {
    asl_log(aslHandle, aslMessage, LogPriorityError, "This program needs root privileges.");
    return 1;
  }
  if (!isVersionConsistent) return 1;
  // A peer that is gone shows as EPIPE where something is written to it, and must not end the
  // daemon.
  std::signal(SIGPIPE, SIG_IGN);
  if (ZELPrivilegedHelper* helper =
          ZELPrivilegedHelper::initForOperationSet(&operationSet, aslHandle, aslMessage)) {
    helper->run();
  }
  // There is nothing to listen on.
  return 1;
}

}  // namespace

int main(int argc, char* argv[]) {
  if (argc > 2) return 1;
  const Dictionary info = infoDictionary();
  const PrincipalClass* principalClass = PrincipalClass::ofThisProgram();
  if (principalClass == nullptr) {
    std::fputs(
        "Internal implementation error: The principal class is either not set or not "
        "implemented.\n",
        stderr);
    return 1;
  }
  ZELPrivilegedOperationSet& operationSet = principalClass->privilegedOperationSet();
  if (const auto faults = operationSet.faults(); !faults.empty()) {
    for (const std::string& fault : faults) {
      std::fprintf(stderr, "Internal implementation error: %s.\n", fault.c_str());
    }
    return 1;
  }
  const std::string version = text(info, "CFBundleShortVersionString");
  if (argc == 2) {
    if (argv[1][0] != 'v') return 1;
    const bool isPrinted = std::printf("%s (Build %s)\n", version.c_str(),
                                       text(info, "CFBundleVersion").c_str()) > 0 &&
                           std::fflush(stdout) == 0;
    return isPrinted ? 0 : 1;
  }

  const std::string bundleIdentifier = text(info, "CFBundleIdentifier");
  aslclient aslHandle = asl_open(bundleIdentifier.c_str(), "Daemon", 0);
  assert(aslHandle != NULL);  // NOLINT(modernize-use-nullptr): the text of the failure
  aslmsg aslMessage = asl_new(LogTypeMessage);
  assert(aslMessage != NULL);  // NOLINT(modernize-use-nullptr)
  asl_set(aslMessage, LogKeySender, bundleIdentifier.c_str());
  const int status = serve(operationSet, version, aslHandle, aslMessage);
  asl_log(aslHandle, aslMessage, LogPriorityInformational, "Privileged helper is shutting down.");
  asl_free(aslMessage);
  asl_close(aslHandle);
  return status;
}
