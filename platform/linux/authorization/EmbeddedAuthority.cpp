#include "platform/linux/authorization/EmbeddedAuthority.h"

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

std::optional<Data> bytesFromDefinition(const RightDefinition& definition) {
  const Dictionary entries = {{std::string(ruleKey), definition.rule},
                              {std::string(descriptionKey), definition.description},
                              {std::string(stringsTableKey), definition.stringsTable}};
  // There are texts that only the binary form can hold.
  for (const auto format : {PropertyListFormat::XML, PropertyListFormat::Binary}) {
    if (auto written = writePropertyList(entries, format)) return *std::move(written);
  }
  return std::nullopt;
}

}  // namespace

EmbeddedAuthority::EmbeddedAuthority(std::string rightsDirectory)
    : _directory(std::move(rightsDirectory)) {}

OSStatus EmbeddedAuthority::decide(const ProcessIdentity& subject, const RightRequest& request) {
  return subject.uid == 0 || isAllowedToAll(request.rightName)
             ? errAuthorizationSuccess
             : errAuthorizationInteractionNotAllowed;
}

bool EmbeddedAuthority::isAllowedToAll(const std::string& rightName) {
  const std::optional<FileStamp> stamp = FileStamp::of(_directory + "/" + fileNameFor(rightName));
  if (!stamp) return false;

  const std::lock_guard guard(_lock);
  const auto known = _knownRights.find(rightName);
  if (known != _knownRights.end() && known->second.stamp == *stamp) {
    return known->second.isAllowedToAll;
  }
  RightDefinition definition;
  const bool isAllowed =
      rightGet(rightName, &definition) == errAuthorizationSuccess && definition.rule == "allow";
  if (stamp->isSettled()) {
    _knownRights.insert_or_assign(rightName, KnownRight{*stamp, isAllowed});
  }
  return isAllowed;
}

OSStatus EmbeddedAuthority::rightGet(const std::string& rightName, RightDefinition* definition) {
  const Result<RootFolder> folder = RootFolder::open(_directory);
  if (!folder) return statusOfDefinition(folder.error());
  const Result<Data> bytes = folder->read(fileNameFor(rightName), everyoneElseReads);
  if (!bytes) return statusOfDefinition(bytes.error());

  std::optional<RightDefinition> found = definitionFromBytes(*bytes);
  if (!found) return errAuthorizationInternal;
  if (definition != nullptr) *definition = *std::move(found);
  return errAuthorizationSuccess;
}

OSStatus EmbeddedAuthority::rightSet(const std::string& rightName,
                                     const RightDefinition& definition) {
  const std::optional<Data> bytes = bytesFromDefinition(definition);
  if (!bytes) return errAuthorizationInternal;
  const Result<RootFolder> folder = RootFolder::openOrMake(_directory);
  return folder && folder->replace(fileNameFor(rightName), *bytes, everyoneElseReads)
             ? errAuthorizationSuccess
             : errAuthorizationInternal;
}

OSStatus EmbeddedAuthority::rightRemove(const std::string& rightName) {
  const Result<RootFolder> folder = RootFolder::open(_directory);
  if (!folder) return statusOfDefinition(folder.error());
  const Result<void> removed = folder->remove(fileNameFor(rightName));
  return removed ? errAuthorizationSuccess : statusOfDefinition(removed.error());
}

std::vector<RightFault> EmbeddedAuthority::faultsOf(const std::string& rightName,
                                                    const RightDefinition& definition) {
  const auto fault = faultOf({_directory, fileNameFor(rightName), rightName},
                             bytesFromDefinition(definition).value_or(Data()), definition,
                             definitionFromBytes, [](const std::string& rule) { return rule; });
  return fault ? std::vector<RightFault>{*fault} : std::vector<RightFault>();
}

}  // namespace corvane
