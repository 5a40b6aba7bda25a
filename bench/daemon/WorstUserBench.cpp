// How long others wait for the helper while one account does its worst, one thing at a time, and
// what the daemon holds meanwhile:
//   worst-user-bench [SECONDS [ROW]]   so many for each row; those alone whose name has ROW in it
// The account has subordinate users and is several of them. Beside it another user and root make a
// nop over a new connection each, as the client does, from the form of the issuer on, and the other
// user one over a connection that is kept. Accounts and services have a share of the processor
// each, as under systemd. Where there is only so much of one, others wait for that already: the
// first rows have no attack, and processes that do nothing but compute. In the rows about dialogs a
// polkit decides, which knows of agents that leave all of them open; elsewhere the daemon decides
// by itself. Needs root.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include "bench/support/Bystander.h"
#include "bench/support/Crowd.h"
#include "bench/support/Helper.h"
#include "bench/support/Issuer.h"
#include "bench/support/Polkit.h"
#include "bench/support/ProcessorShare.h"
#include "bench/support/Program.h"
#include "bench/support/SocketActivation.h"
#include "bench/support/TemporaryFolder.h"
#include "bench/support/UserProcess.h"
#include "bench/support/WireMessage.h"
#include "operations/OperationCodes.h"
#include "platform/AuthorizationIssuer.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {
namespace {

constexpr uid_t attackingUser = 500000;
constexpr uid_t firstSubordinateUser = 600000;
constexpr uid_t firstOfManyAccounts = 700000;
constexpr uid_t otherUser = 65534;
constexpr std::chrono::seconds patience{10};

// As the unit has them: the descriptors it may have, the clients that wait to be accepted, and half
// of the memory.
constexpr rlim_t maximumDescriptors = 32768;
constexpr int backlog = 128;
constexpr long memoryAimedAt = 512;

struct Place {
  std::string helper;
  std::string issuer;
};

/// Prepares itself, and is what it then does.
using Attacker = std::function<bench::UserProcess::Action(const Place&)>;

struct Attack {
  const char* name;
  /// Each is a process of another of the account's users.
  std::vector<Attacker> attackers;
  /// Whether there is a polkit, and an agent of each process.
  bool hasDialogs = false;
  /// Those are users of accounts of their own instead.
  bool isOfManyAccounts = false;
};

Data formOfThisProcess(const Place& place) {
  const auto issued = IssuedAuthorization::request(place.issuer, patience);
  if (!issued) throw std::runtime_error(issued.error().localizedDescription());
  const auto& bytes = (*issued)->externalForm().bytes;
  return {std::begin(bytes), std::end(bytes)};
}

std::string handshake() {
  return {std::begin(bench::handshake), std::end(bench::handshake) - 1};
}

bench::UserProcess::Action doing(const bench::Crowd& crowd, const std::string& path) {
  return [=] { bench::runCrowd(crowd, path); };
}

// A crowd that sends `message` again and again, which is made for the process's form.
Attacker sending(int connections, const std::function<std::string(const Data&)>& message,
                 bool reads = true) {
  return [=](const Place& place) {
    const std::string made = message(formOfThisProcess(place));
    return doing({.connections = connections,
                  .beginning = handshake(),
                  .nextMessage = [made] { return std::string(made); },
                  .reads = reads},
                 place.helper);
  };
}

Attacker sendingDescriptor(int connections, const std::function<FileDescriptor()>& make) {
  return [=](const Place& place) {
    const std::string made = bench::callOfNop(formOfThisProcess(place), 1);
    return doing({.connections = connections,
                  .beginning = handshake(),
                  .nextMessage = [made] { return std::string(made); },
                  .descriptor = make().release()},
                 place.helper);
  };
}

// Connections that send no message: `beginning`, and are closed after `lifetime`.
Attacker connecting(int connections, const std::string& beginning,
                    std::chrono::milliseconds lifetime) {
  return [=](const Place& place) {
    return doing({.connections = connections, .beginning = beginning, .lifetime = lifetime},
                 place.helper);
  };
}

std::string callThatNeedsDialog(const Data& form) {
  return bench::callOfOperation(codeDeleteFiles, form);
}

bench::UserProcess::Action connectToIssuer(const Place& place) {
  return doing({.connections = 200, .reads = false}, place.issuer);
}

bench::UserProcess::Action registerSleepingProcesses(const Place& place) {
  const auto sleeping = std::make_shared<std::deque<bench::UserProcess>>();
  std::vector<std::string> messages;
  for (int count = 0; count < 2100; ++count) {
    sleeping->emplace_back(::getuid(), [] { return [] { ::pause(); }; });
    messages.push_back(bench::callWithNumber(registerMember.name, sleeping->back().number()));
  }
  return doing({.connections = 60,
                .beginning = handshake(),
                .nextMessage =
                    [sleeping, messages, next = std::size_t{0}]() mutable {
                      return messages[next++ % messages.size()];
                    }},
               place.helper);
}

bench::UserProcess::Action compute(const Place& /*place*/) {
  return [] {
    std::atomic<unsigned long> turns = 0;
    for (;;) ++turns;
  };
}

FileDescriptor socketThatNobodyServes() {
  auto ends = connectedSockets();
  (void)ends.first.release();
  return std::move(ends.second);
}

std::vector<Attack> attacks() {
  const auto nop = [](const Data& form) { return bench::callOfNop(form); };
  const auto endpoint = [](const Data&) { return bench::callOf(connectMember.name); };
  const auto large = [](const Data& /*form*/) {
    return bench::callOfNop(Data(std::size_t{15} << 20));
  };
  const auto dictionary = [](const Data& form) {
    return bench::callOfNopWithDictionary(form, 150000);
  };
  const auto unregistration = [](const Data&) {
    return bench::callWithNumber(unregisterMember.name, -1);
  };
  const auto file = [] { return FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); };
  using std::chrono::milliseconds;
  const milliseconds silence{250};
  const milliseconds forGood = std::chrono::hours(1);
  const std::string part = std::string("\0AUTH EXTERNAL", 14);

