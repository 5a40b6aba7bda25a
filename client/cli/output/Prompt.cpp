#include "client/cli/output/Prompt.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "client/cli/output/Translation.h"
#include "foundation/Unicode.h"
#include "platform/Preferences.h"

namespace corvane::cli {

namespace {

enum Text {
  Delete,
  DeleteTree,
  DeleteSeveral,
  DeleteTrees,
  Run,
  SetPreference,
  RemovePreference,
  AllApplications,
  AllUsers,
};
// In the order of the enumeration.
constexpr const char* texts[] = {
    "Authorization is needed to delete '$1$'.",
    "Authorization is needed to delete '$1$' with all that is in it.",
    "Authorization is needed to delete '$1$' and $2$ more.",
    "Authorization is needed to delete '$1$' and $2$ more with all that is in them.",
    "Authorization is needed to run '$1$' as root.",
    "Authorization is needed to set the preference '$1$' (application: $2$; user: $3$).",
    "Authorization is needed to remove the preference '$1$' (application: $2$; user: $3$).",
    "all applications",
    "all users",
};

// Quotation marks could end a name early, and a dollar sign begin what stands for another one.
char32_t harmless(char32_t character) {
  constexpr std::u32string_view quotationMarks = U"'\"«»‘’‚‛“”„‟‹›「」『』＂＇";
  if (quotationMarks.find(character) != std::u32string_view::npos) return U'’';
  return character == U'$' ? U'＄' : character;
}

std::u32string charactersOf(std::string_view text) {
  std::u32string characters;
  while (!text.empty()) characters += takeCharacter(text);
  return characters;
}

std::string textOf(std::u32string_view characters) {
  std::string text;
  for (const char32_t character : characters) appendUTF8(text, character);
  return text;
}

std::u32string nameOf(const std::string& text) {
  std::u32string name = charactersOf(printable(text));
  std::transform(name.begin(), name.end(), name.begin(), &harmless);
  return name;
}

// How long each name may be so that all of them fit in: the short ones leave room to the long ones.
std::size_t shareOf(const std::vector<std::u32string>& names, std::size_t room) {
  std::vector<std::size_t> sizes;
  sizes.reserve(names.size());
  for (const std::u32string& name : names) sizes.push_back(name.size());
  std::sort(sizes.begin(), sizes.end());
  std::size_t left = sizes.size();
  for (const std::size_t size : sizes) {
    if (size > room / left) break;
    room -= size;
    if (--left == 0) return sizes.back();
  }
  return room / left;
}

// The end of a path tells more than its beginning.
std::string shortened(std::u32string_view name, std::size_t room) {
  if (name.size() <= room) return textOf(name);
  const std::size_t begin = room / 3;
  const std::size_t end = room - begin - 1;
  return textOf(name.substr(0, begin)) + "…" + textOf(name.substr(name.size() - end));
}

std::string sentence(Text text, const std::vector<std::string>& given) {
  std::vector<std::u32string> names;
  names.reserve(given.size());
  for (const std::string& name : given) names.push_back(nameOf(name));
  const Array none(names.size(), Value(""));
  const std::size_t taken = charactersOf(translated(texts[text], none)).size();
  const std::size_t share = shareOf(names, maximumPromptLength - taken);
  Array shown;
  for (const std::u32string& name : names) shown.emplace_back(shortened(name, share));
  return translated(texts[text], shown);
}

std::string promptAboutPreference(Text text, const std::string& key, const std::string& application,
                                  const std::string& user) {
  const bool isGlobal =
      application == NSGlobalDomain || application == kCFPreferencesAnyApplication;
  const bool isOwn = user == kCFPreferencesCurrentUser;
  const std::string shownUser = user == kCFPreferencesAnyUser ? translated(texts[AllUsers]) : user;
  return sentence(text, {key, isGlobal ? translated(texts[AllApplications]) : application,
                         isOwn ? "root" : shownUser});
}

}  // namespace

std::string promptToDelete(const std::vector<std::string>& paths, bool isRecursive) {
  if (paths.size() == 1) return sentence(isRecursive ? DeleteTree : Delete, paths);
  return sentence(isRecursive ? DeleteTrees : DeleteSeveral,
                  {paths.front(), std::to_string(paths.size() - 1)});
}

std::string promptToRun(const std::string& utility, const std::vector<std::string>& arguments) {
  std::string line = utility;
  for (const std::string& argument : arguments) line += ' ' + argument;
  return sentence(Run, {line});
}

std::string promptToSetPreference(const std::string& key, const std::string& application,
                                  const std::string& user) {
  return promptAboutPreference(SetPreference, key, application, user);
}

std::string promptToRemovePreference(const std::string& key, const std::string& application,
                                     const std::string& user) {
  return promptAboutPreference(RemovePreference, key, application, user);
}

PrivilegedHelperClient::Options asking(const Context& context, std::string prompt) {
  PrivilegedHelperClient::Options options = context.client;
  if (!options.prompt) options.prompt = std::move(prompt);
  return options;
}

}  // namespace corvane::cli
