// The packet ring on plain memory, with a script in the kernel's place.

#include "dhcp_manager/datapath/packet_ring.h"

#include <gtest/gtest.h>

#include "tests/unit/dhcp_manager/datapath/ring_memory.h"
#include "tests/unit/dhcp_manager/datapath/scripted_socket.h"

namespace {

using dhcp_manager::PacketRing;
using tests::Bytes;
using tests::RingMemory;

constexpr std::size_t kFrames = 4;

class PacketRingTest : public ::testing::Test {
 protected:
  bool Write(std::uint8_t content, const RingMemory::Frame& frame = {}) {
    return kernel_.Write(Bytes(300, content), frame);
  }
  // The first byte of the next packet; 0 when there is none.
  int Next() {
    const auto packet = ring_.Next();
    return packet ? packet->data[0] : 0;
  }

  RingMemory kernel_{kFrames};
  PacketRing ring_{kernel_.memory()};
};

TEST_F(PacketRingTest, IsEmptyAtFirst) { EXPECT_FALSE(ring_.Next()); }

TEST_F(PacketRingTest, GivesPacketsInOrderAndEachOnce) {
  Write(1);
  Write(2);
  EXPECT_EQ(Next(), 1);
  EXPECT_EQ(Next(), 2);
  EXPECT_EQ(Next(), 0);
}

TEST_F(PacketRingTest, TellsWhatTheKernelSays) {
  Write(1, {.link = 7, .status = TP_STATUS_CSUM_VALID, .cut = 0});
  const auto packet = ring_.Next();
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->link, 7);
  EXPECT_EQ(packet->size, 300U);
  EXPECT_EQ(packet->capacity, PacketRing::kFrameSize - RingMemory::kData);
  EXPECT_FALSE(packet->truncated);
  EXPECT_FALSE(packet->unverified);
}

TEST_F(PacketRingTest, APacketLargerThanItsFrameIsMarked) {
  Write(1, {.link = 7, .cut = 100});
  const auto packet = ring_.Next();
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->size, 200U);
  EXPECT_TRUE(packet->truncated);
}

TEST_F(PacketRingTest, AChecksumIsUnverifiedUnlessTheKernelOrTheCardVouchesForIt) {
  for (const std::uint32_t status :
       std::initializer_list<std::uint32_t>{0, TP_STATUS_CSUMNOTREADY, TP_STATUS_CSUM_VALID}) {
    Write(1, {.link = 7, .status = status, .cut = 0});
    EXPECT_EQ(ring_.Next()->unverified, status == 0) << status;
    ring_.Release();
  }
}

TEST_F(PacketRingTest, ASizeBeyondTheFrameIsNotBelieved) {
  Write(1);
  reinterpret_cast<tpacket2_hdr*>(kernel_.memory().data())->tp_snaplen = 5000;
  const auto packet = ring_.Next();
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->size, packet->capacity);
}

TEST_F(PacketRingTest, AFrameIsTheKernelsAgainOnlyAfterRelease) {
  for (std::uint8_t i = 1; i <= kFrames; ++i) EXPECT_TRUE(Write(i));
  EXPECT_EQ(Next(), 1);
  EXPECT_FALSE(kernel_.HasRoom());
  ring_.Release();
  EXPECT_TRUE(Write(5));
  EXPECT_FALSE(Write(6));
}

TEST_F(PacketRingTest, AFullRingIsReadInTwoTurns) {
  for (std::uint8_t i = 1; i <= kFrames; ++i) Write(i);
  for (std::uint8_t i = 1; i < kFrames; ++i) EXPECT_EQ(Next(), i);
  EXPECT_EQ(Next(), 0);
  ring_.Release();
  EXPECT_EQ(Next(), kFrames);
}

TEST_F(PacketRingTest, GoesAroundForEver) {
  for (int i = 0; i < 50; ++i) {
    const auto content = static_cast<std::uint8_t>(1 + i % 200);
    ASSERT_TRUE(Write(content)) << i;
    ASSERT_EQ(Next(), content) << i;
    ring_.Release();
  }
}

TEST_F(PacketRingTest, ReleasingNothingChangesNothing) {
  Write(1);
  ring_.Release();
  EXPECT_EQ(Next(), 1);
}

}  // namespace