  const auto twice = [](const Attacker& attacker) { return std::vector{attacker, attacker}; };
  return {
      {"nothing", {}},
      {"two processes that compute", twice(compute)},
      {"connect, disconnect", twice(connecting(64, "", milliseconds(0)))},
      {"connect, a few bytes, disconnect", twice(connecting(64, part, milliseconds(0)))},
      {"handshakes half done", twice(connecting(64, part, milliseconds(50)))},
      {"requests on their way", twice(sending(60, nop))},
      {"replies that are not read", twice(sending(60, nop, false))},
      {"ConnectWithEndpoint", twice(sending(16, endpoint))},
      {"endpoints that nobody serves", twice(sendingDescriptor(60, &socketThatNobodyServes))},
      {"descriptors of files", twice(sendingDescriptor(60, file))},
      {"messages of 15 MiB", twice(sending(4, large))},
      {"dictionaries of 150,000 entries", twice(sending(4, dictionary))},
      {"registrations of 4,200 processes", twice(registerSleepingProcesses)},
      {"60 unregister, 60 silent, 2000 wait",
       {sending(60, unregistration), connecting(60, "", silence), connecting(2000, "", forGood)}},
      {"the issuer, 400 connections", twice(connectToIssuer)},
      {"a polkit", {}, true},
      {"two that compute, and a polkit", twice(compute), true},
      {"4 dialogs of one account", twice(sending(2, callThatNeedsDialog)), true},
      {"120 requests for a dialog", twice(sending(60, callThatNeedsDialog)), true},
      {"64 dialogs of 16 accounts", std::vector<Attacker>(16, sending(4, callThatNeedsDialog)),
       true, true},
  };
}

void nop(HelperConnection& connection, const Data& form) {
  const auto answer =
      connection.performPrivilegedOperation(codeNop, form, std::nullopt, {}, patience);
  if (!answer) throw std::runtime_error(answer.error().description);
  if (*answer) throw std::runtime_error("nop failed");
}

bench::Bystander::Call overNewConnections(const Place& place) {
  return [&place] {
    const Data form = formOfThisProcess(place);
    const auto connection = bench::connectToHelper(place.helper);
    const auto registered = connection->registerClientWithPID(::getpid(), patience);
    if (!registered) throw std::runtime_error(registered.error().description);
    nop(*connection, form);
    const auto unregistered = connection->unregisterClientWithPID(::getpid(), patience);
    if (!unregistered) throw std::runtime_error(unregistered.error().description);
  };
}

bench::Bystander::Call overOneConnection(const Place& place) {
  const Data form = formOfThisProcess(place);
  const std::shared_ptr connection = bench::connectToHelper(place.helper);
  return [connection, form] { nop(*connection, form); };
}

long countOf(pid_t process, const char* kind) {
  const std::filesystem::directory_iterator all("/proc/" + std::to_string(process) + "/" + kind);
  return std::distance(begin(all), end(all));
}

// The account and its subordinate users, in a file that this process and its children see in place
// of the system's own.
class Account {
 public:
  Account() {
    const std::string etc = _folder.path() + "/etc";
    std::filesystem::create_directory(etc);
    std::filesystem::permissions(etc, std::filesystem::perms(0755));
    std::ofstream(etc + "/subuid")
        << attackingUser << ':' << firstSubordinateUser << ':' << 65536 << '\n';
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", "/etc", "overlay", 0, ("lowerdir=" + etc + ":/etc").c_str()) != 0) {
      throw std::system_error(errno, std::generic_category(), "/etc/subuid");
    }
  }

 private:
  bench::TemporaryFolder _folder;
};

void print(const bench::Latencies& latencies) {
  std::printf(" %8.1f /%8.1f /%8.1f", latencies.median, latencies.percentile99, latencies.longest);
}

void printLoad() {
  double load = 0;
  std::printf("load of the machine: %.1f, on %u processors\n",
              ::getloadavg(&load, 1) == 1 ? load : 0, std::thread::hardware_concurrency());
}

