// The client against a scripted manager.

#include "protocol/control/client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "protocol/control/outcome.h"
#include "protocol/control/outcome_counts.h"
#include "protocol/control/socket_name.h"

namespace {

namespace fs = std::filesystem;
namespace control = dhcp_relay::control;
using control::Connection;
using control::Reply;
using control::Request;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Pair;
using ::testing::Property;
using ::testing::ThrowsMessage;

using Counts = std::vector<std::pair<std::string, std::uint64_t>>;

Counts ToCounts(const control::OutcomeCounts& list) {
  Counts counts;
  for (const auto& entry : list) counts.emplace_back(entry.outcome(), entry.count());
  return counts;
}

void AddOutcome(const std::string& name, std::uint64_t count, control::OutcomeCounts* list) {
  auto& entry = *list->Add();
  entry.set_outcome(name);
  entry.set_count(count);
}

Reply MakeStatus(std::uint64_t calls, bool last = true) {
  Reply reply;
  reply.mutable_status()->set_calls(calls);
  reply.set_last(last);
  return reply;
}

// The zeros of `names`, but for what is in `counts`.
template <typename Names>
Counts Expected(const Names& names, const Counts& counts) {
  Counts expected;
  for (const std::string& name : names) {
    expected.emplace_back(name, 0);
    for (const auto& [counted, count] : counts) {
      if (counted == name) expected.back().second = count;
    }
  }
  return expected;
}

// A manager that answers with what it is given: the packets wait in the socket before the client
// asks, so that no second thread is needed.
class ClientTest : public ::testing::Test {
 protected:
  ClientTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    const sockaddr_un address = base::SocketAddress(directory_ / control::kSocketName);
    EXPECT_EQ(bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    EXPECT_EQ(listen(listener_.get(), 1), 0);
  }
  ~ClientTest() override { fs::remove_all(directory_); }

  void Connect(std::chrono::milliseconds limit = Connection::kAnswerLimit) {
    client_ = std::make_unique<Connection>(directory_, limit);
    peer_ = base::Descriptor(accept(listener_.get(), nullptr, nullptr));
  }

  void Send(const Reply& reply) { SendText(reply.SerializeAsString()); }
  void SendText(const std::string& text) {
    EXPECT_EQ(base::SendPacket(peer_.get(), text), base::SendResult::kSent);
  }

  Request::Kind Asked() {
    base::PacketReader reader;
    EXPECT_EQ(reader.Receive(peer_.get()), base::PacketReader::Result::kPacket);
    Request request;
    reader.Parse(request);
    return request.kind();
  }

