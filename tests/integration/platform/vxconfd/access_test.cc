// The adapter in an account that may not do everything with the datastore.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/types.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <confd_cdb.h>
#include <vxconfd/vxconfd.h>

#include "tests/support/loop.h"
#include "tests/support/private_repository.h"

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kVrfs[] = R"({ "metacli-internal:internal": { "vrf-config": { "stringTOindex": [
    { "name": "red", "vrf-idx": 7 } ] } } })";
constexpr char kIndex[] = "/metacli-internal:internal/vrf-config/stringTOindex{red}/vrf-idx";

// While it lives, the process belongs to an account without privileges, in root's group: the
// datastore's own files are open to that.
class Unprivileged {
 public:
  static constexpr uid_t kAccount = 65534;

  Unprivileged() { EXPECT_EQ(seteuid(kAccount), 0); }
  ~Unprivileged() { EXPECT_EQ(seteuid(0), 0); }
  Unprivileged(const Unprivileged&) = delete;
  Unprivileged& operator=(const Unprivileged&) = delete;
};

class RelayHandler : public vxconfd::ConfigHandler {
 public:
  RelayHandler() {
    points_.push_back({3, 0, "/config/dhcp/relay", 0, [](auto...) { return ITER_CONTINUE; }});
  }
  void LoadInitialConfig() override {}
  void ApplyInitialConfig() override {}
  void StartCommit() override {}
  void ApplyCommitConfig() override {}
};

class AccessTest : public ::testing::Test {
 protected:
  AccessTest() {
    repository_.InstallModelsWithConfiguration(kVrfs);
    for (const char* module : {"vx-config", "metacli-internal", "sysrepo-monitoring"}) {
      Permit(module, "660");
    }
    fs::permissions(repository_.directory(), fs::perms::all);  // for the fault file
    adapter_->AddConfigHandler(&handler_);
  }

  // What owner, group and others may do with a module, in every datastore.
  static void Permit(const std::string& module, const std::string& mode) {
    EXPECT_EQ(std::system(("sysrepoctl -c " + module + " -p " + mode).c_str()), 0);
  }

  void Connect() {
    const Unprivileged account;
    adapter_->Init(0);
  }

  bool RunUntil(const std::function<bool()>& condition) {
    const Unprivileged account;
    return tests::RunUntil(mw_.get(), condition);
  }

  std::vector<std::string> Faults() const {
    std::vector<std::string> faults;
    std::ifstream file(repository_.directory() / "faults.jsonl");
    for (std::string line; std::getline(file, line);) faults.push_back(line);
    return faults;
  }

  tests::PrivateRepository repository_;
  const tests::Middleware mw_{"access_test"};
  RelayHandler handler_;
  std::unique_ptr<vxconfd::AppInterface> adapter_ = std::make_unique<vxconfd::AppInterface>(
      mw_.get(), nullptr, "access_test", ELEM_CONFD_PHASE_2);
};

TEST_F(AccessTest, OnAllThatIsNeededLetsTheAdapterConnect) {
  Connect();
  EXPECT_TRUE(adapter_->connected());
  EXPECT_THAT(Faults(), IsEmpty());
}

TEST_F(AccessTest, IsWaitedForAndEachLackIsReportedOnce) {
  Permit("vx-config", "600");
  Permit("metacli-internal", "600");
  Connect();
  EXPECT_FALSE(adapter_->connected());
  const auto lacks_config = HasSubstr("read module vx-config in the running datastore");
  const auto lacks_vrfs = HasSubstr("read module metacli-internal in the running datastore");
  ASSERT_THAT(Faults(),
              ElementsAre(AllOf(HasSubstr("waiting for the configuration database: "),
                                HasSubstr("uid 65534) may not "), lacks_config, lacks_vrfs)));
  Permit("vx-config", "660");
  EXPECT_TRUE(RunUntil([this] { return Faults().size() > 1; }));
  EXPECT_FALSE(adapter_->connected());
  Permit("metacli-internal", "640");
  EXPECT_TRUE(RunUntil([this] { return adapter_->connected(); }));
  EXPECT_THAT(Faults(), ElementsAre(lacks_config, AllOf(lacks_vrfs, Not(lacks_config))));
}

TEST_F(AccessTest, ToTheTimesOfChangesIsNeededToo) {
  Permit("sysrepo-monitoring", "600");
  Connect();
  EXPECT_FALSE(adapter_->connected());
  EXPECT_THAT(Faults(),
              ElementsAre(HasSubstr(
                  "may not read module sysrepo-monitoring in the operational datastore")));
}

TEST_F(AccessTest, ForReadingAloneIsTooLittleToSubscribe) {
  Permit("vx-config", "640");
  Connect();
  EXPECT_FALSE(adapter_->connected());
  EXPECT_THAT(Faults(), ElementsAre(HasSubstr(
                            "may not subscribe to module vx-config in the running datastore, "
                            "which takes the right to write")));
}

TEST_F(AccessTest, ThatIsTakenAwayFailsTheNextReadInsteadOfHidingTheData) {
  Connect();
  confd_value_t index = {C_NOEXISTS, {}};
  {
    const Unprivileged account;
    const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
    EXPECT_EQ(cdb_get(session.Socket(), &index, kIndex), CONFD_OK);
    EXPECT_EQ(CONFD_GET_UINT32(&index), 7U);
  }
  Permit("metacli-internal", "600");
  const Unprivileged account;
  const VxConfdCdbSession session(adapter_.get(), CDB_RUNNING, true);
  EXPECT_EQ(cdb_get(session.Socket(), &index, kIndex), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_UNAVAILABLE);
  EXPECT_THAT(confd_lasterr(),
              HasSubstr("may not read module metacli-internal in the running datastore"));
}

}  // namespace
