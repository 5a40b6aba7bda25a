#include <filesystem>
#include <future>
#include <thread>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "platform/linux/authorization/EmbeddedAuthority.h"
#include "platform/linux/authorization/polkit/PolkitAuthority.h"
#include "platform/linux/transport/CurrentPeer.h"
#include "platform/linux/transport/LocalSocket.h"
#include "tests/platform/linux/authorization/Answers.h"
#include "tests/platform/linux/authorization/PolkitService.h"
#include "tests/platform/linux/support/ChildProcess.h"
#include "tests/support/TemporaryFolder.h"

namespace corvane {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;

const std::string allowed = "com.corvane.test.allowed";
const std::string guarded = "com.corvane.test.guarded";
const std::string strict = "com.corvane.test.strict";
const std::string another = "com.corvane.test.another";
const ProcessIdentity root = ProcessIdentity::ofThisProcess();

/// Part of an event: what it says of `key`.
std::string says(const std::string& key, const std::string& value) {
  return "\"" + key + "\": \"" + value + "\"";
}
std::string asked(const std::string& action) {
  return says("action", action) + ", " + says("event", "asked");
}
const std::string cancelled = "{" + says("event", "cancelled") + "}";

FileDescriptor socketFor(const std::string& path, sockaddr_un& address) {
  address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

FileDescriptor listenAt(const std::string& path, int backlog) {
  sockaddr_un address;
  FileDescriptor listener = socketFor(path, address);
  if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener.get(), backlog) != 0) {
    std::abort();
  }
  return listener;
}

FileDescriptor connectionTo(const std::string& path) {
  sockaddr_un address;
  FileDescriptor connection = socketFor(path, address);
  if (::connect(connection.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
      0) {
    std::abort();
  }
  return connection;
}

/// Has `authority` decide for `subject`, whose client has the other end of `connection`.
std::future<std::optional<Decision>> decision(PolkitAuthority& authority,
                                              const ProcessIdentity& subject,
                                              FileDescriptor connection) {
  return std::async(std::launch::async, [&authority, subject, connection = std::move(connection)] {
    const Peer peer{subject.pid, subject.uid, someUser, connection.get()};
    const CurrentPeerScope scope(peer);
    return said(authority.decide(subject, {guarded, "", "", true}));
  });
}

/// An authority over a polkit of the test's own, and a process that asks for rights.
class PolkitAuthorityTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "polkit answers such questions to root alone";
    for (const auto& [name, rule] :
         {std::pair(allowed, "allow"), std::pair(guarded, "default"),
          std::pair(strict, "authenticate-admin"), std::pair(another, "default")}) {
      ASSERT_TRUE(authority.rightSet(name, {rule, "The sentence of " + name, ""}));
    }
  }

  void start(const std::string& polkit = "polkit") {
    if (!service.start(polkit)) GTEST_SKIP() << "no polkit can be started here";
  }

  std::optional<Decision> ask(const std::string& rightName, const std::string& prompt = "",
                              const std::string& icon = "") {
    return said(authority.decide(subject, {rightName, prompt, icon, true}));
  }

  PolkitService service;
  const TemporaryFolder folder;
  EmbeddedAuthority embedded{folder.path("rights")};
  const PolkitAuthority::Places places{service.busAddress(), service.actionsDirectory(),
                                       folder.path("discarded")};
  const PolkitAuthority::Translate translate = [](const std::string&, const std::string&) {
    return Translations();
  };
  PolkitAuthority authority{places, translate, embedded};
  const ChildProcess child =
      ChildProcess::connectedOfUser(::geteuid() == 0 ? someUser : ::geteuid());
  const ProcessIdentity subject = WatchedProcess::ofPeer(child.socket())->identity();
};

TEST_F(PolkitAuthorityTest, WhatIsAllowedToAllIsGrantedWithoutDialog) {
  start();
  EXPECT_EQ(ask(allowed), Decision::Granted);
  EXPECT_EQ(said(authority.decide(root, {guarded, "", "", false})), Decision::Granted);
}

TEST_F(PolkitAuthorityTest, WithoutAgentNobodyCanBeAsked) {
  start();
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded);
}

