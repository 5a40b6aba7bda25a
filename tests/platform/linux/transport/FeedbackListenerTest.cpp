#include <chrono>
#include <fstream>
#include <iterator>
#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>

#include "platform/FeedbackListener.h"
#include "platform/linux/transport/Endpoint.h"
#include "platform/linux/transport/HelperMessages.h"
#include "platform/linux/transport/LocalSocket.h"

namespace corvane {
namespace {

class NoReceiver : public ZELPrivilegedOperationFeedbackProtocol {
  void processPrivilegedOperationFeedback(const Dictionary& /*feedback*/) override {}
};

/// The name and the type of each argument, and the name of each method, of one interface.
std::set<std::string> membersOf(const std::string& text) {
  std::smatch interface;
  const std::regex whole("<interface name=\"" + std::string(feedbackInterface) +
                         "\">([^]*?)</interface>");
  std::set<std::string> members;
  if (!std::regex_search(text, interface, whole)) return members;
  const std::string inner = interface[1];
  const std::regex word("(method|annotation) name=\"[^\"]*\"|(arg|name|type|direction)=\"[^\"]*\"");
  for (std::sregex_iterator found(inner.begin(), inner.end(), word), end; found != end; ++found) {
    members.insert(found->str());
  }
  return members;
}

TEST(FeedbackListenerTest, WhatItServesIsAsTheInstalledFileSays) {
  NoReceiver receiver;
  const auto listener = FeedbackListener::serve(receiver);
  const auto transport = listener->takeEndpoint().takeTransport();
  sd_bus* bus = nullptr;
  ASSERT_EQ(sd_bus_new(&bus), 0);
  const int descriptor = transport->socket.release();
  ASSERT_GE(sd_bus_set_fd(bus, descriptor, descriptor), 0);
  ASSERT_GE(sd_bus_start(bus), 0);
  sd_bus_message* reply = nullptr;
  const char* told = nullptr;
  EXPECT_GE(
      sd_bus_call_method(bus, nullptr, feedbackObjectPath, "org.freedesktop.DBus.Introspectable",
                         "Introspect", nullptr, &reply, ""),
      0);
  EXPECT_GE(sd_bus_message_read(reply, "s", &told), 0);
  std::ifstream file(INTERFACES "/" + std::string(feedbackInterface) + ".xml");
  const std::string written{std::istreambuf_iterator<char>(file), {}};
  EXPECT_EQ(membersOf(written).size(), 5U);
  EXPECT_EQ(membersOf(told == nullptr ? "" : told), membersOf(written));
  sd_bus_message_unref(reply);
  sd_bus_flush_close_unref(bus);
}

TEST(FeedbackListenerTest, AHelperThatIsNotUnderstoodLearnsThatTheConnectionEnds) {
  NoReceiver receiver;
  const auto listener = FeedbackListener::serve(receiver);
  const auto transport = listener->takeEndpoint().takeTransport();
  ASSERT_EQ(::send(transport->socket.get(), "nonsense", 8, MSG_NOSIGNAL), 8);
  EXPECT_TRUE(waitFor(transport->socket.get(), POLLRDHUP,
                      std::chrono::steady_clock::now() + std::chrono::seconds(60)));
}

}  // namespace
}  // namespace corvane
