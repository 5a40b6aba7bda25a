#include "platform/linux/authorization/EmbeddedAuthority.h"

#include <cerrno>
#include <optional>

#include "foundation/PropertyList.h"
#include "platform/linux/authorization/RightFile.h"
#include "platform/linux/authorization/RootFolder.h"

namespace corvane {

namespace {

constexpr std::string_view ruleKey = "rule";
constexpr std::string_view descriptionKey = "description";
constexpr std::string_view stringsTableKey = "table";

std::string fileNameFor(const std::string& rightName) {
  return rightName + ".plist";
}

std::optional<RightDefinition> definitionFromBytes(const Data& bytes) {
  const Result<Dictionary> entries = readDictionary(bytes);
  if (!entries) return std::nullopt;
  const auto text = [&entries](std::string_view key) { return entries->text(key).value_or(""); };
  RightDefinition definition{text(ruleKey), text(descriptionKey), text(stringsTableKey)};
  if (definition.rule.empty()) return std::nullopt;
  return definition;
}

Result<Data> bytesFromDefinition(const RightDefinition& definition) {
  const Dictionary entries = {{std::string(ruleKey), definition.rule},
                              {std::string(descriptionKey), definition.description},
                              {std::string(stringsTableKey), definition.stringsTable}};
  Result<Data> bytes = writePropertyList(entries, PropertyListFormat::XML);
  // There are texts that only the binary form can hold.
  return bytes ? bytes : writePropertyList(entries, PropertyListFormat::Binary);
}

}  // namespace

EmbeddedAuthority::EmbeddedAuthority(std::string rightsDirectory)
    : _directory(std::move(rightsDirectory)) {}

Result<Decision> EmbeddedAuthority::decide(const ProcessIdentity& subject,
                                           const RightRequest& request) {
  return subject.uid == 0 || isAllowedToAll(request.rightName) ? Decision::Granted
                                                               : Decision::DialogNeeded;
}

bool EmbeddedAuthority::isAllowedToAll(const std::string& rightName) {
  const std::optional<FileStamp> stamp = FileStamp::of(_directory + "/" + fileNameFor(rightName));
  if (!stamp) return false;

  const std::lock_guard guard(_lock);
  const auto known = _knownRights.find(rightName);
  if (known != _knownRights.end() && known->second.stamp == *stamp) {
    return known->second.isAllowedToAll;
  }
  const Result<RightDefinition> definition = rightGet(rightName);
  const bool isAllowed = definition && definition->rule == "allow";
  if (stamp->isSettled()) {
    _knownRights.insert_or_assign(rightName, KnownRight{*stamp, isAllowed});
  }
  return isAllowed;
}

Result<RightDefinition> EmbeddedAuthority::rightGet(const std::string& rightName) {
  const Result<RootFolder> folder = RootFolder::open(_directory);
  if (!folder) return folder.error();
  const Result<Data> bytes = folder->read(fileNameFor(rightName), everyoneElseReads);
  if (!bytes) return bytes.error();
  std::optional<RightDefinition> found = definitionFromBytes(*bytes);
  if (!found) return folder->errorOf(fileNameFor(rightName), EBADMSG);
  return *std::move(found);
}

Result<void> EmbeddedAuthority::rightSet(const std::string& rightName,
                                         const RightDefinition& definition) {
  const Result<Data> bytes = bytesFromDefinition(definition);
  if (!bytes) return bytes.error();
  const Result<RootFolder> folder = RootFolder::openOrMake(_directory);
  if (!folder) return folder.error();
  return folder->replace(fileNameFor(rightName), *bytes, everyoneElseReads);
}

Result<void> EmbeddedAuthority::rightRemove(const std::string& rightName) {
  const Result<RootFolder> folder = RootFolder::open(_directory);
  if (!folder) return folder.error();
  return folder->remove(fileNameFor(rightName));
}

std::vector<RightFault> EmbeddedAuthority::faultsOf(const std::string& rightName,
                                                    const RightDefinition& definition) {
  const Result<Data> expected = bytesFromDefinition(definition);
  const auto fault =
      faultOf({_directory, fileNameFor(rightName), rightName}, expected ? *expected : Data(),
              definition, definitionFromBytes, [](const std::string& rule) { return rule; });
  return fault ? std::vector<RightFault>{*fault} : std::vector<RightFault>();
}

}  // namespace corvane