TEST_F(PolkitAuthorityTest, AnUnknownActionIsAFailureEvenForRoot) {
  start();
  EXPECT_EQ(ask("com.corvane.test.unknown"), std::nullopt);
  EXPECT_EQ(said(authority.decide(root, {"com.corvane.test.unknown", "", "", true})), std::nullopt);
}

TEST_F(PolkitAuthorityTest, APersonGrants) {
  start();
  const PolkitAgent agent(service, subject, "grant");
  EXPECT_EQ(ask(guarded), Decision::Granted);
  EXPECT_THAT(agent.nextEvent(), AllOf(HasSubstr(asked(guarded)),
                                       HasSubstr(says("message", "The sentence of " + guarded))));
}

TEST_F(PolkitAuthorityTest, APersonRefuses) {
  start();
  const PolkitAgent agent(service, subject, "refuse");
  EXPECT_EQ(ask(guarded), Decision::Denied);
}

TEST_F(PolkitAuthorityTest, APersonDismissesTheDialog) {
  start();
  const PolkitAgent agent(service, subject, "dismiss");
  EXPECT_EQ(ask(guarded), Decision::Dismissed);
}

TEST_F(PolkitAuthorityTest, NobodyIsAskedUnlessThatIsAllowed) {
  start();
  const PolkitAgent agent(service, subject, "grant");
  EXPECT_EQ(said(authority.decide(subject, {guarded, "", "", false})), Decision::DialogNeeded);
  EXPECT_EQ(ask(strict), Decision::Granted);
  EXPECT_THAT(agent.nextEvent(), HasSubstr(asked(strict))) << "the first dialog";
}

TEST_F(PolkitAuthorityTest, TheDialogShowsPromptAndIconOfTheRequest) {
  start();
  const PolkitAgent agent(service, subject, "refuse");
  ask(guarded, "Really?", "/no/such/icon.png");
  EXPECT_THAT(agent.nextEvent(), AllOf(HasSubstr(says("message", "Really?")),
                                       HasSubstr(says("icon", "/no/such/icon.png"))));
}

TEST_F(PolkitAuthorityTest, TheDialogShowsNothingThatMisleads) {
  start();
  const PolkitAgent agent(service, subject, "refuse");
  ask(guarded, "<b>Update</b>\n\x1b[2J\u202E$(polkit.subject-pid)\n", "/a\nb");
  EXPECT_THAT(agent.nextEvent(),
              AllOf(HasSubstr(says("message", "‹b›Update‹/b› [2J＄(polkit.subject-pid)")),
                    HasSubstr(says("icon", "dialog-password"))))
      << "the icon of the action";
  ask(guarded, std::string(1 << 20, 'x'));
  EXPECT_THAT(agent.nextEvent(), HasSubstr(says("message", std::string(399, 'x') + "…")));
  ask(guarded, "\n\n");
  EXPECT_THAT(agent.nextEvent(), HasSubstr(says("message", "The sentence of " + guarded)));
}

TEST_F(PolkitAuthorityTest, DefaultRightsAreKeptForTheProcessAndOthersAreNot) {
  start();
  const PolkitAgent agent(service, subject, "grant");
  EXPECT_EQ(ask(guarded), Decision::Granted);
  EXPECT_EQ(ask(guarded), Decision::Granted);
  EXPECT_EQ(ask(strict), Decision::Granted);
  EXPECT_EQ(ask(strict), Decision::Granted);
  EXPECT_THAT(agent.nextEvent(), HasSubstr(asked(guarded)));
  EXPECT_THAT(agent.nextEvent(), HasSubstr(asked(strict)));
  EXPECT_THAT(agent.nextEvent(), HasSubstr(asked(strict)));
}

TEST_F(PolkitAuthorityTest, WhatIsDiscardedIsAskedForAgain) {
  start();
  std::optional<PolkitAgent> agent(std::in_place, service, subject, "grant");
  ASSERT_EQ(ask(guarded), Decision::Granted);
  authority.revoke(subject);
  EXPECT_EQ(ask(guarded), Decision::Granted);
  EXPECT_THAT(agent->nextEvent(), HasSubstr(asked(guarded)));
  EXPECT_THAT(agent->nextEvent(), HasSubstr("asked")) << "a second dialog";

  agent.reset();
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded) << "nobody is there to ask";
  agent.emplace(service, subject, "refuse");
  EXPECT_EQ(ask(guarded), Decision::Denied);
  EXPECT_EQ(
      said(PolkitAuthority(places, translate, embedded).decide(subject, {guarded, "", "", true})),
      Decision::Denied)
      << "a helper that is started again knows it too";
}

