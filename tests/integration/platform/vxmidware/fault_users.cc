#include "tests/integration/platform/vxmidware/fault_users.h"

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>

#include "tests/support/loop.h"

namespace tests {
namespace {

bool Become(const User& user) {
  return setgroups(user.more_groups.size(), user.more_groups.data()) == 0 &&
         setgid(user.group) == 0 && setuid(user.id) == 0;
}

}  // namespace

const std::vector<User>& Users() {
  static const auto* const users = new std::vector<User>{
      {61001, 61001, {kCommonGroup}}, {61002, 61002, {kCommonGroup}}, {61003, kCommonGroup, {}}};
  return *users;
}

pid_t Start(const User& user, const std::function<void()>& task) {
  const pid_t process = fork();
  if (process != 0) return process;
  alarm(static_cast<unsigned>(kLimit.count()));
  umask(0077);
  try {
    if (!Become(user)) _exit(EXIT_FAILURE);
    task();
    _exit(EXIT_SUCCESS);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "user %u: %s\n", user.id, error.what());
    _exit(EXIT_FAILURE);
  }
}

bool Succeeds(pid_t process) {
  int status = -1;
  return waitpid(process, &status, 0) == process && status == 0;
}

std::vector<std::string> Lines(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::vector<std::string> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

FaultUsers::FaultUsers() {
  std::array<char, 32> name{"/tmp/vxi.XXXXXX"};
  top_ = mkdtemp(name.data());
  EXPECT_EQ(chmod(top_.c_str(), 0755), 0);
  directory_ = Share("state");
}

FaultUsers::~FaultUsers() { std::filesystem::remove_all(top_); }

std::filesystem::path FaultUsers::Share(const std::string& name) const {
  std::filesystem::path directory = top_ / name;
  std::filesystem::create_directory(directory);
  EXPECT_EQ(chown(directory.c_str(), static_cast<uid_t>(-1), kCommonGroup), 0);
  EXPECT_EQ(chmod(directory.c_str(), 02770), 0);
  return directory;
}

std::vector<std::string> FaultUsers::All() const {
  std::vector<std::string> lines = Lines(directory_ / "faults.jsonl.1");
  const std::vector<std::string> rest = Lines(directory_ / "faults.jsonl");
  lines.insert(lines.end(), rest.begin(), rest.end());
  return lines;
}

}  // namespace tests
