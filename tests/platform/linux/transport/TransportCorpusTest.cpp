#include <map>

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

}  // namespace
}  // namespace corvane
