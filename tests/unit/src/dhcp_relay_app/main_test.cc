#include "src/dhcp_relay_app/main.h"

#include <stdexcept>

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

extern "C" int DhcpRelayAppMain();

namespace dhcp_relay_app {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

class MainTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    Logger::Instance().category = nullptr;
  }

  std::vector<std::string> Faults() const { return journal_.StartingWith("fault"); }
};

TEST_F(MainTest, StartsAndStopsInOrder) {
  EXPECT_EQ(DhcpRelayAppMain(), 0);
  EXPECT_THAT(
      journal_.entries(),
      ElementsAre("vxmw_init dhcp-relay-app", "vxmw_trace_init dhcp-relay-app",
                  "vxmw_trace_register_category dhcp-relay-app",
                  "zlog 10 DhcpRelayCfgHandler: Entry Point", "DhcpUser", "AppInterface",
                  "AppInterface::AddConfigHandler", "AppInterface::Init 0",
                  "vxmw_loop_while_timeout 0", "~AppInterface", "~DhcpUser", "vxmw_finish"));
}

TEST_F(MainTest, HandsTheHandleToEverybodyAndGivesItBackOnce) {
  DhcpRelayAppMain();
  EXPECT_EQ(middleware_.trace_handle, fakes::Vxmw::Handle());
  EXPECT_EQ(dhcp_user_.mw, fakes::Vxmw::Handle());
  EXPECT_EQ(adapter_.mw, fakes::Vxmw::Handle());
  EXPECT_EQ(middleware_.loop_handle, fakes::Vxmw::Handle());
  EXPECT_TRUE(middleware_.loop_flag);
  EXPECT_THAT(middleware_.finished, ElementsAre(fakes::Vxmw::Handle()));
}

TEST_F(MainTest, AdapterGetsTheCategoryTheNameAndPhaseTwo) {
  DhcpRelayAppMain();
  EXPECT_EQ(adapter_.category, fakes::Vxmw::Category());
  EXPECT_EQ(adapter_.application, "dhcp-relay-app");
  EXPECT_EQ(adapter_.phase, 2);
}

TEST_F(MainTest, ResultOfTheLoopDecidesTheExitStatus) {
  const std::pair<int, int> results[] = {{0, 0}, {1, 1}, {-1, 1}, {256, 1}, {-7, 1}};
  for (const auto& [loop_result, exit_status] : results) {
    middleware_.loop_result = loop_result;
    EXPECT_EQ(DhcpRelayAppMain(), exit_status) << loop_result;
  }
  EXPECT_THAT(middleware_.faults, IsEmpty());
  EXPECT_THAT(middleware_.finished, SizeIs(5));
}

TEST_F(MainTest, FailedAttachIsAFaultAndEndsTheProcess) {
  middleware_.init_result = nullptr;
  EXPECT_EXIT(
      {
        journal_.SetEcho(true);
        DhcpRelayAppMain();
      },
      ExitedWithCode(1),
      AllOf(HasSubstr("vxmw_init dhcp-relay-app\n"
                      "vxmw_print_backtrace\n"
                      "fault 1 main src/dhcp_relay_app/main:21 ''\n"),
            Not(HasSubstr("vxmw_trace")), Not(HasSubstr("vxmw_finish")),
            Not(HasSubstr("AppInterface"))));
}

TEST_F(MainTest, ExceptionOutOfTheLoopIsAFaultAfterTheTeardown) {
  middleware_.on_loop = [] { throw std::runtime_error("it broke"); };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  const auto& entries = journal_.entries();
  ASSERT_GE(entries.size(), 5U);
  EXPECT_THAT(std::vector<std::string>(entries.end() - 5, entries.end()),
              ElementsAre("vxmw_loop_while_timeout 0", "~AppInterface", "~DhcpUser",
                          "fault 0 main src/dhcp_relay_app/main:32 'Exception caught!\n'it "
                          "broke'.\n'",
                          "vxmw_finish"));
  EXPECT_THAT(middleware_.finished, ElementsAre(fakes::Vxmw::Handle()));
}

TEST_F(MainTest, UnknownExceptionOutOfTheLoopIsAFaultAfterTheTeardown) {
  middleware_.on_loop = [] { throw 7; };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  const auto& entries = journal_.entries();
  ASSERT_GE(entries.size(), 4U);
  EXPECT_THAT(std::vector<std::string>(entries.end() - 4, entries.end()),
              ElementsAre("~AppInterface", "~DhcpUser",
                          "fault 0 main src/dhcp_relay_app/main:36 'Error! Unknown "
                          "exception.\n'",
                          "vxmw_finish"));
  EXPECT_THAT(middleware_.finished, ElementsAre(fakes::Vxmw::Handle()));
}

