// The saver is killed at every step that changes what is on the disk. Whatever follows, the
// datastore holds one whole configuration, and the newer one as soon as that was on the disk.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <sysrepo.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "save/connected.h"
#include "save/sysrepo_store.h"
#include "tests/support/private_repository.h"

namespace {

int steps_left = 0;  // before this process is killed; 0: it lives

void CountStep() {
  if (steps_left == 1) kill(getpid(), SIGKILL);
  if (steps_left > 1) --steps_left;
}

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// In the place of the C library's, for the datastore's library, too.
extern "C" {

int rename(const char* from, const char* to) noexcept {
  CountStep();
  return Real<int(const char*, const char*)>("rename")(from, to);
}

int unlink(const char* path) noexcept {
  CountStep();
  return Real<int(const char*)>("unlink")(path);
}

int fsync(int fd) {
  CountStep();
  return Real<int(int)>("fsync")(fd);
}
}

namespace {

namespace fs = std::filesystem;

// Two modules, which belong together.
std::string Configuration(const std::string& relay, const std::string& vrf, int index) {
  return R"({"metacli-internal:internal":{"vrf-config":{"stringTOindex":[{"name":")" + vrf +
         R"(","vrf-idx":)" + std::to_string(index) +
         R"(}]}},"vx-config:config":{"vx-dhcp-relay:dhcp":{"relay":[{"name":")" + relay +
         R"(","vrf":")" + vrf + R"("}]}}})";
}

const std::string kOlder = Configuration("r1", "red", 7);
const std::string kNewer = Configuration("r2", "blue", 8);

enum class End { kDone, kKilled, kFailed };

// In a process of its own: a connection to the datastore belongs to one.
End InChild(const std::function<void()>& task, int kill_at = 0) {
  const pid_t child = fork();
  if (child == 0) {
    steps_left = kill_at;
    try {
      task();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) return End::kKilled;
  return WEXITSTATUS(status) == EXIT_SUCCESS ? End::kDone : End::kFailed;
}

class KillPointsTest : public ::testing::Test {
 protected:
  KillPointsTest() { repository_.InstallModels(); }

  // The older configuration is saved, the newer one committed.
  void Prepare() const {
    ASSERT_EQ(InChild([] {
                save::SysrepoStore store;
                store.SetRunning(kOlder);
              }),
              End::kDone);
    ASSERT_EQ(InChild(save::SaveOnce), End::kDone);
    ASSERT_EQ(InChild([] {
                save::SysrepoStore store;
                store.SetRunning(kNewer);
              }),
              End::kDone);
  }

  static void CutPower() {
    const std::string prefix = sr_get_shm_prefix();
    for (const auto& file : fs::directory_iterator("/dev/shm")) {
      const std::string name = file.path().filename();
      if (name.starts_with(prefix + "_") || name.starts_with(prefix + "sub_")) {
        fs::remove(file.path());
      }
    }
  }

  // Part of the text of a configuration that has the relay's modules alone.
  bool Holds(std::string (save::ConfigStore::*read)(), const std::string& part) const {
    const fs::path file = repository_.directory() / "read";
    EXPECT_EQ(InChild([&] {
                save::SysrepoStore store;
                std::ofstream(file) << (store.*read)();
              }),
              End::kDone);
    std::ifstream stream(file);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    return text.find(part) != std::string::npos;
  }

  // Both modules, or the test has failed.
  bool HoldsNewer(std::string (save::ConfigStore::*read)()) const {
    const bool newer_relay = Holds(read, R"("name":"r2")");
    EXPECT_EQ(Holds(read, R"("name":"r1")"), !newer_relay);
    EXPECT_EQ(Holds(read, R"("name":"blue")"), newer_relay);
    EXPECT_EQ(Holds(read, R"("name":"red")"), !newer_relay);
    return newer_relay;
  }

  tests::PrivateRepository repository_;
};

TEST_F(KillPointsTest, APowerCutLeavesOneWholeConfiguration) {
  bool was_newer = false;
  int kill_at = 1;
  for (bool killed = true; killed; ++kill_at) {
    SCOPED_TRACE(kill_at);
    Prepare();
    killed = InChild(save::SaveOnce, kill_at) == End::kKilled;
    const bool pending = save::PendingFileOfDatastore().Read().has_value();
    CutPower();
    ASSERT_EQ(InChild(save::Recover), End::kDone);
    const bool newer = HoldsNewer(&save::ConfigStore::Running);
    EXPECT_EQ(HoldsNewer(&save::ConfigStore::Startup), newer);
    EXPECT_FALSE(save::PendingFileOfDatastore().Read());
    // Once it is on the disk it is there for good.
    EXPECT_TRUE(newer || (!was_newer && !pending && killed));
    was_newer = newer;
    if (HasFailure()) return;
  }
  EXPECT_GT(kill_at, 10);
}

TEST_F(KillPointsTest, AKilledRecoveryIsRepeated) {
  int kill_at = 1;
  for (bool killed = true; killed; ++kill_at) {
    SCOPED_TRACE(kill_at);
    Prepare();
    // Between the pending file and the startup datastore: after file, name, directory.
    ASSERT_EQ(InChild(save::SaveOnce, 4), End::kKilled);
    ASSERT_TRUE(save::PendingFileOfDatastore().Read());
    CutPower();
    killed = InChild(save::Recover, kill_at) == End::kKilled;
    CutPower();
    ASSERT_EQ(InChild(save::Recover), End::kDone);
    EXPECT_TRUE(HoldsNewer(&save::ConfigStore::Running));
    if (HasFailure()) return;
  }
  EXPECT_GT(kill_at, 10);
}

TEST_F(KillPointsTest, ASaverThatIsStartedAgainSavesTheNewestCommit) {
  for (int kill_at = 1; kill_at <= 8; ++kill_at) {
    SCOPED_TRACE(kill_at);
    Prepare();
    ASSERT_EQ(InChild(save::SaveOnce, kill_at), End::kKilled);
    // Back to what is saved, while what was newer may be pending.
    ASSERT_EQ(InChild([] {
                save::SysrepoStore store;
                store.SetRunning(kOlder);
              }),
              End::kDone);
    ASSERT_EQ(InChild(save::SaveOnce), End::kDone);
    EXPECT_FALSE(HoldsNewer(&save::ConfigStore::Running));
    EXPECT_FALSE(HoldsNewer(&save::ConfigStore::Startup));
    if (HasFailure()) return;
  }
}

}  // namespace