TEST_F(PolkitAuthorityTest, WhatIsGrantedAfterADiscardIsKept) {
  start();
  std::optional<PolkitAgent> agent(std::in_place, service, subject, "grant");
  ASSERT_EQ(ask(another), Decision::Granted);
  authority.revoke(subject);
  EXPECT_EQ(ask(guarded), Decision::Granted);
  agent.reset();
  EXPECT_EQ(ask(guarded), Decision::Granted) << "kept since";
  EXPECT_EQ(ask(another), Decision::DialogNeeded) << "kept before";
  authority.revoke(subject);
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded) << "discarded again";
}

TEST_F(PolkitAuthorityTest, ADiscardConcernsOneProcess) {
  start();
  const ChildProcess sibling = ChildProcess::connectedOfUser(someUser);
  const auto other = WatchedProcess::ofPeer(sibling.socket())->identity();
  {
    const PolkitAgent agent(service, other, "grant");
    ASSERT_EQ(said(authority.decide(other, {guarded, "", "", true})), Decision::Granted);
  }
  authority.revoke(subject);
  EXPECT_EQ(said(authority.decide(other, {guarded, "", "", true})), Decision::Granted);
}

TEST_F(PolkitAuthorityTest, RulesOfTheAdministratorDecideBeforeAndAfterADiscard) {
  service.addRule("if (action.id == '" + guarded + "') return polkit.Result.NO;");
  service.addRule("if (action.id == '" + another + "') return polkit.Result.YES;");
  start();
  const PolkitAgent agent(service, subject, "grant");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(ask(guarded), Decision::Denied);
    EXPECT_EQ(ask(another), Decision::Granted);
    authority.revoke(subject);
  }
}

TEST_F(PolkitAuthorityTest, AProcessThatHasEndedIsGrantedNothing) {
  start();
  ChildProcess ended = ChildProcess::connectedOfUser(someUser);
  const auto identity = WatchedProcess::ofPeer(ended.socket())->identity();
  ended.kill();
  ended.reap();
  EXPECT_NE(said(authority.decide(identity, {guarded, "", "", true})), Decision::Granted);
}

TEST_F(PolkitAuthorityTest, ADialogIsClosedWhenItsClientGoesAway) {
  start();
  const PolkitAgent agent(service, subject, "wait");
  auto [connection, client] = connectedSockets();
  auto status = decision(authority, subject, std::move(connection));
  EXPECT_THAT(agent.nextEvent(), HasSubstr("asked"));
  client.reset();
  EXPECT_EQ(status.get(), Decision::Dismissed);
  EXPECT_EQ(agent.nextEvent(), cancelled);
  EXPECT_EQ(ask(allowed), Decision::Granted) << "nothing else is affected";
}

TEST_F(PolkitAuthorityTest, ManyDialogsAreOpenAtOnceWhileOthersAreServed) {
  start();
  constexpr uid_t count = 20;
  std::vector<ChildProcess> children;
  std::vector<std::unique_ptr<PolkitAgent>> agents;
  std::vector<FileDescriptor> clients;
  std::vector<std::future<std::optional<Decision>>> statuses;
  // All of them before there are connections that they would inherit.
  children.reserve(count);
  for (uid_t i = 0; i < count; ++i) {
    children.push_back(
        ChildProcess::connectedOfUser(anotherUser - i / PolkitAuthority::mostDialogs));
  }
  agents.reserve(count);
  clients.reserve(count);
  statuses.reserve(count);
  for (const ChildProcess& asker : children) {
    const auto process = WatchedProcess::ofPeer(asker.socket())->identity();
    agents.push_back(std::make_unique<PolkitAgent>(service, process, "wait"));
    auto [connection, client] = connectedSockets();
    clients.push_back(std::move(client));
    statuses.push_back(decision(authority, process, std::move(connection)));
  }
  for (const auto& agent : agents) EXPECT_THAT(agent->nextEvent(), HasSubstr("asked"));
  EXPECT_EQ(ask(allowed), Decision::Granted);
  clients.clear();
  for (auto& status : statuses) EXPECT_EQ(status.get(), Decision::Dismissed);
}

