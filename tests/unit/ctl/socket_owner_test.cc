// Finding the process that has a socket open.

#include "ctl/socket_owner.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "base/descriptor.h"

namespace {

namespace fs = std::filesystem;
using relayctl::FindSocketOwner;

class SocketOwnerTest : public ::testing::Test {
 protected:
  SocketOwnerTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    proc_ = mkdtemp(name.data());
  }
  ~SocketOwnerTest() override { fs::remove_all(proc_); }

  void AddProcess(const std::string& number, const std::string& name, const std::string& file) {
    fs::create_directories(proc_ / number / "fd");
    std::ofstream(proc_ / number / "comm") << name << "\n";
    fs::create_symlink(file, proc_ / number / "fd" / "3");
  }

  fs::path proc_;
};

TEST_F(SocketOwnerTest, IsTheProcessThatHasItOpen) {
  AddProcess("17", "idle", "/dev/null");
  AddProcess("18", "other", "socket:[41]");
  AddProcess("4711", "a server", "socket:[4]");
  AddProcess("self", "nobody", "socket:[4]");
  EXPECT_EQ(FindSocketOwner(4, proc_), "a server (process 4711)");
}

TEST_F(SocketOwnerTest, IsUnknownWhereNobodyHasItOpen) {
  AddProcess("18", "other", "socket:[41]");
  EXPECT_EQ(FindSocketOwner(4, proc_), "");
  EXPECT_EQ(FindSocketOwner(4, proc_ / "nowhere"), "");
}

TEST_F(SocketOwnerTest, IsThisProcessForASocketOfItsOwn) {
  const base::Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  struct stat status{};
  ASSERT_EQ(fstat(socket.get(), &status), 0);
  const std::string owner = FindSocketOwner(static_cast<std::uint32_t>(status.st_ino));
  EXPECT_NE(owner.find("(process " + std::to_string(getpid()) + ")"), std::string::npos) << owner;
}

}  // namespace
