#include "base/packet_socket.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

namespace {

namespace fs = std::filesystem;
using base::Descriptor;
using base::PacketReader;
using base::SendResult;

constexpr uid_t kNobody = 65534;

struct Pair {
  Descriptor near;
  Descriptor far;
};

Pair MakePair() {
  std::array<int, 2> fds{};
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, fds.data()), 0);
  return {Descriptor(fds[0]), Descriptor(fds[1])};
}

// The text of what a call throws.
template <typename Error, typename Call>
std::string ErrorOf(const Call& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.what();
  }
  return "nothing";
}

std::string Text(const PacketReader& reader) {
  return {reader.packet().data(), reader.packet().size()};
}

class ListenerTest : public ::testing::Test {
 protected:
  ListenerTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
  }
  ~ListenerTest() override { fs::remove_all(directory_); }

  void Listen() {
    const sockaddr_un address = base::SocketAddress(path());
    ASSERT_EQ(bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)),
              0);
    ASSERT_EQ(listen(listener_.get(), 1), 0);
  }
  fs::path path() const { return directory_ / "test.sock"; }

  fs::path directory_;
  Descriptor listener_ = base::MakePacketSocket(0);
};

TEST(SocketAddressTest, HoldsThePath) {
  const sockaddr_un address = base::SocketAddress("/run/x.sock");
  EXPECT_EQ(address.sun_family, AF_UNIX);
  EXPECT_STREQ(address.sun_path, "/run/x.sock");
}

TEST(SocketAddressTest, TakesThePathsThatFitOnly) {
  const std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
  EXPECT_EQ(base::SocketAddress(std::string(longest, 'x')).sun_path, std::string(longest, 'x'));
  const std::string path(longest + 1, 'x');
  EXPECT_EQ(ErrorOf<base::ConnectionError>([&] { base::SocketAddress(path); }),
            "the path of the socket " + path + " is longer than 107 bytes");
}

