#include "base/descriptor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace {

using base::Descriptor;

int OpenSomething() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) >= 0; }

TEST(DescriptorTest, ClosesItself) {
  int number = -1;
  {
    const Descriptor fd(OpenSomething());
    number = fd.get();
    EXPECT_TRUE(IsOpen(number));
  }
  EXPECT_FALSE(IsOpen(number));
}

TEST(DescriptorTest, IsFalseOnlyWithoutADescriptor) {
  EXPECT_FALSE(Descriptor());
  EXPECT_FALSE(Descriptor(-1));
  EXPECT_TRUE(Descriptor(OpenSomething()));
}

TEST(DescriptorTest, OwnsTheDescriptorWithNumber0) {
  const int standard_input = dup(STDIN_FILENO);
  close(STDIN_FILENO);
  {
    const Descriptor fd(OpenSomething());  // the lowest number that is free
    EXPECT_EQ(fd.get(), 0);
    EXPECT_TRUE(fd);
  }
  EXPECT_FALSE(IsOpen(0));
  dup2(standard_input, STDIN_FILENO);
  close(standard_input);
}

TEST(DescriptorTest, LeavesNothingWhenItIsMovedFrom) {
  Descriptor from(OpenSomething());
  const int number = from.get();
  const Descriptor to(std::move(from));
  EXPECT_EQ(to.get(), number);
  EXPECT_TRUE(IsOpen(number));
  EXPECT_FALSE(from);  // NOLINT(bugprone-use-after-move)
}

TEST(DescriptorTest, ClosesWhatAnAssignmentReplaces) {
  Descriptor fd(OpenSomething());
  const int number = fd.get();
  fd = Descriptor();
  EXPECT_FALSE(fd);
  EXPECT_FALSE(IsOpen(number));
}

}  // namespace
