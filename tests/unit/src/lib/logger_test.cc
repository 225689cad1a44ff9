#include "src/lib/logger.h"

#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr char kSourcePath[] = "src/dhcp_relay_app/somewhere";

class LoggerTest : public DaemonTest {
 protected:
  void SetUp() override {
    DaemonTest::SetUp();
    logger_.category = nullptr;
  }

  Logger& logger_ = Logger::Instance();
};

// The first to run in its process, so that nobody has touched the category.
TEST(LoggerInstanceTest, HasNoCategoryBeforeInit) {
  EXPECT_EQ(Logger::Instance().category, nullptr);
  EXPECT_EQ(&Logger::Instance(), &Logger::Instance());
}

TEST_F(LoggerTest, InitStartsTheTraceServiceThenRegistersTheCategory) {
  logger_.Init(fakes::Vxmw::Handle());
  EXPECT_THAT(journal_.entries(), ElementsAre("vxmw_trace_init dhcp-relay-app",
                                              "vxmw_trace_register_category dhcp-relay-app"));
  EXPECT_EQ(middleware_.trace_handle, fakes::Vxmw::Handle());
  EXPECT_EQ(logger_.category, fakes::Vxmw::Category());
}

TEST_F(LoggerTest, AnyNonZeroResultOfTheTraceServiceIsSuccess) {
  middleware_.trace_init_result = -1;
  logger_.Init(fakes::Vxmw::Handle());
  EXPECT_THAT(middleware_.faults, IsEmpty());
}

TEST_F(LoggerTest, FailedTraceServiceIsAFaultAndTheCategoryIsRegisteredAllTheSame) {
  middleware_.trace_init_result = 0;
  logger_.Init(fakes::Vxmw::Handle());
  EXPECT_THAT(journal_.entries(),
              ElementsAre("vxmw_trace_init dhcp-relay-app", "fault 0 Init src/lib/logger:23 ''",
                          "vxmw_trace_register_category dhcp-relay-app"));
  EXPECT_EQ(logger_.category, fakes::Vxmw::Category());
}

TEST_F(LoggerTest, MissingCategoryIsAFault) {
  middleware_.category_result = nullptr;
  logger_.Init(fakes::Vxmw::Handle());
  EXPECT_THAT(journal_.StartingWith("fault"), ElementsAre("fault 0 Init src/lib/logger:25 ''"));
  EXPECT_EQ(logger_.category, nullptr);
}

TEST_F(LoggerTest, BothFailuresAreFaults) {
  middleware_.trace_init_result = 0;
  middleware_.category_result = nullptr;
  logger_.Init(fakes::Vxmw::Handle());
  EXPECT_THAT(journal_.entries(),
              ElementsAre("vxmw_trace_init dhcp-relay-app", "fault 0 Init src/lib/logger:23 ''",
                          "vxmw_trace_register_category dhcp-relay-app",
                          "fault 0 Init src/lib/logger:25 ''"));
}

class LogLineTest : public DaemonTest {
 protected:
  void WriteError(unsigned number) { LOG_ERROR("Unexpected operation %u", number); }
  void WriteEntryPoint() { LOG_ENTRY_POINT(); }
  void WriteTrace() { LOG_TRACE("%d", ++evaluations_); }

  int evaluations_ = 0;
};

TEST_F(LogLineTest, ErrorIsWrittenWithoutAskingForItsLevel) {
  WriteError(9);
  ASSERT_THAT(log_.lines, SizeIs(1));
  const fakes::LogLine& line = log_.lines[0];
  EXPECT_EQ(line.category, fakes::Vxmw::Category());
  EXPECT_EQ(line.source_path, "src/dhcp_relay_app/somewhere");
  EXPECT_EQ(line.function, "WriteError");
  EXPECT_GT(line.line, 0);
  EXPECT_EQ(line.level, 12);
  EXPECT_EQ(line.text, "Unexpected operation 9");
  EXPECT_THAT(log_.asked_levels, IsEmpty());
}

TEST_F(LogLineTest, EntryPointIsWrittenWithoutAskingForItsLevel) {
  WriteEntryPoint();
  EXPECT_THAT(log_.Texts(), ElementsAre("10 WriteEntryPoint: Entry Point"));
  EXPECT_THAT(log_.asked_levels, IsEmpty());
}

TEST_F(LogLineTest, TraceIsWrittenWhenItsLevelIsOn) {
  log_.Enable(kTraceLevel);
  WriteTrace();
  EXPECT_THAT(log_.Texts(), ElementsAre("10 WriteTrace: 1"));
  EXPECT_THAT(log_.asked_levels, ElementsAre(10));
}

TEST_F(LogLineTest, TraceThatIsOffCostsOnlyTheLevelTest) {
  log_.Enable(kErrorLevel);
  WriteTrace();
  EXPECT_EQ(evaluations_, 0);
  EXPECT_THAT(log_.lines, IsEmpty());
  EXPECT_THAT(log_.asked_levels, ElementsAre(10));
  EXPECT_THAT(log_.asked_categories, ElementsAre(fakes::Vxmw::Category()));
}

// Only the middleware can keep a null category away from zlog.
TEST_F(LogLineTest, CategoryThatWasNotRegisteredIsPassedOn) {
  Logger::Instance().category = nullptr;
  EXPECT_DEATH(WriteError(1), "null category");
}

TEST_F(LogLineTest, IsIgnoredWithoutTheTraceService) {
  Logger::Instance().category = nullptr;
  log_.is_running = false;
  log_.Enable(kTraceLevel);
  WriteError(1);
  WriteTrace();
  EXPECT_THAT(log_.lines, IsEmpty());
  EXPECT_EQ(evaluations_, 0);
}

}  // namespace
}  // namespace dhcp_relay_app