TEST_F(MainTest, LongExceptionTextIsCutAndTerminated) {
  const std::string what(400, 'x');
  middleware_.on_loop = [&] { throw std::runtime_error(what); };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].text, ("Exception caught!\n'" + what).substr(0, 349));
}

TEST_F(MainTest, LongestExceptionTextThatFitsIsWhole) {
  const std::string what(327, 'x');
  middleware_.on_loop = [&] { throw std::runtime_error(what); };
  DhcpRelayAppMain();
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].text, "Exception caught!\n'" + what + "'.\n");
  EXPECT_EQ(middleware_.faults[0].text.size(), 349U);
}

TEST_F(MainTest, ExceptionTextIsNotAFormat) {
  middleware_.on_loop = [] { throw std::runtime_error("%s%n"); };
  DhcpRelayAppMain();
  ASSERT_THAT(middleware_.faults, SizeIs(1));
  EXPECT_EQ(middleware_.faults[0].text, "Exception caught!\n'%s%n'.\n");
}

TEST_F(MainTest, ExceptionOutOfTheLoggerIsAFault) {
  middleware_.on_trace_init = [] { throw std::runtime_error("no trace"); };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  EXPECT_THAT(journal_.entries(),
              ElementsAre("vxmw_init dhcp-relay-app", "vxmw_trace_init dhcp-relay-app",
                          "fault 0 main src/dhcp_relay_app/main:32 'Exception caught!\n'no "
                          "trace'.\n'",
                          "vxmw_finish"));
}

TEST_F(MainTest, UnknownExceptionOutOfTheLoggerIsAFault) {
  middleware_.on_trace_init = [] { throw 7; };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  EXPECT_THAT(Faults(), ElementsAre("fault 0 main src/dhcp_relay_app/main:36 'Error! Unknown "
                                    "exception.\n'"));
}

TEST_F(MainTest, WhatWasBuiltIsReleasedWhenTheAdapterCannotStart) {
  adapter_.on_init = [] { throw std::runtime_error("no database"); };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  const auto& entries = journal_.entries();
  ASSERT_GE(entries.size(), 5U);
  EXPECT_THAT(std::vector<std::string>(entries.end() - 5, entries.end()),
              ElementsAre("AppInterface::Init 0", "~AppInterface", "~DhcpUser",
                          "fault 0 main src/dhcp_relay_app/main:32 'Exception caught!\n'no "
                          "database'.\n'",
                          "vxmw_finish"));
}

TEST_F(MainTest, WhatWasBuiltIsReleasedWhenTheAdapterCannotBeMade) {
  adapter_.on_construct = [] { throw std::runtime_error("no adapter"); };
  EXPECT_EQ(DhcpRelayAppMain(), 1);
  const auto& entries = journal_.entries();
  ASSERT_GE(entries.size(), 4U);
  EXPECT_THAT(std::vector<std::string>(entries.end() - 4, entries.end()),
              ElementsAre("AppInterface", "~DhcpUser",
                          "fault 0 main src/dhcp_relay_app/main:32 'Exception caught!\n'no "
                          "adapter'.\n'",
                          "vxmw_finish"));
}

TEST_F(MainTest, FailedTraceServiceDoesNotStopTheStart) {
  middleware_.trace_init_result = 0;
  middleware_.category_result = nullptr;
  log_.is_running = false;
  EXPECT_EQ(DhcpRelayAppMain(), 0);
  EXPECT_THAT(Faults(), SizeIs(2));
  EXPECT_EQ(adapter_.category, nullptr);
  EXPECT_EQ(middleware_.loop_timeout, 0);
}

// A dump request during the loop goes through handler, database and facade back to the client.
TEST_F(MainTest, AnswersADumpRequestOfTheManager) {
  confd_.SetList("/config/dhcp/relay", {fakes::Buf("r1")});
  confd_.SetObject(
      "/config/dhcp/relay{r1}",
      {fakes::Absent(), fakes::Absent(), fakes::Absent(), fakes::Absent(), fakes::Flag(true),
       fakes::Flag(false), fakes::Flag(true), fakes::Enumeration(2)});
  middleware_.on_loop = [this] { dhcp_user_.callbacks->OnDumpRequest(); };
  EXPECT_EQ(DhcpRelayAppMain(), 0);
  EXPECT_THAT(journal_.StartingWith("DhcpUser::"),
              ElementsAre("DhcpUser::SetCheck r1 false", "DhcpUser::SetTrusted r1 true",
                          "DhcpUser::SetOption r1 true", "DhcpUser::SetPolicy r1 2"));
}

}  // namespace
}  // namespace dhcp_relay_app
