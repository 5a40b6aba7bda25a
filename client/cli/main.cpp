#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <functional>
#include <iterator>

#include <CLI/CLI.hpp>
#include <fcntl.h>
#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/setup/EndingSignals.h"
#include "platform/Preferences.h"

using namespace corvane::cli;

namespace {

constexpr const char* helpHint = "Run with --help for more information.\n";

// The arguments as the parser takes them, the last one first. Where several values may come it
// would take "[a,b]" for two, so brackets are hidden by a zero byte, which no argument has.
std::vector<std::string> hidingBrackets(int argc, char** argv) {
  std::vector<std::string> arguments(std::reverse_iterator(argv + argc),
                                     std::reverse_iterator(argv + std::min(argc, 1)));
  for (std::string& argument : arguments) {
    if (argument.starts_with('[') && argument.ends_with(']')) argument += '\0';
  }
  return arguments;
}

// Has all options of `app` and its commands take the zero byte off again.
void showBrackets(CLI::App& app) {
  const auto withoutZero = [](std::string value) {
    if (value.ends_with('\0')) value.pop_back();
    return value;
  };
  for (CLI::Option* option : app.get_options()) option->transform(withoutZero);
  for (CLI::App* command : app.get_subcommands(nullptr)) showBrackets(*command);
}

// A stream that is closed would give its number to the next descriptor, and what is printed would
// go there.
void openClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest number that is free is the stream's.
    if (::fcntl(stream, F_GETFD) < 0) ::open("/dev/null", O_RDWR);
  }
}

