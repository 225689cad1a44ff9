#include "base/system_error.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

TEST(SystemErrorTest, SaysWhatFailedAndWhy) {
  EXPECT_EQ(std::string(base::SystemError("cannot open x", ENOENT).what()),
            "cannot open x: No such file or directory");
  EXPECT_EQ(base::SystemError("cannot open x", ENOENT).code(),
            std::errc::no_such_file_or_directory);
}

TEST(SystemErrorTest, TakesTheLatestErrorUnlessOneIsGiven) {
  errno = EACCES;
  EXPECT_EQ(base::SystemError("x").code().value(), EACCES);
}

TEST(SystemErrorTest, Throws) {
  errno = EACCES;
  EXPECT_THROW(base::ThrowSystemError("x"), std::system_error);
}

}  // namespace
