#include "fuzz/PropertyListChecks.h"
#include "tests/support/FuzzCorpus.h"

namespace corvane {
namespace {

using Bytes = std::span<const std::byte>;

TEST(FuzzCorpusTest, NoPropertyListBreaksTheReader) {
  const auto check = [](const std::string& /*name*/, Bytes bytes) { checkPropertyList(bytes); };
  EXPECT_GT(checkCorpus("property-list", check), 0);
}

TEST(FuzzCorpusTest, NoStringsTableBreaksTheReader) {
  const auto check = [](const std::string& /*name*/, Bytes bytes) { checkOldStyle(bytes); };
  EXPECT_GT(checkCorpus("strings", check), 0);
}

}  // namespace
}  // namespace corvane
