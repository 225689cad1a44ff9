// Processes of several users that raise faults in one directory, which a common group shares.

#ifndef TESTS_INTEGRATION_PLATFORM_VXMIDWARE_FAULT_USERS_H_
#define TESTS_INTEGRATION_PLATFORM_VXMIDWARE_FAULT_USERS_H_

#include <gtest/gtest.h>
#include <sys/types.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tests {

// Neither needs an account.
inline constexpr gid_t kCommonGroup = 61000;

struct User {
  uid_t id;
  gid_t group;
  std::vector<gid_t> more_groups;
};

// The daemon, the state process, and the manager, which gives up all groups but its own.
const std::vector<User>& Users();

// Runs `task` as `user` in a process of its own, with a umask that shares nothing. It is ended if
// it takes longer than a test may wait, and exits with 0 if `task` returns.
pid_t Start(const User& user, const std::function<void()>& task);
bool Succeeds(pid_t process);

std::vector<std::string> Lines(const std::filesystem::path& file);

class FaultUsers : public ::testing::Test {
 protected:
  FaultUsers();
  ~FaultUsers() override;

  // A directory that the group may write.
  std::filesystem::path Share(const std::string& name) const;

  // Both files, the older first.
  std::vector<std::string> All() const;

  std::filesystem::path top_;
  std::filesystem::path directory_;
};

}  // namespace tests

#endif  // TESTS_INTEGRATION_PLATFORM_VXMIDWARE_FAULT_USERS_H_
