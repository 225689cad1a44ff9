// A user of the datastore in the test's own process, with a time-out of its choice.

#ifndef TESTS_INTEGRATION_PLATFORM_VXCONFD_COMMITTER_H_
#define TESTS_INTEGRATION_PLATFORM_VXCONFD_COMMITTER_H_

#include <sysrepo.h>

#include <chrono>
#include <memory>
#include <string>

namespace tests {

// Throws std::runtime_error when the datastore refuses.
class Committer {
 public:
  Committer();

  // Edits, like those below, are of the next commit.
  void Set(const std::string& path, const std::string& value);
  void Delete(const std::string& path);  // of what is there
  // A JSON document whose nodes may say their operation.
  void Edit(const std::string& json);

  // The commit returns at the latest after `wait`, whether its subscribers took it or not.
  void Commit(std::chrono::milliseconds wait = std::chrono::seconds(5));

  // The leaf's value in the running datastore, empty when it is not there.
  std::string Read(const std::string& path);

  sr_session_ctx_t* session() { return session_; }

 private:
  struct Disconnect {
    void operator()(sr_conn_ctx_t* connection) const { sr_disconnect(connection); }
  };

  std::unique_ptr<sr_conn_ctx_t, Disconnect> connection_;
  sr_session_ctx_t* session_ = nullptr;  // of the connection
};

}  // namespace tests

#endif  // TESTS_INTEGRATION_PLATFORM_VXCONFD_COMMITTER_H_