TEST_F(PolkitAuthorityTest, AYesAfterTheAskersEndGrantsNothing) {
  start();
  ChildProcess asker = ChildProcess::connectedOfUser(someUser);
  const auto process = WatchedProcess::ofPeer(asker.socket())->identity();
  const PolkitAgent agent(service, process, "late");
  auto status = std::async(std::launch::async, [&] {
    return said(authority.decide(process, {guarded, "", "", true}));
  });
  EXPECT_THAT(agent.nextEvent(), HasSubstr("asked"));
  EXPECT_THAT(agent.nextEvent(), HasSubstr("open"));
  asker.kill();
  agent.answer();
  EXPECT_EQ(status.get(), Decision::Outdated);
}

TEST_F(PolkitAuthorityTest, AYesToAProcessThatRunsAnotherProgramByThenGrantsNothing) {
  start();
  auto [told, tell] = makePipe();
  auto [input, go] = makePipe();
  const std::string id = std::to_string(someUser);
  const ChildProcess asker =
      ChildProcess::program({"setpriv", "--reuid=" + id, "--regid=" + id, "--clear-groups", "sh",
                             "-c", "echo ready; read go; exec sh -c 'echo changed; read end'"},
                            {.input = input.get(), .output = tell.get()});
  tell.reset();
  ASSERT_EQ(readLine(told), "ready");
  const ProcessIdentity process{asker.pid(), someUser, processStartTime(asker.pid()).value_or(0)};
  const PolkitAgent agent(service, process, "late");
  auto status = std::async(std::launch::async, [&] {
    return said(authority.decide(process, {guarded, "", "", true}));
  });
  EXPECT_THAT(agent.nextEvent(), HasSubstr("asked"));
  EXPECT_THAT(agent.nextEvent(), HasSubstr("open"));
  ASSERT_EQ(::write(go.get(), "\n", 1), 1);
  ASSERT_EQ(readLine(told), "changed");
  EXPECT_TRUE(process.isRunning());
  agent.answer();
  EXPECT_EQ(status.get(), Decision::Outdated);
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatEndsInTheMiddleIsAFailure) {
  start();
  std::optional<PolkitAgent> agent(std::in_place, service, subject, "wait");
  auto status = std::async(std::launch::async, [&] { return ask(guarded); });
  EXPECT_THAT(agent->nextEvent(), HasSubstr("asked"));
  service.killPolkit();
  EXPECT_EQ(status.get(), std::nullopt);

  ASSERT_TRUE(service.startAgain("polkit"));
  agent.emplace(service, subject, "grant");
  while (ask(guarded) != Decision::Granted) std::this_thread::yield();
}

TEST_F(PolkitAuthorityTest, ABusThatEndsInTheMiddleIsAFailure) {
  start();
  const PolkitAgent agent(service, subject, "wait");
  auto status = std::async(std::launch::async, [&] { return ask(guarded); });
  EXPECT_THAT(agent.nextEvent(), HasSubstr("asked"));
  service.killBus();
  EXPECT_EQ(status.get(), std::nullopt);
  // Once it is wholly gone the embedded authority answers.
  while (ask(allowed) != Decision::Granted) std::this_thread::yield();
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded);
}

TEST_F(PolkitAuthorityTest, WithoutBusTheEmbeddedAuthorityDecides) {
  EXPECT_EQ(ask(allowed), Decision::Granted);
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded);
  EXPECT_EQ(said(authority.decide(root, {guarded, "", "", true})), Decision::Granted);
}

TEST_F(PolkitAuthorityTest, ABusThatAcceptsNobodyIsAFailure) {
  const FileDescriptor bus = listenAt(service.folder().path("bus"), 1);
  PolkitAuthority impatient(places, translate, embedded, 50ms);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(said(impatient.decide(subject, {allowed, "", "", true})), std::nullopt);
  }
  EXPECT_EQ(said(impatient.decide(root, {guarded, "", "", true})), std::nullopt);
}

