#include "datastore/connection.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "datastore/error.h"

namespace datastore {
namespace {

// The library makes a datastore where there is none, which then hides the one that was meant.
void RequireRepository(const std::string& what_failed) {
  std::error_code error;
  const auto models = std::filesystem::path(sr_get_repo_path()) / "yang";
  if (!std::filesystem::is_directory(models, error)) {
    throw Error(what_failed + ": there is none");
  }
}

ConnectionPtr Connect() {
  const std::string what = std::string("cannot connect to the datastore in ") + sr_get_repo_path();
  RequireRepository(what);
  sr_conn_ctx_t* connection = nullptr;
  Check(sr_connect(SR_CONN_DEFAULT, &connection), what);
  return ConnectionPtr(connection);
}

// The memory stays reachable, and is not used any more.
void Abandon(sr_conn_ctx_t* connection) {
  static auto* const abandoned = new std::vector<sr_conn_ctx_t*>;
  abandoned->push_back(connection);
}

}  // namespace

// A lock that a killed process held in a datastore that is gone is never free.
void SessionDeleter::operator()(sr_session_ctx_t* session) const {
  if (!connection->IsGone()) sr_session_stop(session);
}

Connection::Connection() : connection_(Connect()), shared_memory_(FindSharedMemory()) {}

// To disconnect from a datastore that is gone would remove files of those that have connected to
// what took its place.
Connection::~Connection() {
  if (IsGone()) Abandon(connection_.release());
}

SessionPtr Connection::OpenSession(sr_datastore_t database) const {
  sr_session_ctx_t* session = nullptr;
  Check(sr_session_start(connection_.get(), database, &session), "cannot open a datastore session");
  return SessionPtr(session, SessionDeleter{this});
}

std::string Connection::LossReason() const {
  return IsGone() ? "the shared memory of the datastore is gone" : "";
}

}  // namespace datastore
