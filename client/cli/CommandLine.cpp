#include "client/cli/CommandLine.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Translation.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/Preferences.h"

namespace corvane::cli {

namespace {

constexpr const char* program = "privilegerequestor-vnt";
constexpr const char* jsonOption = "--json";

// What a command line can say, and what holds where it does not.
struct Arguments {
  Context context;
  Deletion deletion;
  std::string application = "/";
  std::string utility;
  std::vector<std::string> utilityArguments;
  PreferenceDomain domain{std::string(NSGlobalDomain), std::string(kCFPreferencesCurrentUser),
                          std::string(kCFPreferencesCurrentHost)};
  std::string key;
  PreferenceSource value;
  std::string operation;
  std::string state;
  bool isForced = false;
  bool isForPackage = false;
  bool wantsVersion = false;
  std::vector<std::string> topic;
};

// Where an option's text goes, or what a flag is to do.
using Place = std::variant<bool& (*)(Arguments&), std::string& (*)(Arguments&),
                           std::vector<std::string>& (*)(Arguments&),
                           void (*)(Arguments&, const std::string& text), void (*)(Arguments&)>;

struct Option {
  const char* names;
  const char* type;  // of what follows its name; none if nothing does
  const char* help;
  Place place;
  const char* choice = nullptr;  // only one of those with the same may be given
  bool isRequired = false;       // or another one of its choice
};

constexpr auto addressOf = [](Arguments& a) -> std::string& {
  return a.context.client.helperAddress;
};
constexpr auto pathsOf = [](Arguments& a) -> std::vector<std::string>& { return a.deletion.paths; };

const Option globalOptions[] = {
    {"--socket", "PATH", "Where the helper listens", addressOf},
    {"--authorization-socket", "PATH", "Where authorizations are issued",
     [](Arguments& a) -> std::string& { return a.context.client.issuerAddress; }},
    {"--prompt", "TEXT", "What the authorization dialog shows",
     [](Arguments& a, const std::string& text) { a.context.client.prompt = text; }},
    {"--icon", "PATH", "The icon of the authorization dialog",
     [](Arguments& a, const std::string& text) { a.context.client.iconPath = text; }},
    {jsonOption, nullptr, "Print one JSON object, and nothing else",
     [](Arguments& a) -> bool& { return a.context.isJSON; }},
    {"--quiet", nullptr, "Show no progress",
     [](Arguments& a) -> bool& { return a.context.isQuiet; }},
    {"--no-feedback", nullptr, "Ask for no progress and no output",
     [](Arguments& a) -> bool& { return a.context.isWithoutFeedback; }},
    {"--no-interaction", nullptr, "Ask nobody: fail where an authorization would need a dialog",
     [](Arguments& a) { a.context.client.isInteractionAllowed = false; }},
    {"--version", nullptr, "Print the version of this program",
     [](Arguments& a) -> bool& { return a.wantsVersion; }},
};

const Option deleteOptions[] = {
    {"-r,--recursive", nullptr, "Delete folders with their contents",
     [](Arguments& a) -> bool& { return a.deletion.isRecursive; }},
    {"-f,--force", nullptr, "Say nothing about paths where nothing is",
     [](Arguments& a) -> bool& { return a.deletion.ignoresMissing; }},
    {"--stop-on-first-error", nullptr, "Stop at the first object that cannot be deleted",
     [](Arguments& a) -> bool& { return a.deletion.stopsOnFirstError; }},
    {"--files-from", "FILE",
     "Delete what this file lists, a path on each line; of standard input if it is '-'",
     [](Arguments& a, const std::string& text) { a.deletion.list = text; }},
    {"-0,--null", nullptr, "Each path of the list ends with a zero byte, not with its line",
     [](Arguments& a) -> bool& { return a.deletion.isListEndedByZeros; }},
    {"PATH", nullptr, "What to delete", pathsOf},
};

const Option deleteFilesOptions[] = {
    {"PATH", nullptr, "What to delete", pathsOf, nullptr, true},
};

const Option executeOptions[] = {
    {"--application", "BUNDLE", "The bundle of the application whose utilities may be run too",
     [](Arguments& a) -> std::string& { return a.application; }},
    {"UTILITY", nullptr, "The utility", [](Arguments& a) -> std::string& { return a.utility; },
     nullptr, true},
    {"ARGUMENT", nullptr, "What the utility gets, whatever it looks like",
     [](Arguments& a) -> std::vector<std::string>& { return a.utilityArguments; }},
};

// Whose preference it is, and its name; of every command about preferences.
const Option preferenceOptions[] = {
    {"--app", "ID", "Of this application",
     [](Arguments& a) -> std::string& { return a.domain.application; }, "application"},
    {"--global", nullptr, "Of all applications, as without either",
     [](Arguments& a) { a.domain.application = NSGlobalDomain; }, "application"},
    {"--user", "NAME", "Of this user, and not the one who asks",
     [](Arguments& a) -> std::string& { return a.domain.user; }, "user"},
    {"--any-user", nullptr, "Of all users",
     [](Arguments& a) { a.domain.user = kCFPreferencesAnyUser; }, "user"},
    {"--root", nullptr, "Of root, as --user root", [](Arguments& a) { a.domain.user = "root"; },
     "user"},
    {"--host", "NAME", "On this machine, and not the current one",
     [](Arguments& a) -> std::string& { return a.domain.host; }, "host"},
    {"--any-host", nullptr, "On all machines",
     [](Arguments& a) { a.domain.host = kCFPreferencesAnyHost; }, "host"},
    {"KEY", nullptr, "The name of the preference",
     [](Arguments& a) -> std::string& { return a.key; }, nullptr, true},
};

template <ValueKind kind>
void takeValue(Arguments& arguments, const std::string& text) {
  arguments.value = {kind, text};
}
void takeFile(Arguments& arguments, const std::string& path) {
  arguments.value = {std::nullopt, path};
}

const Option valueOptions[] = {
    {"VALUE", nullptr, "What it is set to: a text, as it stands", &takeValue<ValueKind::Text>,
     "value", true},
    {"--bool", "BOOL", "true or false, yes or no", &takeValue<ValueKind::Boolean>, "value"},
    {"--int", "NUMBER", "A whole number", &takeValue<ValueKind::Integer>, "value"},
    {"--float", "NUMBER", "A number such as -1.5 or 2e10", &takeValue<ValueKind::Real>, "value"},
    {"--date", "DATE", "A date such as 2026-11-20T08:00:00Z", &takeValue<ValueKind::Date>, "value"},
    {"--data", "HEX", "Bytes in hexadecimal digits", &takeValue<ValueKind::Data>, "value"},
    {"--plist", "FILE", "The property list in this file; - is standard input", &takeFile, "value"},
};

const Option mayOptions[] = {
    {"OPERATION", nullptr, "Its identifier, as 'operations' lists it",
     [](Arguments& a) -> std::string& { return a.operation; }, nullptr, true},
};

const Option debugOptions[] = {
    {"STATE", nullptr, "on or off", [](Arguments& a) -> std::string& { return a.state; }, nullptr,
     true},
};

const Option uninstallOptions[] = {
    {"--force", nullptr, "Remove it without its help if it refuses or does not answer",
     [](Arguments& a) -> bool& { return a.isForced; }, "how"},
    {"--for-package", nullptr, "For the scripts of the package that is removed",
     [](Arguments& a) -> bool& { return a.isForPackage; }, "how"},
};

const Option helpOptions[] = {
    {"COMMAND", nullptr, "The command that it is about",
     [](Arguments& a) -> std::vector<std::string>& { return a.topic; }},
};

struct Command {
  const char* name;
  const char* parent;  // the command that it follows, if it follows one
  const char* help;
  int (*run)(const Arguments&);  // none for one that others follow, and for the one that helps
  std::vector<std::span<const Option>> options;
};

const std::vector<Command>& commands() {
  static const std::vector<Command> all = {
      {"delete",
       nullptr,
       "Delete files and folders, whatever protects them",
       [](const Arguments& a) { return deleteObjects(a.context, a.deletion); },
       {deleteOptions}},
      {"execute",
       nullptr,
       "Run a system utility as root, with its output as it comes",
       [](const Arguments& a) {
         return executeUtility(a.context, a.application, a.utility, a.utilityArguments);
       },
       {executeOptions}},
      {"delete-files",
       nullptr,
       "Delete single objects; meant for the helper's own files, which it does not check",
       [](const Arguments& a) { return deleteFiles(a.context, a.deletion.paths); },
       {deleteFilesOptions}},
      {"preferences", nullptr, "Set, remove or read a preference", nullptr, {}},
      {"set",
       "preferences",
       "Set a preference, of the one who asks if nobody is named",
       [](const Arguments& a) { return setPreference(a.context, a.domain, a.key, a.value); },
       {preferenceOptions, valueOptions}},
      {"remove",
       "preferences",
       "Remove a preference, of the one who asks if nobody is named",
       [](const Arguments& a) { return removePreference(a.context, a.domain, a.key); },
       {preferenceOptions}},
      {"get",
       "preferences",
       "Print a preference, of the one who asks if nobody is named",
       [](const Arguments& a) { return getPreference(a.context, a.domain, a.key); },
       {preferenceOptions}},
      {"nop",
       nullptr,
       "Contact the helper and do nothing",
       [](const Arguments& a) { return nop(a.context); },
       {}},
      {"discard-auth",
       nullptr,
       "Make the system ask again before it authorizes anything more to this process; each "
       "command is one of its own, for which nothing is kept",
       [](const Arguments& a) { return discardAuthorization(a.context); },
       {}},
      {"may",
       nullptr,
       "Tell whether an operation would be allowed, without asking anybody",
       [](const Arguments& a) { return tellWhetherAllowed(a.context, a.operation); },
       {mayOptions}},
      {"version",
       nullptr,
       "Print the helper's version",
       [](const Arguments& a) { return showVersion(a.context); },
       {}},
      {"debug",
       nullptr,
       "Switch the helper's debug messages",
       [](const Arguments& a) { return setDebugMode(a.context, a.state); },
       {debugOptions}},
      {"operations",
       nullptr,
       "List what the helper can do",
       [](const Arguments& a) { return listOperations(a.context); },
       {}},
      {"install",
       nullptr,
       "Put the helper, its services and its rights in place",
       [](const Arguments& a) { return install(a.context); },
       {}},
      {"uninstall",
       nullptr,
       "Have the helper remove itself, with all that belongs to it",
       [](const Arguments& a) {
         return a.isForPackage ? uninstallForPackage(a.context) : uninstall(a.context, a.isForced);
       },
       {uninstallOptions}},
      {"doctor",
       nullptr,
       "Look for what stands in the way",
       [](const Arguments& a) { return examine(a.context); },
       {}},
      {"help",
       nullptr,
       "List the options and commands, or those of a command",
       nullptr,
       {helpOptions}},
  };
  return all;
}

void add(const Option& option, CLI::App& app, Arguments& arguments) {
  struct Adding {
    const Option& option;
    CLI::App& app;
    Arguments& arguments;

    CLI::Option* operator()(bool& (*place)(Arguments&)) const {
      return app.add_flag(option.names, place(arguments), option.help)->disable_flag_override();
    }
    CLI::Option* operator()(void (*act)(Arguments&)) const {
      return app
          .add_flag_callback(
              option.names, [act, &given = arguments] { act(given); }, option.help)
          ->disable_flag_override();
    }
    CLI::Option* operator()(std::string& (*place)(Arguments&)) const {
      return app.add_option(option.names, place(arguments), option.help)->take_last();
    }
    CLI::Option* operator()(std::vector<std::string>& (*place)(Arguments&)) const {
      return app.add_option(option.names, place(arguments), option.help)->expected(-1);
    }
    CLI::Option* operator()(void (*take)(Arguments&, const std::string&)) const {
      return app
          .add_option_function<std::string>(
              option.names,
              [take, &given = arguments](const std::string& text) { take(given, text); },
              option.help)
          ->take_last();
    }
  };
  CLI::Option* added = std::visit(Adding{option, app, arguments}, option.place);
  if (option.type != nullptr) added->type_name(option.type);
  added->required(option.isRequired && option.choice == nullptr);
}

void addCommands(CLI::App& app, Arguments& arguments) {
  for (const Option& option : globalOptions) add(option, app, arguments);
  for (const Command& command : commands()) {
    CLI::App& above = command.parent != nullptr ? *app.get_subcommand(command.parent) : app;
    CLI::App* added = above.add_subcommand(command.name, command.help);
    // What follows a command is never another one, whatever it is called.
    above.require_subcommand(command.parent != nullptr ? 1 : 0, 1);
    // The options for all commands may stand behind this one.
    added->fallthrough();
    for (const auto& options : command.options) {
      for (const Option& option : options) add(option, *added, arguments);
    }
  }
  // From the utility on nothing is an option or a command of this program.
  app.get_subcommand("execute")->positionals_at_end();
}

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

std::string withoutZero(std::string value) {
  if (value.ends_with('\0')) value.pop_back();
  return value;
}

// Has all options of `app` and its commands take the zero byte off again.
void showBrackets(CLI::App& app) {
  for (CLI::Option* option : app.get_options()) option->transform(&withoutZero);
  for (CLI::App* command : app.get_subcommands(nullptr)) showBrackets(*command);
}

// The last command that was named; `app` itself if none was.
const CLI::App& namedIn(const CLI::App& app) {
  const auto named = app.get_subcommands();
  return named.empty() ? app : namedIn(*named.back());
}

const Command* rowOf(const CLI::App& command) {
  const auto& all = commands();
  const auto row = std::find_if(all.begin(), all.end(), [&](const Command& candidate) {
    const std::string parent = candidate.parent != nullptr ? candidate.parent : program;
    return command.get_name() == candidate.name && command.get_parent()->get_name() == parent;
  });
  return row == all.end() ? nullptr : &*row;
}

std::string namesOf(const std::vector<const CLI::App*>& all) {
  std::string names;
  for (const CLI::App* each : all) names += (names.empty() ? "" : ", ") + each->get_name();
  return names;
}

// The name without its short form.
std::string nameOf(const Option& option) {
  const std::string_view names = option.names;
  const std::size_t comma = names.find(',');
  return std::string(comma == std::string_view::npos ? names : names.substr(comma + 1));
}

// What of a command is missing, or is there beside what excludes it.
std::optional<std::string> faultIn(const CLI::App& command, const Command& row) {
  std::vector<const Option*> all;
  for (const auto& options : row.options) {
    for (const Option& option : options) all.push_back(&option);
  }
  const auto isGiven = [&](const Option* option) {
    return command.get_option(nameOf(*option))->count() > 0;
  };
  for (const Option* option : all) {
    std::vector<const Option*> given;
    std::copy_if(all.begin(), all.end(), std::back_inserter(given), [&](const Option* other) {
      const bool isSame =
          option == other || (option->choice != nullptr && other->choice != nullptr &&
                              std::string_view(option->choice) == other->choice);
      return isSame && isGiven(other);
    });
    if (given.size() > 1) {
      return translated(excludedText, Array{nameOf(*given[0]), nameOf(*given[1])});
    }
    if (option->isRequired && given.empty()) return translated(missingText, nameOf(*option));
  }
  return std::nullopt;
}

// The option's name is what the text begins with, without its dashes if it is about a flag.
std::string faultOfValue(const CLI::ParseError& error) {
  const std::string_view text = error.what();
  const std::string name(text.substr(0, text.find_first_of(": ")));
  if (name.starts_with('-')) return translated(valueNeededText, name);
  return translated(noValueText, (name.size() == 1 ? "-" : "--") + name);
}

// What is wrong with the command line, in the user's language.
std::string faultIn(const CLI::App& app, const CLI::ParseError& error) {
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) return faultOfValue(error);
  const CLI::App& named = namedIn(app);
  const std::vector<std::string> left = app.remaining(true);
  if (!left.empty()) {
    const std::string first = withoutZero(left.front());
    if (first.starts_with('-') && first != "-") return translated(noSuchOptionText, first);
    const bool wantsCommand = !named.get_subcommands(nullptr).empty();
    return translated(wantsCommand ? noSuchCommandText : tooMuchText, first);
  }
  const Command* row = rowOf(named);
  if (const auto fault = row != nullptr ? faultIn(named, *row) : std::nullopt) return *fault;
  if (row != nullptr && row->run == nullptr) {
    return translated(neededText, Array{named.get_name(), namesOf(named.get_subcommands(nullptr))});
  }
  return translated(missingText, "COMMAND");
}

int tell(const Context& context, const char* name, const std::string& text) {
  if (context.isJSON) {
    printResult({{name, text}});
  } else {
    std::fputs(text.c_str(), stdout);
  }
  return ExitDone;
}

int tellVersion(const Context& context) {
  const auto& set = ZELPrivilegedOperationSetVNT::privilegedOperationSet();
  const std::string version = set.implementationVersion().value_or("");
  return tell(context, "version",
              context.isJSON ? version : std::string(program) + ' ' + version + '\n');
}

// Puts the help of a command, and of those that follow it, into the user's language.
void translateHelp(CLI::App& app) {
  for (const char* label : {"Usage", "OPTIONS", "SUBCOMMAND", "Positionals", "REQUIRED"}) {
    app.get_formatter()->label(label, translated(label));
  }
  app.description(translated(app.get_description()));
  app.group(translated("Subcommands"));
  for (CLI::Option* option : app.get_options()) {
    option->description(translated(option->get_description()));
    option->group(translated("Options"));
  }
  for (CLI::App* command : app.get_subcommands(nullptr)) translateHelp(*command);
}

int tellAbout(const Context& context, CLI::App& app, const std::vector<std::string>& topic) {
  translateHelp(app);
  const CLI::App* about = &app;
  std::string line = program;
  for (const std::string& name : topic) {
    const auto all = about->get_subcommands(nullptr);
    const auto found = std::find_if(all.begin(), all.end(), [&](const CLI::App* command) {
      return command->get_name() == name;
    });
    if (found == all.end()) return reportUsage(context, translated(noSuchCommandText, name));
    about = *found;
    line += ' ' + name;
  }
  const auto formatter = about->get_formatter();
  return tell(context, "help", formatter->make_help(about, line, CLI::AppFormatMode::Normal));
}

}  // namespace