  fs::path directory_;
  base::Descriptor listener_ = base::MakePacketSocket(0);
  std::unique_ptr<Connection> client_;
  base::Descriptor peer_;
};

TEST_F(ClientTest, ReadsTheStatus) {
  Connect();
  Send(MakeStatus(7));
  EXPECT_EQ(client_->Status().calls(), 7U);
  EXPECT_EQ(Asked(), Request::STATUS);
}

TEST_F(ClientTest, JoinsTheStatusFromSeveralReplies) {
  Connect();
  Reply first = MakeStatus(7, false);
  first.mutable_status()->add_missing_sockets()->set_vrf_device("red");
  Send(first);
  Reply second;
  second.mutable_status()->add_missing_sockets()->set_vrf_device("blue");
  second.set_last(true);
  Send(second);
  const control::Status status = client_->Status();
  EXPECT_EQ(status.calls(), 7U);
  ASSERT_EQ(status.missing_sockets_size(), 2);
  EXPECT_EQ(status.missing_sockets(0).vrf_device(), "red");
  EXPECT_EQ(status.missing_sockets(1).vrf_device(), "blue");
}

TEST_F(ClientTest, WaitsForTheAnswerToClearing) {
  Connect();
  Send(MakeStatus(0));
  client_->ClearCounters();
  EXPECT_EQ(Asked(), Request::CLEAR_COUNTERS);
}

TEST_F(ClientTest, JoinsTheTableFromSeveralReplies) {
  Connect();
  Reply first;
  auto& begun = *first.add_instances();
  begun.set_name("r1");
  begun.mutable_settings()->set_policy("keep");
  begun.add_servers(1);
  Send(first);
  Reply second;
  auto& continued = *second.add_instances();
  continued.set_name("r1");
  continued.add_servers(2);
  second.add_instances()->set_name("r2");
  second.set_last(true);
  Send(second);
  const auto table = client_->Table();
  EXPECT_EQ(Asked(), Request::TABLE);
  ASSERT_THAT(table, ElementsAre(Property(&control::Instance::name, "r1"),
                                 Property(&control::Instance::name, "r2")));
  EXPECT_THAT(table[0].servers(), ElementsAre(1, 2));
  EXPECT_EQ(table[0].settings().policy(), "keep");
}

TEST_F(ClientTest, JoinsTheStateFromSeveralReplies) {
  Connect();
  Reply first;
  auto& begun = *first.add_relay_instances();
  begun.set_name("r1");
  begun.set_vrf_missing(true);
  begun.add_servers()->set_address(1);
  Send(first);
  Reply second;
  auto& continued = *second.add_relay_instances();
  continued.set_name("r1");
  continued.add_servers()->set_address(2);
  second.add_relay_interfaces()->set_name("l3-5");
  Send(second);
  Reply last;
  last.add_relay_interfaces()->set_name("l3-6");
  last.mutable_unmatched()->set_received(3);
  last.mutable_kernel_drops()->set_requests(4);
  last.set_last(true);
  Send(last);
  const auto state = client_->State();
  EXPECT_EQ(Asked(), Request::STATE);
  ASSERT_EQ(state.instances.size(), 1U);
  EXPECT_TRUE(state.instances[0].vrf_missing());
  EXPECT_EQ(state.instances[0].servers_size(), 2);
  EXPECT_THAT(state.interfaces, ElementsAre(Property(&control::RelayInterface::name, "l3-5"),
                                            Property(&control::RelayInterface::name, "l3-6")));
  EXPECT_EQ(state.unmatched.received(), 3U);
  EXPECT_EQ(state.kernel_drops.requests(), 4U);
}

TEST_F(ClientTest, FillsInTheOutcomesThatNoMessageHad) {
  Connect();
  Reply reply;
  auto& interface = *reply.add_relay_interfaces();
  AddOutcome("flood", 4, interface.mutable_request_outcomes());
  AddOutcome("relayed", 3, interface.mutable_request_outcomes());
  AddOutcome("malformed", 2, interface.mutable_reply_outcomes());
  AddOutcome("not-for-us", 1, reply.mutable_unmatched()->mutable_outcomes());
  reply.set_last(true);
  Send(reply);
  const auto state = client_->State();
  ASSERT_EQ(state.interfaces.size(), 1U);
  EXPECT_EQ(ToCounts(state.interfaces[0].request_outcomes()),
            Expected(control::RequestOutcomes(), {{"relayed", 3}, {"flood", 4}}));
  EXPECT_EQ(ToCounts(state.interfaces[0].reply_outcomes()),
            Expected(control::ReplyOutcomes(), {{"malformed", 2}}));
  EXPECT_EQ(ToCounts(state.unmatched.outcomes()),
            Expected(control::UnmatchedOutcomes(), {{"not-for-us", 1}}));
}

TEST_F(ClientTest, KeepsAnOutcomeThatOnlyTheManagerKnows) {
  Connect();
  Reply reply;
  auto& interface = *reply.add_relay_interfaces();
  AddOutcome("bewitched", 4, interface.mutable_request_outcomes());
  reply.set_last(true);
  Send(reply);
  const auto counts = ToCounts(client_->State().interfaces.at(0).request_outcomes());
  ASSERT_EQ(counts.size(), control::kRequestOutcomes + 1);
  EXPECT_THAT(counts.back(), Pair("bewitched", 4));
}

TEST_F(ClientTest, TellsThatNobodyListens) {
  listener_ = base::Descriptor();
  const std::string path = directory_ / control::kSocketName;
  EXPECT_THAT([&] { Connect(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager does not answer on " + path +
                                                   ": Connection refused"));
  fs::remove(path);
  EXPECT_THAT([&] { Connect(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager does not answer on " + path +
                                                   ": No such file or directory"));
}

TEST_F(ClientTest, GivesUpAfterTheLimit) {
  Connect(std::chrono::milliseconds(1));
  EXPECT_THAT([&] { client_->Status(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager does not answer"));
}

TEST_F(ClientTest, GivesUpWhenTheLastReplyDoesNotCome) {
  Connect(std::chrono::milliseconds(1));
  Send(MakeStatus(1, false));
  EXPECT_THAT([&] { client_->State(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager does not answer"));
}

TEST_F(ClientTest, TellsThatTheConnectionWasClosed) {
  Connect();
  Send(MakeStatus(1, false));
  EXPECT_EQ(shutdown(peer_.get(), SHUT_WR), 0);
  EXPECT_THAT([&] { client_->Table(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager closed the connection"));
  peer_ = base::Descriptor();
  EXPECT_THAT([&] { client_->Status(); },
              ThrowsMessage<base::ConnectionError>("the DHCP manager takes no request"));
}

TEST_F(ClientTest, RefusesWhatIsNoReply) {
  Connect();
  SendText("\xff\xff\xff");
  EXPECT_THAT([&] { client_->Status(); },
              ThrowsMessage<base::ConnectionError>(HasSubstr("is not a message")));
}

}  // namespace
