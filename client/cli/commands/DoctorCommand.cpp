#include <algorithm>
#include <cstdio>

#include <unistd.h>

#include "client/cli/commands/Commands.h"
#include "client/cli/output/Advice.h"
#include "client/cli/output/Translation.h"
#include "client/cli/setup/Installation.h"
#include "client/cli/setup/ProtectedTree.h"
#include "operations/Rights.h"
#include "operationset-vnt/ZELPrivilegedOperationSetVNT.h"
#include "platform/AuthenticationAgent.h"
#include "platform/SystemAdvice.h"

namespace corvane::cli {

namespace {

// What one check found. A check that cannot be made is no problem, and no assurance either; nor is
// what somebody may have meant to be as it is, which is noted.
struct Finding {
  enum class State { Good, Bad, Note, Unknown };
  const char* subject;
  State state;
  std::string detail;
  std::string advice;
  int status = ExitFailed;  // what a bad one makes the command exit with
};
using State = Finding::State;
// Of a check that may find several things.
using Findings = std::vector<Finding>;

// Of the columns that subjects and states stand in.
constexpr std::size_t narrowestSubjects = 14;
constexpr std::size_t narrowestStates = 8;

using Version = Answer<std::string>;

Finding examineHelper(const Version& answer) {
  if (!answer) {
    return {"helper", State::Bad, answer.error().description, systemAdvice().helperUnreachable,
            ExitOutOfReach};
  }
  return {"helper", State::Good, "answers", {}};
}

Finding examineVersion(const Version& version) {
  const std::string own =
      ZELPrivilegedOperationSetVNT::privilegedOperationSet().implementationVersion().value_or("");
  if (!version) return {"version", State::Unknown, "the helper does not answer", {}};
  if (*version == own) return {"version", State::Good, own, {}};
  return {"version", State::Bad, "the helper is " + *version + ", this client " + own,
          "Install the helper that came with this client."};
}

Finding examineAuthorization(PrivilegedHelperClient& client, const Version& answer) {
  if (!answer) {
    return {"authorization", State::Unknown, "the helper does not answer", {}};
  }
  const auto outcome = client.nop();
  if (!outcome) {
    return {"authorization", State::Bad, outcome.error().description,
            systemAdvice().issuerUnreachable, ExitOutOfReach};
  }
  if (outcome->error) {
    return {"authorization", State::Bad, descriptionOf(*outcome->error),
            "Even the empty operation is refused: are the rights registered?"};
  }
  return {"authorization", State::Good, "an empty operation is allowed", {}};
}

// Has the helper delete a protected tree that is made for it: much that can be wrong shows only
// when it does its work.
Finding examineDeletion(PrivilegedHelperClient& client, const Version& answer) {
  constexpr const char* subject = "deletion";
  if (::geteuid() != 0) return {subject, State::Unknown, "not tried: only root may have it", {}};
  if (!answer) {
    return {subject, State::Unknown, "the helper does not answer", {}};
  }
  const ProtectedTree tree;
  if (tree.error()) {
    return {subject,
            State::Unknown,
            "no protected tree could be made to try it on: " + descriptionOf(*tree.error()),
            {}};
  }
  const auto outcome =
      client.deleteFileObjects({tree.path()}, {.isRecursive = true, .stopsOnFirstError = true})
          .answer;
  if (!outcome) {
    return {subject, State::Bad, outcome.error().description, suggestionFor(outcome.error()),
            ExitOutOfReach};
  }
  const char* const advice = systemAdvice().serviceChanged;
  if (outcome->error) {
    return {
        subject, State::Bad,
        "a protected tree in a folder of root's is not deleted: " + descriptionOf(*outcome->error),
        advice};
  }
  if (tree.isThere()) {
    return {subject, State::Bad, "the helper says that it has deleted what is still there", advice};
  }
  return {subject, State::Good, "a protected tree is deleted", {}};
}

Finding examineDialogs() {
  constexpr const char* subject = "dialogs";
  switch (authorizationDialogsOfThisProcess()) {
    case AuthorizationDialogs::NotNeeded:
      return {subject, State::Good, "root is asked for nothing", {}};
    case AuthorizationDialogs::Served:
      return {subject, State::Good, "an agent shows them", {}};
    case AuthorizationDialogs::OnTerminal:
      return {subject, State::Good, "shown on this terminal", {}};
    case AuthorizationDialogs::NoAuthority:
      return {subject, State::Bad, systemAdvice().noAuthority, systemAdvice().noAuthorityCure};
    case AuthorizationDialogs::Nobody:
      return {subject, State::Bad, systemAdvice().nobodyShowsDialogs,
              systemAdvice().nobodyShowsDialogsCure};
  }
  return {subject, State::Unknown, {}, {}};
}

const char* cureOf(RightFault::Kind kind) {
  switch (kind) {
    case RightFault::Kind::Missing:
    case RightFault::Kind::Damaged:
      return "Run 'install' as root: it puts it right.";
    case RightFault::Kind::Unsafe:
      return "Look at what it says; 'install' as root puts back what is shipped.";
    case RightFault::Kind::Changed:
      return systemAdvice().rightChanged;
    case RightFault::Kind::Unknown:
      break;
  }
  return "";
}

Findings examineRegistration() {
  constexpr const char* subject = "rights";
  const Rights rights = examineRights(catalogue());
  const std::size_t all = rights.registered.size() + rights.missing.size() + rights.unknown.size();
  if (rights.missing.size() == all) {
    return {{subject, State::Bad, "none of " + std::to_string(all) + " is registered",
             "Register them as root: 'install' does."}};
  }
  Findings findings;
  bool isAllSeen = true;
  for (const RightFault& fault : faultsOfRights(catalogue())) {
    if (fault.kind == RightFault::Kind::Unknown) {
      isAllSeen = false;
      continue;
    }
    findings.push_back(
        {subject, State::Bad, fault.path + " " + fault.description, cureOf(fault.kind)});
  }
  if (!findings.empty()) return findings;
  if (!rights.unknown.empty()) return {{subject, State::Unknown, "only root may look them up", {}}};
  const std::string registered = "all " + std::to_string(all) + " registered";
  return {{subject,
           State::Good,
           isAllSeen ? registered : registered + ", as far as others than root may look",
           {}}};
}

State stateOf(HelperInstallation::Fault::Kind kind) {
  switch (kind) {
    case HelperInstallation::Fault::Kind::Broken:
      return State::Bad;
    case HelperInstallation::Fault::Kind::Changed:
      return State::Note;
    case HelperInstallation::Fault::Kind::Unknown:
      break;
  }
  return State::Unknown;
}

// There need not be an installation, but one that is there must be whole, in this client's version,
// and able to work.
Findings examineInstallation() {
  constexpr const char* subject = "installation";
  const auto installation = ownInstallation();
  const auto parts = installation->parts();
  const bool isThere = std::any_of(parts.begin(), parts.end(), [](const auto& part) {
    return part.state != HelperInstallation::Part::State::Missing;
  });
  if (!isThere) return {{subject, State::Unknown, "there is none", {}}};
  Findings findings;
  for (const auto& fault : installation->faults()) {
    findings.push_back({subject, stateOf(fault.kind), fault.description, fault.cure});
  }
  if (findings.empty()) return {{subject, State::Good, "complete", {}}};
  return findings;
}

const char* textFor(State state) {
  switch (state) {
    case State::Good:
      return "ok";
    case State::Bad:
      return "PROBLEM";
    case State::Note:
      return "note";
    case State::Unknown:
      return "unknown";
  }
  return "";
}

// One line for each, and its advice below.
void print(const Findings& findings) {
  std::size_t subjects = narrowestSubjects;
  std::size_t states = narrowestStates;
  for (const Finding& finding : findings) {
    subjects = std::max(subjects, columnsOf(translated(finding.subject)));
    states = std::max(states, columnsOf(translated(textFor(finding.state))));
  }
  const auto printLine = [&](const std::string& subject, const std::string& state,
                             const std::string& text) {
    std::printf("%s %s %s\n", padded(subject, subjects).c_str(), padded(state, states).c_str(),
                printable(text).c_str());
  };
  for (const Finding& finding : findings) {
    printLine(translated(finding.subject), translated(textFor(finding.state)),
              translated(finding.detail));
    if (!finding.advice.empty()) printLine("", "", translated(finding.advice));
  }
}

void printObject(const Findings& findings) {
  nlohmann::ordered_json rows = nlohmann::json::array();
  std::optional<Error> problem;
  for (const Finding& finding : findings) {
    rows.push_back({{"subject", finding.subject},
                    {"state", textFor(finding.state)},
                    {"detail", translated(finding.detail)},
                    {"advice", translated(finding.advice)}});
    if (finding.state == State::Bad && !problem) {
      problem = Error(clientErrorDomain, problemsFound,
                      {{NSLocalizedRecoverySuggestionErrorKey, translated(finding.advice)}});
    }
  }
  printResult(rows, problem);
}

}  // namespace

int examine(const Context& context) {
  PrivilegedHelperClient client(context.client);
  const Version version = client.helperVersion();
  Findings findings = {examineHelper(version), examineVersion(version),
                       examineAuthorization(client, version), examineDeletion(client, version),
                       examineDialogs()};
  for (const Findings& several : {examineRegistration(), examineInstallation()}) {
    findings.insert(findings.end(), several.begin(), several.end());
  }
  if (context.isJSON) {
    printObject(findings);
  } else {
    print(findings);
  }
  int status = ExitDone;
  for (const Finding& finding : findings) {
    if (finding.state == State::Bad) status = std::max(status, finding.status);
  }
  return status;
}

}  // namespace corvane::cli