// polkit learns of the rights in its own time.
void waitForRights(HelperConnection& connection, const Data& form) {
  for (const auto end = std::chrono::steady_clock::now() + patience;;) {
    try {
      return nop(connection, form);
    } catch (const std::runtime_error&) {
      if (std::chrono::steady_clock::now() >= end) throw;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
}

// What `begin` makes, the processes of which have `share` from their begin.
template <typename Begin>
auto with(const bench::ProcessorShare& share, const Begin& begin) {
  const bench::ProcessorShare::Taken taken(share);
  return begin();
}

void measure(const Attack& attack, std::chrono::seconds duration) {
  const bench::ProcessorShare ofHelper("helper");
  const bench::ProcessorShare ofIssuer("issuer");
  const bench::ProcessorShare ofPolkit("polkit");
  const bench::ProcessorShare ofOther("other");
  const bench::ProcessorShare ofRoot("root");
  std::deque<bench::ProcessorShare> ofAttackers;

  bench::SocketActivation daemon(bench::helperProgram, backlog);
  const auto issuer =
      with(ofIssuer, [&] { return std::make_unique<bench::Issuer>(daemon.folder()); });
  std::optional<bench::Polkit> polkit;
  if (attack.hasDialogs) {
    with(ofPolkit, [&] { polkit.emplace(); });
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", polkit->busAddress().c_str(), 1);
    ::setenv("CORVANE_POLKIT_ACTIONS_DIRECTORY", polkit->actionsFolder().c_str(), 1);
  }
  daemon.serveEverybody();
  with(ofHelper, [&] { daemon.start(); });
  const rlimit limit = {maximumDescriptors, maximumDescriptors};
  ::prlimit(daemon.process(), RLIMIT_NOFILE, &limit, nullptr);
  const Place place = {daemon.socketPath(), issuer->socketPath()};

  // So that nobody who unregisters ends it.
  const auto kept = bench::connectToHelper(place.helper);
  if (!kept->registerClientWithPID(::getpid(), patience)) {
    throw std::runtime_error("not registered");
  }
  waitForRights(*kept, formOfThisProcess(place));

  std::deque<bench::UserProcess> attackers;
  std::deque<bench::SilentAgent> agents;
  uid_t user = attack.isOfManyAccounts ? firstOfManyAccounts : firstSubordinateUser;
  for (const Attacker& attacker : attack.attackers) {
    if (ofAttackers.empty() || attack.isOfManyAccounts) {
      ofAttackers.emplace_back("attacker-" + std::to_string(user));
    }
    const bench::ProcessorShare::Taken taken(ofAttackers.back());
    attackers.emplace_back(user++, [&] { return attacker(place); });
    if (polkit) agents.emplace_back(*polkit, attackers.back().number());
  }
  const auto bystander = [&](const bench::ProcessorShare& share, uid_t ofUser, auto&& prepare) {
    return with(share, [&] {
      return std::make_unique<bench::Bystander>(ofUser, [&] { return prepare(place); });
    });
  };
  const auto other = bystander(ofOther, otherUser, &overNewConnections);
  const auto keeping = bystander(ofOther, otherUser, &overOneConnection);
  const auto root = bystander(ofRoot, 0, &overNewConnections);

  long threads = 0;
  long descriptors = 0;
  const auto end = std::chrono::steady_clock::now() + duration;
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    threads = std::max(threads, countOf(daemon.process(), "task"));
    descriptors = std::max(descriptors, countOf(daemon.process(), "fd"));
  }

  const bench::Latencies all[] = {other->latencies(), keeping->latencies(), root->latencies()};
  const long mebibytes = daemon.memory("VmHWM") / 1024;
  std::printf("%-36s", attack.name);
  std::for_each(std::begin(all), std::end(all), &print);
  long failures = 0;
  bool isGood = mebibytes < memoryAimedAt;
  for (const bench::Latencies& one : all) {
    failures += one.failures;
    isGood = isGood && one.calls > 0 && one.percentile99 < 100 && one.longest < 1000;
  }
  std::printf(" %6ld MiB %5ld %6ld %6ld  %s\n", mebibytes, threads, descriptors, failures,
              isGood && failures == 0 ? "yes" : "NO");
  std::fflush(stdout);
}

}  // namespace
}  // namespace corvane

int main(int argc, char* argv[]) {
  static std::chrono::seconds duration{10};
  static std::string row;
  if (argc > 1) duration = std::chrono::seconds(std::atoi(argv[1]));
  if (argc > 2) row = argv[2];
  return corvane::bench::runProgram([] {
    using namespace corvane;
    const Account account;
    printLoad();
    std::printf("%-36s %-29s %-29s %-29s\n", "ms: median / 99th percentile / longest",
                "another user, new connection", "kept connection", "root, new connection");
    std::printf("%-36s %97s %s\n", "", "peak memory, threads, descriptors; failed",
                "(aim: 99 % below 100, all below 1000, below 512 MiB)");
    for (const Attack& attack : attacks()) {
      if (std::string(attack.name).find(row) != std::string::npos) measure(attack, duration);
    }
    printLoad();
  });
}
