#include "base/runtime_directory.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

constexpr char kVariable[] = "DHCP_MANAGER_DIR";

class RuntimeDirectoryTest : public ::testing::Test {
 protected:
  ~RuntimeDirectoryTest() override { unsetenv(kVariable); }
};

TEST_F(RuntimeDirectoryTest, IsWhatTheEnvironmentNames) {
  setenv(kVariable, "/tmp/relay", 1);
  EXPECT_EQ(base::RuntimeDirectory(), "/tmp/relay");
}

TEST_F(RuntimeDirectoryTest, IsTheSystemsOtherwise) {
  unsetenv(kVariable);
  EXPECT_EQ(base::RuntimeDirectory(), "/run/dhcp-manager");
  setenv(kVariable, "", 1);
  EXPECT_EQ(base::RuntimeDirectory(), "/run/dhcp-manager");
}

}  // namespace
