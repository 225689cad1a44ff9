// The filter of system calls, each time in a process of its own.

#include "dhcp_manager/system_calls.h"

#include <gtest/gtest.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include <vxmw/event.h>
#include <vxmw/vxmw.h>

#include "dhcp_manager/datapath/sockets.h"
#include "dhcp_manager/kernel/link_socket.h"
#include "dhcp_manager/kernel/route_query.h"
#include "dhcp_manager/table/journal.h"
#include "tests/support/calls.h"

namespace {

namespace fs = std::filesystem;
using dhcp_manager::FilterSystemCalls;
using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

// Ends this process, without what a sanitizer does at the end of one.
[[noreturn]] void End(bool good) {
  if (!good) std::perror("it failed");
  std::fflush(stderr);
  _exit(good ? 0 : 1);
}

// Whether `action` under the filter returns true; with its own errno on standard error otherwise.
void FilterAndEnd(const std::function<bool()>& action) {
  FilterSystemCalls();
  errno = 0;
  End(action());
}

bool IsRefused(long result) { return result == -1 && errno == ENOSYS; }

#define EXPECT_WORKS(action) EXPECT_EXIT(FilterAndEnd(action), ExitedWithCode(0), "")
#define EXPECT_KILLED(action) EXPECT_EXIT(FilterAndEnd(action), KilledBySignal(SIGSYS), "")

class SystemCallsDeathTest : public ::testing::Test {
 protected:
  SystemCallsDeathTest() {
    std::array<char, 32> name{"/tmp/vxu.XXXXXX"};
    directory_ = mkdtemp(name.data());
    setenv("VXMW_STATE_DIR", (directory_ / "state").c_str(), 1);
  }
  ~SystemCallsDeathTest() override { fs::remove_all(directory_); }

  fs::path directory_;
};

TEST_F(SystemCallsDeathTest, OfAnIntruderEndTheProcess) {
  EXPECT_KILLED([] { return execl("/bin/true", "true", nullptr) == 0; });
  EXPECT_KILLED([] { return ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0; });
  EXPECT_KILLED([] { return mount("none", "/tmp", "tmpfs", 0, nullptr) == 0; });
  EXPECT_KILLED([] { return unshare(CLONE_NEWNS) == 0; });
  EXPECT_KILLED([] { return syscall(SYS_finit_module, -1, "", 0) == 0; });
}

TEST_F(SystemCallsDeathTest, ThatAreNotNeededAreNotThere) {
  EXPECT_WORKS([] { return IsRefused(fork()); });
  EXPECT_WORKS([] { return IsRefused(kill(getppid(), 0)); });
  EXPECT_WORKS([] { return IsRefused(setuid(0)); });
  EXPECT_WORKS([] { return IsRefused(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0)); });
  EXPECT_WORKS([] { return IsRefused(syscall(SYS_io_uring_setup, 1, nullptr)); });
  EXPECT_WORKS([] { return IsRefused(socket(AF_INET6, SOCK_DGRAM, 0)); });
}

TEST_F(SystemCallsDeathTest, MakeNoMemoryThatCanBeExecuted) {
  EXPECT_WORKS([] {
    void* const memory =
        mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED && errno == ENOSYS;
  });
  EXPECT_WORKS([] {
    void* const memory =
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return memory != MAP_FAILED && IsRefused(mprotect(memory, 4096, PROT_READ | PROT_EXEC)) &&
           mprotect(memory, 4096, PROT_READ) == 0;
  });
}

TEST_F(SystemCallsDeathTest, LetAProcessAbort) {
  EXPECT_EXIT(
      {
        FilterSystemCalls();
        std::abort();
      },
      KilledBySignal(SIGABRT), "");
}

TEST_F(SystemCallsDeathTest, LetSocketsBeOpenedAnew) {
  ASSERT_EQ(geteuid(), 0U) << "only root opens packet sockets";
  EXPECT_WORKS([] {
    dhcp_manager::Sockets sockets;
    return sockets.OpenClientSocket().socket != nullptr && sockets.OpenVrfSocket("lo") != nullptr;
  });
  EXPECT_WORKS([] {
    dhcp_manager::OpenRouteQuery()->Find(dhcp_manager::kDefaultVrf,
                                         *nettypes::IPv4Addr::parse("127.0.0.1"));
    return dhcp_manager::OpenLinkSocket()->fd() >= 0;
  });
}

TEST_F(SystemCallsDeathTest, LetTheJournalBeOpenedAnewAndWritten) {
  EXPECT_WORKS([this] {
    dhcp_manager::Journal journal(directory_ / "journal");
    fs::rename(directory_ / "journal", directory_ / "journal.1");
    journal.Add(tests::Call(dhcp_relay::wire::DELETE_INSTANCE, "r1"));
    return !journal.Reopen() && !journal.Flush() && fs::file_size(directory_ / "journal") > 0;
  });
}

TEST_F(SystemCallsDeathTest, LetFaultsBeWrittenAndTheirFileBeReplaced) {
  EXPECT_WORKS([this] {
    const std::string text(64 * 1024, 'x');
    for (int i = 0; i < 20; ++i) vxmw_gen_fault(0, "f", "file", 1, text.c_str());
    return fs::exists(directory_ / "state" / "faults.jsonl.1") &&
           fs::file_size(directory_ / "state" / "faults.jsonl") > text.size();
  });
}

TEST_F(SystemCallsDeathTest, LetTheLoopRunWithTimersAndSignals) {
  EXPECT_WORKS([] {
    vxmw_t* mw = vxmw_init("system_calls_test");
    vxmw::TimerSource timer(mw, [] { raise(SIGTERM); });
    timer.Arm(std::chrono::milliseconds(1));
    bool go_on = true;
    return vxmw_loop_while_timeout(mw, &go_on, 0) == 0;
  });
}

}  // namespace