TEST(MakePacketSocketTest, KeepsPacketsApartAndIsClosedOnExec) {
  const Descriptor fd = base::MakePacketSocket(SOCK_NONBLOCK);
  int type = 0;
  socklen_t size = sizeof(type);
  ASSERT_EQ(getsockopt(fd.get(), SOL_SOCKET, SO_TYPE, &type, &size), 0);
  EXPECT_EQ(type, SOCK_SEQPACKET);
  EXPECT_NE(fcntl(fd.get(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_NE(fcntl(fd.get(), F_GETFL) & O_NONBLOCK, 0);
  EXPECT_EQ(fcntl(base::MakePacketSocket(0).get(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(ListenerTest, ConnectsToTheFile) {
  Listen();
  const Descriptor client = base::ConnectPacketSocket(path(), 0);
  const Descriptor server(accept(listener_.get(), nullptr, nullptr));
  ASSERT_TRUE(server);
  EXPECT_EQ(base::SendPacket(client.get(), "hello"), SendResult::kSent);
  PacketReader reader;
  EXPECT_EQ(reader.Receive(server.get()), PacketReader::Result::kPacket);
  EXPECT_EQ(Text(reader), "hello");
}

TEST_F(ListenerTest, SaysWhatItCannotConnectToAndWhy) {
  EXPECT_EQ(ErrorOf<std::system_error>([this] { base::ConnectPacketSocket(path(), 0); }),
            "cannot connect to " + path().string() + ": No such file or directory");
}

TEST(PeerTest, IsThisUserOverASocketOfThisProcess) {
  const Pair pair = MakePair();
  EXPECT_EQ(base::PeerUser(pair.near.get()), geteuid());
  EXPECT_TRUE(base::IsTrustedPeer(pair.near.get()));
}

TEST(PeerTest, OfAnotherUserIsNotTrustedByRoot) {
  ASSERT_EQ(seteuid(kNobody), 0);
  const Pair pair = MakePair();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(base::PeerUser(pair.near.get()), kNobody);
  EXPECT_FALSE(base::IsTrustedPeer(pair.near.get()));
}

TEST(PeerTest, OfRootIsTrustedByEveryone) {
  const Pair pair = MakePair();
  ASSERT_EQ(seteuid(kNobody), 0);
  const bool trusted = base::IsTrustedPeer(pair.near.get());
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_TRUE(trusted);
}

TEST(PeerTest, IsNobodyWithoutASocket) {
  EXPECT_EQ(base::PeerUser(-1), std::nullopt);
  EXPECT_FALSE(base::IsTrustedPeer(-1));
}

TEST(SendPacketTest, SaysThatTheSocketIsFull) {
  const Pair pair = MakePair();
  const std::string packet(1000, 'x');
  SendResult result = SendResult::kSent;
  for (int i = 0; i < 100000 && result == SendResult::kSent; ++i) {
    result = base::SendPacket(pair.near.get(), packet);
  }
  EXPECT_EQ(result, SendResult::kFull);
}

TEST(SendPacketTest, SaysThatThePeerIsGone) {
  Pair pair = MakePair();
  pair.far = Descriptor();
  EXPECT_EQ(base::SendPacket(pair.near.get(), "x"), SendResult::kLost);
}

TEST(PacketReaderTest, GivesOnePacketAtATime) {
  const Pair pair = MakePair();
  base::SendPacket(pair.near.get(), "first");
  base::SendPacket(pair.near.get(), "2");
  PacketReader reader;
  EXPECT_EQ(reader.Receive(pair.far.get()), PacketReader::Result::kPacket);
  EXPECT_EQ(Text(reader), "first");
  EXPECT_EQ(reader.Receive(pair.far.get()), PacketReader::Result::kPacket);
  EXPECT_EQ(Text(reader), "2");
}

TEST(PacketReaderTest, DoesNotWait) {
  const Pair pair = MakePair();
  PacketReader reader;
  EXPECT_EQ(reader.Receive(pair.far.get()), PacketReader::Result::kNothing);
}

TEST(PacketReaderTest, SaysThatThePeerIsGone) {
  Pair pair = MakePair();
  pair.near = Descriptor();
  PacketReader reader;
  EXPECT_EQ(reader.Receive(pair.far.get()), PacketReader::Result::kClosed);
}

TEST(PacketReaderTest, TakesPacketsUpToTheLargestOnly) {
  const Pair pair = MakePair();
  PacketReader reader;
  const std::string largest(base::kMaxPacketSize, 'x');
  ASSERT_EQ(base::SendPacket(pair.near.get(), largest), SendResult::kSent);
  EXPECT_EQ(reader.Receive(pair.far.get()), PacketReader::Result::kPacket);
  EXPECT_EQ(Text(reader), largest);
  ASSERT_EQ(base::SendPacket(pair.near.get(), largest + "x"), SendResult::kSent);
  EXPECT_EQ(ErrorOf<base::ConnectionError>([&] { reader.Receive(pair.far.get()); }),
            "a packet is larger than 65536 bytes");
}

// Takes what begins with "ok".
struct Message {
  bool ParseFromArray(const char* data, int size) {
    text.assign(data, static_cast<std::size_t>(size));
    return text.starts_with("ok");
  }
  std::string text;
};

TEST(PacketReaderTest, ParsesTheLatestPacket) {
  const Pair pair = MakePair();
  PacketReader reader;
  Message message;
  base::SendPacket(pair.near.get(), "ok then");
  reader.Receive(pair.far.get());
  reader.Parse(message);
  EXPECT_EQ(message.text, "ok then");
  base::SendPacket(pair.near.get(), "no");
  reader.Receive(pair.far.get());
  EXPECT_EQ(ErrorOf<base::ConnectionError>([&] { reader.Parse(message); }),
            "a packet of 2 bytes is not a message");
}

}  // namespace