int runCommandLine(int argc, char** argv) {
  CLI::App app(
      "Has the privileged helper do what an ordinary process may not. The options of all "
      "commands may stand behind the command, too.",
      program);
  app.set_help_flag("-h,--help", "Print this help");
  Arguments arguments;
  Context& context = arguments.context;
  context.client.asksOnTerminal = true;
  addCommands(app, arguments);
  showBrackets(app);
  const std::vector<std::string> given = hidingBrackets(argc, argv);
  try {
    app.parse(std::vector<std::string>(given));
  } catch (const CLI::CallForHelp&) {
    translateHelp(app);
    return tell(context, "help", app.help());
  } catch (const CLI::ParseError& error) {
    // It was not read to its end.
    context.isJSON = std::find(given.begin(), given.end(), jsonOption) != given.end();
    return reportUsage(context, faultIn(app, error), translated(helpText));
  }
  if (arguments.wantsVersion) return tellVersion(context);
  const CLI::App& named = namedIn(app);
  if (&named == &app) return reportUsage(context, translated(noCommandText), translated(helpText));
  const Command& row = *rowOf(named);
  if (row.run == nullptr) return tellAbout(context, app, arguments.topic);
  if (const auto fault = faultIn(named, row)) {
    return reportUsage(context, *fault, translated(helpText));
  }
  try {
    return row.run(arguments);
  } catch (const std::exception& exception) {
    return reportException(context, exception);
  }
}

}  // namespace corvane::cli