TEST_F(PolkitAuthorityTest, ABusWhoseQueueIsFullIsAskedAgainAndThenAFailure) {
  const std::string path = service.folder().path("bus");
  FileDescriptor bus = listenAt(path, 0);
  const FileDescriptor first = connectionTo(bus);
  PolkitAuthority impatient(places, translate, embedded, 50ms);
  EXPECT_EQ(said(impatient.decide(subject, {allowed, "", "", true})), std::nullopt);

  PolkitAuthority patient(places, translate, embedded, 60s);
  auto status = std::async(std::launch::async, [&] {
    return said(patient.decide(subject, {allowed, "", "", true}));
  });
  bus.reset();
  EXPECT_EQ(status.get(), Decision::Granted) << "nobody listens any more";
}

TEST_F(PolkitAuthorityTest, ABusThatHangsUpIsAFailure) {
  const FileDescriptor bus = listenAt(service.folder().path("bus"), 1);
  std::thread server([&] { FileDescriptor(::accept(bus.get(), nullptr, nullptr)).reset(); });
  EXPECT_EQ(ask(allowed), std::nullopt);
  server.join();
}

TEST_F(PolkitAuthorityTest, ABusThatIsKeptBusyDoesNotHaveTheEmbeddedAuthorityDecide) {
  service.addRule("if (action.id == '" + allowed + "') return polkit.Result.NO;");
  start();
  // More than the bus admits before they have said who they are.
  constexpr int many = 80;
  std::vector<FileDescriptor> busy;
  busy.reserve(many);
  for (int count = 0; count < many; ++count) {
    busy.push_back(connectionTo(service.folder().path("bus")));
  }
  PolkitAuthority impatient(places, translate, embedded, 200ms);
  EXPECT_EQ(said(impatient.decide(subject, {allowed, "", "", true})), std::nullopt);
  busy.clear();
  EXPECT_EQ(ask(allowed), Decision::Denied);
}

TEST_F(PolkitAuthorityTest, APolkitThatCannotBeStartedIsAFailure) {
  service.addActivatable("/bin/false");
  start("none");
  EXPECT_EQ(ask(allowed), std::nullopt);
}

TEST_F(PolkitAuthorityTest, WithoutPolkitOnTheBusTheEmbeddedAuthorityDecidesUntilItIsThere) {
  start("none");
  EXPECT_EQ(ask(allowed), Decision::Granted);
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded);
  ASSERT_TRUE(service.startAgain("polkit"));
  const PolkitAgent agent(service, subject, "grant");
  while (ask(guarded) != Decision::Granted) std::this_thread::yield();
}

TEST_F(PolkitAuthorityTest, ARightIsKnownToPolkitAsSoonAsItIsDefined) {
  start();
  const std::string defined = "com.corvane.test.defined";
  ASSERT_EQ(ask(defined), std::nullopt);
  ASSERT_TRUE(authority.rightSet(defined, {"allow", "]]> <&\" \x01 ü", ""}));
  while (ask(defined) != Decision::Granted) std::this_thread::yield();
  ASSERT_TRUE(authority.rightRemove(defined));
  while (ask(defined) != std::nullopt) std::this_thread::yield();
}

TEST_F(PolkitAuthorityTest, AnyAnswerOfAnotherTypeIsAFailure) {
  start("grant");
  ASSERT_EQ(ask(guarded), Decision::Granted) << "the substitute's yes counts";
  for (const char* manner : {"short", "long", "other", "empty", "text", "error"}) {
    service.killPolkit();
    ASSERT_TRUE(service.startAgain(manner));
    std::optional<Decision> status = Decision::Granted;
    do {
      status = ask(guarded);
    } while (status == Decision::DialogNeeded);
    EXPECT_EQ(status, std::nullopt) << manner;
  }
}

TEST_F(PolkitAuthorityTest, AYesThatIsAQuestionToo) {
  start("contrary");
  EXPECT_EQ(ask(guarded), Decision::DialogNeeded);
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatVanishesIsAFailure) {
  start("vanish");
  EXPECT_EQ(ask(guarded), std::nullopt);
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatHangsIsAFailure) {
  start("hang");
  PolkitAuthority impatient(places, translate, embedded, 100ms);
  EXPECT_EQ(said(impatient.decide(subject, {guarded, "", "", true})), std::nullopt);
}

TEST_F(PolkitAuthorityTest, AnAuthorityThatShowsADialogIsWaitedFor) {
  start("silent");
  PolkitAuthority impatient(places, translate, embedded, 500ms);
  auto [connection, client] = connectedSockets();
  auto status = decision(impatient, subject, std::move(connection));
  for (int sign = 0; sign < 5; ++sign) EXPECT_EQ(service.nextLineOfPolkit(), "alive");
  client.reset();
  EXPECT_EQ(status.get(), Decision::Dismissed);
  std::string line;
  do {
    line = service.nextLineOfPolkit();
  } while (line == "alive");
  EXPECT_EQ(line, "CancelCheckAuthorization");
}