// Runs the command named on the command line; the status to exit with.
int runCommandLine(int argc, char** argv) {
  CLI::App app("Has the privileged helper do what an ordinary process may not.",
               "privilegerequestor-vnt");
  app.failure_message(CLI::FailureMessage::simple);
  // What follows a command is never another one, whatever it is called.
  app.require_subcommand(0, 1);

  Context context;
  context.client.asksOnTerminal = true;
  app.add_option("--socket", context.client.helperAddress, "Where the helper listens")
      ->type_name("PATH");
  app.add_option("--authorization-socket", context.client.issuerAddress,
                 "Where authorizations are issued")
      ->type_name("PATH");
  app.add_option("--prompt", context.client.prompt, "What the authorization dialog shows")
      ->type_name("TEXT");
  app.add_option("--icon", context.client.iconPath, "The icon of the authorization dialog")
      ->type_name("PATH");
  app.add_flag("--json", context.isJSON, "Print one JSON object, and nothing else");
  app.add_flag("--quiet", context.isQuiet, "Show no progress");
  app.add_flag("--no-feedback", context.isWithoutFeedback, "Ask for no progress and no output");

  app.add_flag_callback(
      "--no-interaction", [&context] { context.client.isInteractionAllowed = false; },
      "Ask nobody: fail where an authorization would need a dialog");

  std::function<int()> run;
  const auto command = [&](const char* name, const char* description, std::function<int()> action) {
    CLI::App* subcommand = app.add_subcommand(name, description);
    subcommand->callback([&run, action = std::move(action)] { run = action; });
    return subcommand;
  };

  std::vector<std::string> paths;
  Deletion deletion;
  CLI::App* remove = command("delete", "Delete files and folders, whatever protects them",
                             [&] { return deleteObjects(context, deletion); });
  remove->add_flag("-r,--recursive", deletion.isRecursive, "Delete folders with their contents");
  remove->add_flag("-f,--force", deletion.ignoresMissing,
                   "Say nothing about paths where nothing is");
  remove->add_flag("--stop-on-first-error", deletion.stopsOnFirstError,
                   "Stop at the first object that cannot be deleted");
  CLI::Option* list = remove
                          ->add_option("--files-from", deletion.list,
                                       "Delete what this file lists, a path on each line; of "
                                       "standard input if it is '-'")
                          ->type_name("FILE");
  remove
      ->add_flag("-0,--null", deletion.isListEndedByZeros,
                 "Each path of the list ends with a zero byte, not with its line")
      ->needs(list);
  remove->add_option("PATH", deletion.paths, "What to delete");
  remove->parse_complete_callback([&deletion] {
    if (deletion.paths.empty() && !deletion.list) throw CLI::RequiredError("PATH");
  });

  std::string application = "/";
  std::string utility;
  std::vector<std::string> arguments;
  CLI::App* execute =
      command("execute", "Run a system utility as root, with its output as it comes",
              [&] { return executeUtility(context, application, utility, arguments); });
  execute
      ->add_option("--application", application,
                   "The bundle of the application whose utilities may be run too")
      ->type_name("BUNDLE");
  execute->add_option("UTILITY", utility, "The utility")->required();
  execute->add_option("ARGUMENT", arguments, "What the utility gets, whatever it looks like")
      ->expected(-1);
  // From the utility on nothing is an option or a command of this program.
  execute->positionals_at_end();

  command("delete-files",
          "Delete single objects; meant for the helper's own files, which it does not check",
          [&] { return deleteFiles(context, paths); })
      ->add_option("PATH", paths, "What to delete")
      ->required();

  PreferenceDomain domain{std::string(corvane::NSGlobalDomain),
                          std::string(corvane::kCFPreferencesCurrentUser),
                          std::string(corvane::kCFPreferencesCurrentHost)};
  std::string key;
  CLI::App* preferences = app.add_subcommand("preferences", "Set, remove or read a preference");
  preferences->require_subcommand(1);
  const auto preferencesCommand = [&](const char* name, const char* description,
                                      std::function<int()> action) {
    CLI::App* subcommand = preferences->add_subcommand(name, description);
    subcommand->callback([&run, action = std::move(action)] { run = action; });
    // Of the options for the same thing only one may be there.
    const auto choice = [subcommand](const char* option, std::string& text, const char* type,
                                     const char* help, const char* flag, std::string_view constant,
                                     const char* flagHelp) {
      CLI::Option* named = subcommand->add_option(option, text, help)->type_name(type);
      return subcommand
          ->add_flag_callback(
              flag, [&text, constant] { text = constant; }, flagHelp)
          ->excludes(named);
    };
    choice("--app", domain.application, "ID", "Of this application", "--global",
           corvane::NSGlobalDomain, "Of all applications, as without either");
    CLI::Option* anyUser =
        choice("--user", domain.user, "NAME", "Of this user, and not the one who asks",
               "--any-user", corvane::kCFPreferencesAnyUser, "Of all users");
    subcommand
        ->add_flag_callback(
            "--root", [&domain] { domain.user = "root"; }, "Of root, as --user root")
        ->excludes(anyUser)
        ->excludes(subcommand->get_option("--user"));
    choice("--host", domain.host, "NAME", "On this machine, and not the current one", "--any-host",
           corvane::kCFPreferencesAnyHost, "On all machines");
    subcommand->add_option("KEY", key, "The name of the preference")->required();
    return subcommand;
  };
  std::function<int()> set;
  CLI::App* setting = preferencesCommand(
      "set", "Set a preference, of the one who asks if nobody is named", [&] { return set(); });
  CLI::Option_group* values = setting->add_option_group("Value", "What it is set to");
  values->require_option(1);
  const auto valueOption = [&](const char* name, const char* type, ValueKind kind,
                               const char* help) {
    values
        ->add_option_function<std::string>(
            name,
            [&, kind](const std::string& text) {
              set = [&, kind, text] { return setPreference(context, domain, key, kind, text); };
            },
            help)
        ->type_name(type);
  };
  valueOption("VALUE", "TEXT", ValueKind::Text, "A text, as it stands");
  valueOption("--bool", "BOOL", ValueKind::Boolean, "true or false, yes or no");
  valueOption("--int", "NUMBER", ValueKind::Integer, "A whole number");
  valueOption("--float", "NUMBER", ValueKind::Real, "A number such as -1.5 or 2e10");
  valueOption("--date", "DATE", ValueKind::Date, "A date such as 2026-11-20T08:00:00Z");
  valueOption("--data", "HEX", ValueKind::Data, "Bytes in hexadecimal digits");
  values
      ->add_option_function<std::string>(
          "--plist",
          [&](const std::string& path) {
            set = [&, path] { return setPreferenceFromFile(context, domain, key, path); };
          },
          "The property list in this file; - is standard input")
      ->type_name("FILE");
  preferencesCommand("remove", "Remove a preference, of the one who asks if nobody is named",
                     [&] { return removePreference(context, domain, key); });
  preferencesCommand("get", "Print a preference, of the one who asks if nobody is named",
                     [&] { return getPreference(context, domain, key); });

  command("nop", "Contact the helper and do nothing", [&] { return nop(context); });
  command("discard-auth",
          "Make the system ask again before it authorizes anything more to this process; each "
          "command is one of its own, for which nothing is kept",
          [&] { return discardAuthorization(context); });
  std::string operation;
  command("may", "Tell whether an operation would be allowed, without asking anybody",
          [&] { return tellWhetherAllowed(context, operation); })
      ->add_option("OPERATION", operation, "Its identifier, as 'operations' lists it")
      ->required();
  command("version", "Print the helper's version", [&] { return showVersion(context); });

  std::string state;
  command("debug", "Switch the helper's debug messages",
          [&] { return setDebugMode(context, state == "on"); })
      ->add_option("STATE", state, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));

  command("operations", "List what the helper can do", [&] { return listOperations(context); });
  command("install", "Put the helper, its services and its rights in place",
          [&] { return install(context); });
  bool isForced = false;
  bool isForPackage = false;
  CLI::App* uninstalling = command(
      "uninstall", "Have the helper remove itself, with all that belongs to it",
      [&] { return isForPackage ? uninstallForPackage(context) : uninstall(context, isForced); });
  CLI::Option* force = uninstalling->add_flag(
      "--force", isForced, "Remove it without its help if it refuses or does not answer");
  uninstalling
      ->add_flag("--for-package", isForPackage, "For the scripts of the package that is removed")
      ->excludes(force);
  command("doctor", "Look for what stands in the way", [&] { return examine(context); });

  showBrackets(app);
  try {
    app.parse(hidingBrackets(argc, argv));
  } catch (const CLI::RequiredError& error) {
    if (app.remaining().empty()) {
      app.exit(error);
    } else {
      std::fprintf(stderr, "'%s' is neither a command nor an option.\n%s",
                   printable(app.remaining().front()).c_str(), helpHint);
    }
    return ExitUsage;
  } catch (const CLI::ParseError& error) {
    const int status = app.exit(error);
    return status == 0 ? ExitDone : ExitUsage;
  }
  if (!run) {
    std::fputs(app.help().c_str(), stderr);
    return ExitUsage;
  }
  return run();
}

}  // namespace

int main(int argc, char** argv) {
  openClosedStreams();
  // Whoever reads the output may stop before the command is done ("| head -1"): that is no reason
  // to end in the middle of an operation.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    leaveHelpersOnEndingSignals();
    const int status = runCommandLine(argc, argv);
    if (std::fflush(stdout) == 0 || errno == EPIPE) return status;
    std::perror("privilegerequestor-vnt: standard output");
    return status == ExitDone ? ExitFailed : status;
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "Something unexpected went wrong: %s\n", exception.what());
    return ExitFailed;
  }
}
