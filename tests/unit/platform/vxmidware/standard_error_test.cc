#include "platform/vxmidware/src/standard_error.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string>

#include <vxmw/vxmw.h>

namespace {

// A pipe in the place of standard error.
class StandardError : public ::testing::Test {
 protected:
  StandardError() {
    EXPECT_EQ(pipe2(pipe_.data(), O_CLOEXEC), 0);
    dup2(pipe_[1], STDERR_FILENO);
    fcntl(pipe_[0], F_SETFL, O_NONBLOCK);
  }
  ~StandardError() override {
    dup2(own_, STDERR_FILENO);
    for (const int fd : {own_, pipe_[0], pipe_[1]}) close(fd);
  }

  std::string Read() const {
    std::string text;
    std::array<char, 4096> part{};
    ssize_t size = 0;
    while ((size = read(pipe_[0], part.data(), part.size())) > 0) {
      text.append(part.data(), static_cast<std::size_t>(size));
    }
    return text;
  }

  std::array<int, 2> pipe_{};
  int own_ = dup(STDERR_FILENO);
};

TEST_F(StandardError, TakesAllThatFits) {
  const std::string text(10000, 'x');
  vxmw::WriteToStandardError(text);
  EXPECT_EQ(Read(), text);
}

TEST_F(StandardError, WhoseReaderIsStoppedIsNotWaitedFor) {
  vxmw::WriteToStandardError(std::string(1U << 20U, 'x'));
  EXPECT_EQ(Read(), std::string(static_cast<std::size_t>(fcntl(pipe_[0], F_GETPIPE_SZ)), 'x'));
}

TEST_F(StandardError, HoldsUpNoFault) {
  vxmw::WriteToStandardError(std::string(1U << 20U, 'x'));
  setenv("VXMW_STATE_DIR", "/proc/nowhere", 1);
  vxmw_gen_fault(0, "f", "p", 1, "t");
  unsetenv("VXMW_STATE_DIR");
}

TEST_F(StandardError, MayBeClosed) {
  close(STDERR_FILENO);
  vxmw::WriteToStandardError("text");
  EXPECT_EQ(Read(), "");
}

}  // namespace
