// Turns of the loop behind the packets.

#include "dhcp_manager/control/turns.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "base/descriptor.h"
#include "tests/unit/dhcp_manager/control/server_fixture.h"

namespace {

using dhcp_manager::Turns;

// A descriptor that is always readable.
base::Descriptor Ready() { return base::Descriptor(eventfd(1, EFD_CLOEXEC)); }

class TurnsTest : public tests::ServerTest {
 protected:
  std::vector<std::uint64_t> taken_;
  Turns turns_{mw_, [this](std::uint64_t id, std::uint32_t /*events*/) { taken_.push_back(id); }};
};

TEST_F(TurnsTest, GoRound) {
  const base::Descriptor one = Ready();
  const base::Descriptor other = Ready();
  turns_.Add(one.get(), 1, EPOLLIN);
  turns_.Add(other.get(), 2, EPOLLIN);
  EXPECT_TRUE(RunUntil([&] { return taken_.size() >= 6; }));
  for (std::size_t i = 2; i < 6; ++i) EXPECT_NE(taken_[i], taken_[i - 1]);
  turns_.Remove(one.get());
  taken_.clear();
  EXPECT_TRUE(RunUntil([&] { return taken_.size() >= 3; }));
  for (const std::uint64_t id : taken_) EXPECT_EQ(id, 2U);
}

TEST_F(TurnsTest, AreForTheEventsThatAreWatched) {
  const base::Descriptor one = Ready();
  const base::Descriptor other = Ready();
  turns_.Add(one.get(), 1, 0);
  turns_.Add(other.get(), 2, EPOLLIN);
  EXPECT_TRUE(RunUntil([&] { return taken_.size() >= 3; }));
  for (const std::uint64_t id : taken_) EXPECT_EQ(id, 2U);
  turns_.SetEvents(one.get(), 1, EPOLLIN);
  taken_.clear();
  EXPECT_TRUE(RunUntil([&] { return taken_.size() >= 2; }));
  EXPECT_NE(taken_[0], taken_[1]);
}

// A source that is ready in every turn of the loop, as packets under load are.
TEST_F(TurnsTest, AreFewButNotNoneWhilePacketsDoNotPause) {
  const base::Descriptor packets = Ready();
  const base::Descriptor peer = Ready();
  std::size_t packet_turns = 0;
  const vxmw::IoSource busy(mw_, packets.get(), EPOLLIN, [&](std::uint32_t) { ++packet_turns; });
  turns_.Add(peer.get(), 1, EPOLLIN);
  EXPECT_TRUE(RunUntil([&] { return taken_.size() >= 3; }));
  EXPECT_GT(packet_turns, 2 * taken_.size());
}

}  // namespace