TEST_F(PolkitAuthorityTest, AUserWithManyQuestionsDoesNotHoldUpAnothers) {
  start("wordless");
  const ChildProcess child = ChildProcess::connectedOfUser(anotherUser);
  const auto other = WatchedProcess::ofPeer(child.socket())->identity();
  constexpr int many = PolkitAuthority::mostQuestions + 4;
  std::vector<FileDescriptor> clients;
  std::vector<std::future<std::optional<Decision>>> statuses;
  const auto ask = [&](const ProcessIdentity& asking) {
    auto [connection, client] = connectedSockets();
    clients.push_back(std::move(client));
    statuses.push_back(decision(authority, asking, std::move(connection)));
  };
  clients.reserve(many + 1);
  statuses.reserve(many + 1);
  for (int count = 0; count < many; ++count) ask(subject);
  for (int count = 0; count < PolkitAuthority::mostQuestions; ++count) {
    EXPECT_EQ(service.nextLineOfPolkit(), "asked for " + std::to_string(subject.pid));
  }
  ask(other);
  EXPECT_EQ(service.nextLineOfPolkit(), "asked for " + std::to_string(other.pid));
  clients.clear();
  for (auto& status : statuses) EXPECT_EQ(status.get(), Decision::Dismissed);
}

TEST_F(PolkitAuthorityTest, RightsAreDefinedWithBothAuthorities) {
  const RightDefinition definition{"default", "The sentence of " + guarded, ""};
  EXPECT_EQ(*authority.rightGet(guarded), definition);
  EXPECT_EQ(*embedded.rightGet(guarded), definition);
  EXPECT_TRUE(std::filesystem::exists(service.actionsDirectory() + "/" + guarded + ".policy"));

  EXPECT_TRUE(authority.rightRemove(guarded));
  EXPECT_TRUE(isUndefined(authority.rightGet(guarded)));
  EXPECT_TRUE(isUndefined(embedded.rightGet(guarded)));
  EXPECT_TRUE(isUndefined(authority.rightRemove(guarded)));
}

TEST_F(PolkitAuthorityTest, ARightThatOneAuthorityLacksIsNoneAndCanBeRemoved) {
  const RightDefinition definition{"default", "", ""};
  ASSERT_TRUE(embedded.rightRemove(guarded));
  EXPECT_TRUE(isUndefined(authority.rightGet(guarded)));
  ASSERT_TRUE(authority.rightSet(guarded, definition));
  EXPECT_TRUE(authority.rightGet(guarded)) << "completed";

  ASSERT_TRUE(embedded.rightRemove(guarded));
  EXPECT_TRUE(authority.rightRemove(guarded));
  ASSERT_TRUE(embedded.rightSet(guarded, definition));
  EXPECT_TRUE(isUndefined(authority.rightGet(guarded)));
  EXPECT_TRUE(authority.rightRemove(guarded));
  EXPECT_TRUE(isUndefined(embedded.rightGet(guarded)));
}

TEST_F(PolkitAuthorityTest, ASystemWithoutActionsHasTheEmbeddedAuthoritysRights) {
  PolkitAuthority without({service.busAddress(), folder.path("none"), folder.path("discarded")},
                          translate, embedded);
  const std::string name = "com.corvane.test.without";
  ASSERT_TRUE(without.rightSet(name, {"allow", "", ""}));
  EXPECT_TRUE(without.rightGet(name));
  EXPECT_FALSE(std::filesystem::exists(folder.path("none")));
  EXPECT_TRUE(without.rightRemove(name));
}

TEST_F(PolkitAuthorityTest, ARuleThatNoActionCanExpressIsRefused) {
  const std::string name = "com.corvane.test.new";
  EXPECT_TRUE(isFailure(authority.rightSet(name, {"something", "", ""})));
  EXPECT_TRUE(isUndefined(authority.rightGet(name)));
  EXPECT_TRUE(isUndefined(embedded.rightGet(name)));
}

}  // namespace
}  // namespace corvane
