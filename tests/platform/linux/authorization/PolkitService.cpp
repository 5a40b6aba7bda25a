#include "tests/platform/linux/authorization/PolkitService.h"

#include <csignal>

#include <fcntl.h>
#include <sys/stat.h>

#include "tests/support/Files.h"

namespace corvane {

namespace {

std::string script(const std::string& name) {
  return std::string(POLKIT_SCRIPTS) + "/" + name;
}

ChildProcess startAgent(const PolkitService& service, const ProcessIdentity& subject,
                        const std::string& manner, PipeEnds& events) {
  ChildProcess process = ChildProcess::program(
      {"/usr/bin/python3", script("agent.py"), service.busAddress(), std::to_string(subject.pid),
       std::to_string(subject.startTime), manner},
      {.output = events.input.get()});
  events.input.reset();
  readLine(events.output);
  return process;
}

void killProcessIn(const std::string& file) {
  ::kill(std::stoi(contentOf(file)), SIGKILL);
}

}  // namespace

PolkitService::PolkitService() : _commands(makePipe()), _answers(makePipe()) {
  for (const char* name : {"actions", "rules"}) ::mkdir(_folder.path(name).c_str(), 0755);
  const std::string output = _folder.path("polkit.output");
  ::mkfifo(output.c_str(), 0600);
  // Without waiting for the writer, which is there once it is said to be ready.
  _output.reset(::open(output.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  ::fcntl(_output.get(), F_SETFL, 0);
}

PolkitService::~PolkitService() {
  // The script ends what it has started when its commands end.
  _commands.input.reset();
  if (_process) _process->reap();
}

void PolkitService::addRule(const std::string& rule) {
  writeFile(_folder.path("rules/" + std::to_string(++_rules) + ".rules"),
            "polkit.addRule(function(action, subject) {" + rule + "});\n");
}

void PolkitService::addActivatable(const std::string& program) {
  writeFile(_folder.path("services/org.freedesktop.PolicyKit1.service"),
            "[D-BUS Service]\nName=org.freedesktop.PolicyKit1\nUser=root\nExec=" + program + "\n");
}

bool PolkitService::start(const std::string& authority) {
  _process.emplace(
      ChildProcess::program({script("serve-polkit"), _folder.path(), authority},
                            {.input = _commands.output.get(), .output = _answers.input.get()}));
  _commands.output.reset();
  _answers.input.reset();
  return isReady();
}

bool PolkitService::startAgain(const std::string& authority) {
  const std::string line = authority + "\n";
  return ::write(_commands.input.get(), line.data(), line.size()) ==
             static_cast<ssize_t>(line.size()) &&
         isReady();
}

bool PolkitService::isReady() const {
  return readLine(_answers.output) == "ready";
}

void PolkitService::killPolkit() const {
  killProcessIn(_folder.path("polkit.pid"));
}

void PolkitService::killBus() const {
  killProcessIn(_folder.path("bus.pid"));
}

PolkitAgent::PolkitAgent(const PolkitService& service, const ProcessIdentity& subject,
                         const std::string& manner)
    : _events(makePipe()), _process(startAgent(service, subject, manner, _events)) {}

}  // namespace corvane
