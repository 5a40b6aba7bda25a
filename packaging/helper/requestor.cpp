// Has a helper do what its catalogue says: privilegerequestor-<code> OPERATION [ARGUMENT...]. Each
// operation is a command, whose arguments follow from its description.

#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "PrivilegedHelperClient.h"
#include "foundation/POSIXError.h"
#include "operations/OperationCodes.h"
#include "operations/PrincipalClass.h"
#include "platform/HelperAddress.h"
#include "platform/HelperInstallation.h"

using namespace corvane;

namespace {

// As those of all our programs.
enum ExitStatus : int {
  Done = 0,
  Failed = 1,
  Usage = 2,
  NotAuthorized = 3,
  Cancelled = 4,
  Away = 5
};

using Words = std::vector<std::string>;

struct Request {
  std::uint64_t code = 0;
  std::string types;  ///< a letter for each argument; empty for texts alone
  Words words;
};

// A whole number if it is one, else a real one.
Value numberFrom(const std::string& word) {
  const char* end = word.data() + word.size();
  std::int64_t whole = 0;
  if (const auto read = std::from_chars(word.data(), end, whole);
      read.ec == std::errc() && read.ptr == end) {
    return whole;
  }
  double real = 0;
  if (const auto read = std::from_chars(word.data(), end, real);
      read.ec == std::errc() && read.ptr == end) {
    return real;
  }
  throw CLI::ValidationError("'" + word + "' is no number");
}

Value contentsOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string contents{std::istreambuf_iterator<char>(file), {}};
  if (!file) throw CLI::ValidationError("'" + path + "' cannot be read");
  return dataFromString(contents);
}

std::vector<Value> argumentsOf(const Request& request) {
  std::vector<Value> arguments;
  for (std::size_t i = 0; i < request.words.size(); ++i) {
    const std::string& word = request.words[i];
    const char type = request.types.empty() ? 'S' : request.types[i];
    arguments.push_back(type == 'N' ? numberFrom(word) : type == 'D' ? contentsOf(word) : word);
  }
  return arguments;
}

// What stands for the arguments in the help: a word for each.
std::string namesOf(const ZELPrivilegedOperation& operation) {
  std::string names;
  for (const char type : operation.argumentTypeCodes().value_or("")) {
    if (!names.empty()) names += ' ';
    names += type == 'N' ? "NUMBER" : type == 'D' ? "FILE" : "TEXT";
  }
  return names;
}

// A command for each operation; the one that is given fills in the request.
void addCommands(CLI::App& app, const ZELPrivilegedOperationSet& set, Request& request) {
  for (const auto& [code, identifier] : *set.opIdentifiersByCode()) {
    const ZELPrivilegedOperation& operation = *set.operationWithIdentifier(identifier);
    CLI::App* command = app.add_subcommand(identifier, operation.presentationString());
    // Its arguments are known.
    const std::uint64_t count = code == codePerformUninstall ? 0 : operation.argumentCount();
    if (count == ZELVariableArgumentCount) {
      command->add_option("arguments", request.words)->type_name("TEXT");
    } else if (count > 0) {
      command->add_option("arguments", request.words)
          ->expected(static_cast<int>(count))
          ->required()
          ->type_name(namesOf(operation));
    }
    command->callback([&request, code = code, types = operation.argumentTypeCodes()] {
      request.code = code;
      request.types = types.value_or("");
    });
  }
}

void write(const Data& chunk, std::FILE* stream) {
  std::fwrite(chunk.data(), 1, chunk.size(), stream);
  std::fflush(stream);
}

PrivilegedHelperClient::Feedback feedback() {
  PrivilegedHelperClient::Feedback feedback;
  feedback.output = [](const Data& chunk) { write(chunk, stdout); };
  feedback.errorOutput = [](const Data& chunk) { write(chunk, stderr); };
  if (::isatty(STDERR_FILENO) != 0) {
    feedback.progress = [](double part) {
      std::fprintf(stderr, "\r%3.0f %%%s", part * 100, part < 1 ? "" : "\n");
    };
  }
  return feedback;
}

// From now on these signals cancel what the helper does for this process, which then ends as it
// would have without them.
void cancelOnSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals] {
    int signal = 0;
    sigwait(&signals, &signal);
    PrivilegedHelperClient::cancelOperationsBeforeEnd();
  }).detach();
}

ExitStatus report(const Error& given, const std::optional<bool>& wasAuthorized) {
  const auto error = ZELPrivilegedOperationSet::localizedErrorForPrivilegedOperationError(given);
  std::string text = error->localizedDescription();
  if (const auto path = error->userInfo().text(NSFilePathErrorKey)) text = *path + ": " + text;
  std::fprintf(stderr, "%s\n", text.c_str());
  if (const auto advice = error->userInfo().text(NSLocalizedRecoverySuggestionErrorKey)) {
    std::fprintf(stderr, "%s\n", advice->c_str());
  }
  if (isPOSIXError(given, POSIXErrorCode::Canceled)) return Cancelled;
  const bool isRefusal = isPOSIXError(given, POSIXErrorCode::NotPermitted);
  const bool needsDialog = given.domain() == NSOSStatusErrorDomain;
  return (isRefusal || needsDialog) && !wasAuthorized.value_or(false) ? NotAuthorized : Failed;
}

// What the helper leaves when it has removed itself. Only root can take it along, and what a
// package brought is left to that. The last helper takes along what all of them share.
void removeRemains(HelperInstallation& installation) {
  constexpr std::chrono::seconds patience(60);
  if (::geteuid() != 0 || installation.package()) return;
  if (installation.lock(patience, [](std::int32_t) {})) installation.remove();
}

ExitStatus perform(const ZELPrivilegedOperationSet& set,
                   const PrivilegedHelperClient::Options& options, const Request& request) {
  const std::vector<Value> arguments = argumentsOf(request);
  cancelOnSignals();
  PrivilegedHelperClient client(options);
  const auto installation = HelperInstallation::ofHelper(set.serviceIdentifierForHelper(), "");
  const auto outcome =
      request.code == codePerformUninstall
          ? client.performUninstall(installation->programPath(), installation->jobPath())
          : client.perform(request.code, arguments, feedback());
  if (!outcome) {
    std::fprintf(stderr, "%s\n", outcome.error().description.c_str());
    return Away;
  }
  if (outcome->error) return report(*outcome->error, outcome->wasAuthorized);
  if (request.code == codePerformUninstall) removeRemains(*installation);
  return Done;
}

}  // namespace

int main(int argc, char* argv[]) {
  const PrincipalClass* principalClass = PrincipalClass::ofThisProgram();
  if (principalClass == nullptr) {
    std::fputs("The set of operations that the property list names is not linked in.\n", stderr);
    return Failed;
  }
  const ZELPrivilegedOperationSet& set = principalClass->privilegedOperationSet();
  PrivilegedHelperClient::Options options;
  options.helperAddress = helperAddressOf(set.serviceIdentifierForHelper());
  options.asksOnTerminal = true;
  Request request;

  CLI::App app("Asks the privileged helper " + set.serviceIdentifierForHelper() +
                   ", which does what an ordinary program may not.",
               "privilegerequestor-" + set.implementationCode().value_or(""));
  app.require_subcommand(1);
  app.set_version_flag("--version", set.implementationVersion().value_or(""));
  app.add_option("--socket", options.helperAddress, "Where the helper listens");
  app.add_option("--authorization-socket", options.issuerAddress,
                 "Where authorizations are issued");
  addCommands(app, set, request);
  try {
    app.parse(argc, argv);
    return perform(set, options, request);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? Done : Usage;
  }
}
