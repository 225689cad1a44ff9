// The files of the manager's sockets.

#include "dhcp_manager/control/socket_file.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "tests/unit/dhcp_manager/control/server_fixture.h"

namespace {

namespace fs = std::filesystem;
using dhcp_manager::SocketFile;

class SocketFileTest : public tests::ServerTest {
 protected:
  fs::path Path() const { return directory_ / "a.sock"; }

  struct stat Status() const {
    struct stat status{};
    EXPECT_EQ(lstat(Path().c_str(), &status), 0);
    return status;
  }

  int Connect() const {
    const base::Descriptor peer = base::MakePacketSocket(SOCK_NONBLOCK);
    const sockaddr_un address = base::SocketAddress(Path());
    return connect(peer.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  }
};

constexpr mode_t kModes = 0777;

TEST_F(SocketFileTest, IsForItsOwnerAloneWithoutAGroup) {
  const mode_t before = umask(0);
  const SocketFile file(Path(), {});
  umask(before);
  EXPECT_EQ(Status().st_mode & kModes, 0600U);
  EXPECT_EQ(Status().st_uid, geteuid());
}

TEST_F(SocketFileTest, LetsTheMembersOfItsGroupIn) {
  const mode_t before = umask(kModes);
  const SocketFile file(Path(), {.owner = 4711, .group = 4712});
  umask(before);
  EXPECT_EQ(Status().st_mode & kModes, 0660U);
  EXPECT_EQ(Status().st_uid, 4711U);
  EXPECT_EQ(Status().st_gid, 4712U);
}

TEST_F(SocketFileTest, LeavesTheUmaskAsItWas) {
  const mode_t before = umask(0027);
  const SocketFile file(Path(), {});
  EXPECT_EQ(umask(before), 0027U);
}

TEST_F(SocketFileTest, TakesNobodyBeforeItIsListenedOn) {
  const SocketFile file(Path(), {});
  EXPECT_NE(Connect(), 0);
  ASSERT_EQ(listen(file.fd(), 1), 0);
  EXPECT_EQ(Connect(), 0);
}

TEST_F(SocketFileTest, GoesWithItsLastOwner) {
  {
    SocketFile first(Path(), {});
    {
      const SocketFile second(std::move(first));
    }
    EXPECT_FALSE(fs::exists(Path()));
    std::ofstream(Path()) << "another's";
  }
  EXPECT_TRUE(fs::exists(Path()));
}

TEST_F(SocketFileTest, TakesThePlaceOfADeadProcessOnly) {
  {
    const SocketFile living(Path(), {});
    ASSERT_EQ(listen(living.fd(), 1), 0);
    EXPECT_THROW(SocketFile(Path(), {}), base::ConnectionError);
    EXPECT_TRUE(fs::exists(Path()));
  }
  {
    // A socket whose process is gone.
    const base::Descriptor dead(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    const sockaddr_un address = base::SocketAddress(Path());
    ASSERT_EQ(bind(dead.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  }
  ASSERT_TRUE(fs::exists(Path()));
  EXPECT_NO_THROW(SocketFile(Path(), {}));
}

TEST_F(SocketFileTest, LeavesAFileThatIsNoSocketAlone) {
  std::ofstream(Path()) << "precious";
  EXPECT_THROW(SocketFile(Path(), {}), std::system_error);
  EXPECT_TRUE(fs::exists(Path()));
}

}  // namespace
