#include <thread>

#include <gtest/gtest.h>

#include "platform/linux/transport/CurrentPeer.h"

namespace corvane {
namespace {

TEST(CurrentPeerTest, IsNullOutsideOfMessages) {
  EXPECT_EQ(currentPeer(), nullptr);
}

TEST(CurrentPeerTest, ScopesNest) {
  const Peer first{10, 1, 1};
  const Peer second{20, 2, 2};
  const CurrentPeerScope outer(first);
  {
    const CurrentPeerScope inner(second);
    EXPECT_EQ(currentPeer(), &second);
  }
  EXPECT_EQ(currentPeer(), &first);
}

TEST(CurrentPeerTest, IsOfOneThreadAlone) {
  const Peer peer{10, 1, 1};
  const CurrentPeerScope scope(peer);
  const Peer* seen = &peer;
  std::thread([&] { seen = currentPeer(); }).join();
  EXPECT_EQ(seen, nullptr);
}

}  // namespace
}  // namespace corvane
