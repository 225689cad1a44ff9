// What the manager answers to each request.

#include "dhcp_manager/control/control_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "base/packet_socket.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/resync.h"
#include "tests/support/calls.h"
#include "tests/unit/dhcp_manager/control/scripted_relay.h"

namespace {

namespace control = dhcp_relay::control;
namespace wire = dhcp_relay::wire;
using dhcp_manager::ControlSession;
using ::testing::ThrowsMessage;

class ControlSessionTest : public ::testing::Test {
 protected:
  ControlSessionTest() {
    resync_.Apply(tests::FlagCall(wire::SET_CHECK, "r1", true));
    relay_.Use(resync_.table());
    relay_.counts.unmatched().received = 7;
  }

  // The one reply to a request.
  control::Reply Answer(control::Request::Kind kind, bool trusted = false) {
    control::Request request;
    request.set_kind(kind);
    const auto answer = ControlSession(resync_, journal_, relay_, trusted).Take(request);
    control::Reply reply;
    EXPECT_TRUE(reply.ParseFromString(answer->Next()));
    EXPECT_TRUE(reply.last());
    EXPECT_TRUE(answer->complete());
    return reply;
  }

  std::string Status() {
    auto status = Answer(control::Request::STATUS).status();
    status.clear_kernel_drops();
    return status.ShortDebugString();
  }

  dhcp_manager::Resync resync_;
  dhcp_manager::Journal journal_;
  tests::ScriptedRelay relay_;
};

TEST_F(ControlSessionTest, TellsTheStatus) {
  EXPECT_EQ(Status(), "calls: 1");
  const auto dump = resync_.Connected();
  EXPECT_EQ(Status(), "connected: true calls: 1");
  EXPECT_TRUE(resync_.BeginDump(dump));
  EXPECT_EQ(Status(), "connected: true calls: 1");
  EXPECT_TRUE(resync_.CompleteDump(dump));
  EXPECT_EQ(Status(), "connected: true in_sync: true calls: 1 dumps: 1");
}

TEST_F(ControlSessionTest, TellsWhatIsMissingInTheJournal) {
  journal_ = dhcp_manager::Journal("/dev/full");
  journal_.Add(tests::Call(wire::DELETE_INSTANCE, "r1"));
  journal_.Flush();
  EXPECT_EQ(Status(), "calls: 1 journal_dropped: 1 journal_fault: \"No space left on device\"");
}

TEST_F(ControlSessionTest, TellsWhatIsWrongWithSockets) {
  relay_.socket_faults.missing = {{.vrf_device = "red", .reason = "Address already in use"}};
  relay_.socket_faults.competing = {{.vrf_device = "",
                                     .address = nettypes::IPv4Addr::from_host_order(0xC0A80501),
                                     .user = 5,
                                     .inode = 99}};
  EXPECT_EQ(Status(),
            "calls: 1 missing_sockets { vrf_device: \"red\" reason: \"Address already in use\" } "
            "competing_sockets { address: 3232236801 user: 5 inode: 99 }");
}

TEST_F(ControlSessionTest, TellsWhatTheKernelHasDroppedUntilNow) {
  relay_.dropped_requests = 3;
  EXPECT_EQ(Answer(control::Request::STATUS).status().kernel_drops().requests(), 3U);
  relay_.dropped_requests = 4;
  EXPECT_EQ(Answer(control::Request::STATE).kernel_drops().requests(), 7U);
}

TEST_F(ControlSessionTest, TellsTheTableAndTheState) {
  EXPECT_EQ(Answer(control::Request::TABLE).instances(0).name(), "r1");
  const auto state = Answer(control::Request::STATE);
  EXPECT_EQ(state.relay_instances(0).name(), "r1");
  EXPECT_EQ(state.unmatched().received(), 7U);
}

TEST_F(ControlSessionTest, ClearsTheCountersForATrustedPeerOnly) {
  EXPECT_THAT([&] { Answer(control::Request::CLEAR_COUNTERS, false); },
              ThrowsMessage<base::ConnectionError>("another user may not clear the counters"));
  EXPECT_EQ(relay_.counters().unmatched().received, 7U);
  EXPECT_TRUE(Answer(control::Request::CLEAR_COUNTERS, true).has_status());
  EXPECT_EQ(relay_.counters().unmatched().received, 0U);
}

TEST_F(ControlSessionTest, RefusesAnUnknownRequest) {
  for (const int kind : {0, 5, 77}) {
    EXPECT_THROW(Answer(static_cast<control::Request::Kind>(kind)), base::ConnectionError);
  }
}

}  // namespace
