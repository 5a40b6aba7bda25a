#include <map>

#include "fuzz/HelperChecks.h"
#include "fuzz/TransportChecks.h"
#include "tests/support/FuzzCorpus.h"

namespace corvane {
namespace {

using Bytes = std::span<const std::byte>;

TEST(TransportCorpusTest, NoConversationBreaksTheGuard) {
  const auto check = [](const std::string& /*name*/, Bytes bytes) { checkGuard(bytes); };
  EXPECT_GT(checkCorpus("conversation", check), 0);
}

TEST(TransportCorpusTest, NoConversationBreaksTheConnection) {
  std::map<std::string, int> requests;
  const auto check = [&](const std::string& name, Bytes bytes) {
    requests[name] = checkConversation(bytes);
  };
  EXPECT_GT(checkCorpus("conversation", check), 0);
  EXPECT_EQ(requests["request-with-endpoint"], 1);
  EXPECT_EQ(requests["unanswered"], 1);
  EXPECT_EQ(requests["fewer-descriptors-than-announced"], 0);
}

TEST(TransportCorpusTest, NoRequestBreaksTheConnection) {
  std::map<std::string, int> requests;
  const auto check = [&](const std::string& name, Bytes bytes) {
    requests[name] = checkRequest(bytes);
  };
  EXPECT_GT(checkCorpus("request", check), 0);
  for (const char* name : {"every-kind", "metadata", "no-list", "empty-list"}) {
    EXPECT_EQ(requests[name], 1) << name;
  }
  for (const char* name : {"two-lists", "nested-variants", "key-twice", "not-utf-8"}) {
    EXPECT_EQ(requests[name], 0) << name;
  }
}

TEST(TransportCorpusTest, NoHelperBreaksItsClient) {
  std::map<std::string, int> answered;
  const auto check = [&](const std::string& name, Bytes bytes) {
    answered[name] = checkAnswers(bytes);
  };
  EXPECT_GT(checkCorpus("answers", check), 0);
  EXPECT_EQ(answered["every-answer"], 6);
  // The bus library reads no data of another order, as there is in the error.
  EXPECT_EQ(answered["another-byte-order"], 5);
  EXPECT_EQ(answered["errors"], 0);
  EXPECT_EQ(answered["other-types"], 2);
  EXPECT_EQ(answered["to-nobodys-call"], 0);
  EXPECT_EQ(answered["descriptors"], 0);
}

TEST(TransportCorpusTest, NoHelperBreaksWhoIsToldByIt) {
  std::map<std::string, int> messages;
  const auto check = [&](const std::string& name, Bytes bytes) {
    messages[name] = checkFeedback(bytes);
  };
  EXPECT_GT(checkCorpus("feedback", check), 0);
  EXPECT_EQ(messages["every-key"], 4);
  EXPECT_EQ(messages["not-a-dictionary"], 0);
  EXPECT_EQ(messages["descriptors"], 0);
  EXPECT_EQ(messages["nested-too-deep"], 0);
}

}  // namespace
}  // namespace corvane
