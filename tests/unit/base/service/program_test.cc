#include "base/service/program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "base/service/log.h"
#include "base/severity.h"
#include "tests/fakes/fake_vxmw.h"
#include "tests/fakes/fake_zlog.h"
#include "tests/fakes/journal.h"

namespace {

using fakes::Journal;
using fakes::Vxmw;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class ProgramTest : public ::testing::Test {
 protected:
  ProgramTest() {
    Vxmw::Get().Reset();
    fakes::Zlog::Get().Reset();
    Journal::Get().Clear();
  }
};

TEST_F(ProgramTest, ServesBetweenAttachingAndReleasing) {
  base::RunProgram("prog", [](vxmw_t* mw) {
    EXPECT_EQ(mw, Vxmw::Handle());
    base::LogError("serving");
    return EXIT_SUCCESS;
  });
  EXPECT_THAT(Journal::Get().entries(), ElementsAre("vxmw_init prog", "vxmw_trace_init prog",
                                                    "vxmw_trace_register_category prog",
                                                    "zlog 12 operator(): serving", "vxmw_finish"));
  EXPECT_EQ(Vxmw::Get().trace_handle, Vxmw::Handle());
  EXPECT_THAT(Vxmw::Get().finished, ElementsAre(Vxmw::Handle()));
}

TEST_F(ProgramTest, ReturnsTheStatusOfWhatItServes) {
  for (const int status : {EXIT_SUCCESS, EXIT_FAILURE, base::kUsageError}) {
    EXPECT_EQ(base::RunProgram("prog", [status](vxmw_t* /*mw*/) { return status; }), status);
  }
  EXPECT_THAT(Vxmw::Get().faults, IsEmpty());
}

TEST_F(ProgramTest, AnExceptionIsAFaultALineAndStatus1) {
  ::testing::internal::CaptureStderr();
  const int status = base::RunProgram(
      "prog", [](vxmw_t* /*mw*/) -> int { throw std::runtime_error("cannot bind"); });
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "prog: cannot bind\n");
  EXPECT_EQ(status, EXIT_FAILURE);
  ASSERT_THAT(Vxmw::Get().faults, SizeIs(1));
  EXPECT_EQ(Vxmw::Get().faults[0].severity, base::kFaultError);
  EXPECT_EQ(Vxmw::Get().faults[0].function, "RunProgram");
  EXPECT_EQ(Vxmw::Get().faults[0].text, "cannot bind");
  EXPECT_THAT(Vxmw::Get().finished, ElementsAre(Vxmw::Handle()));
}

TEST_F(ProgramTest, AFailedAttachIsACriticalFaultAndStatus1) {
  Vxmw::Get().init_result = nullptr;
  bool served = false;
  const int status = base::RunProgram("prog", [&served](vxmw_t* /*mw*/) {
    served = true;
    return EXIT_SUCCESS;
  });
  EXPECT_EQ(status, EXIT_FAILURE);
  EXPECT_FALSE(served);
  ASSERT_THAT(Vxmw::Get().faults, SizeIs(1));
  EXPECT_EQ(Vxmw::Get().faults[0].severity, base::kFaultCritical);
  EXPECT_EQ(Vxmw::Get().faults[0].text, "cannot attach to the middleware");
  EXPECT_THAT(Vxmw::Get().finished, IsEmpty());
}

TEST_F(ProgramTest, TheLoopRunsWithoutALimit) {
  EXPECT_EQ(base::RunLoop(Vxmw::Handle()), EXIT_SUCCESS);
  EXPECT_EQ(Vxmw::Get().loop_handle, Vxmw::Handle());
  EXPECT_TRUE(Vxmw::Get().loop_flag);
  EXPECT_EQ(Vxmw::Get().loop_timeout, 0);
}

TEST_F(ProgramTest, ALoopThatFailedIsStatus1) {
  Vxmw::Get().loop_result = -EIO;
  EXPECT_EQ(base::RunLoop(Vxmw::Handle()), EXIT_FAILURE);
}

}  // namespace
