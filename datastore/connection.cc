#include "datastore/connection.h"

#include <filesystem>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>

#include "datastore/creation_lock.h"
#include "datastore/error.h"
#include "datastore/pinned_files.h"

namespace datastore {
namespace {

// It stays as long as the repository is not removed or replaced.
std::string ModelsDirectory() { return std::string(sr_get_repo_path()) + "/yang"; }

// The library makes a datastore where there is none, which then hides the one that was meant.
FileId RequireRepository(const std::string& what_failed) {
  std::error_code error;
  const auto repository = Identify(ModelsDirectory());
  if (!repository || !std::filesystem::is_directory(ModelsDirectory(), error)) {
    throw Error(what_failed + ": there is none");
  }
  return *repository;
}

ConnectionPtr CallLibrary(const std::string& what) {
  sr_conn_ctx_t* connection = nullptr;
  Check(sr_connect(SR_CONN_DEFAULT, &connection), what);
  return ConnectionPtr(connection);
}

SharedMemory RequireSharedMemory(const std::string& what) {
  const std::optional<SharedMemory> memory = FindSharedMemory();
  if (!memory) throw Error(what + ": a part of its shared memory was removed; remove the rest");
  return *memory;
}

std::pair<SharedMemory, ConnectionPtr> MakeSharedMemory(const std::string& what) {
  RemoveRemains();
  RemovePinnedFilesOfOthers();
  ConnectionPtr connection = CallLibrary(what);
  return {RequireSharedMemory(what), std::move(connection)};
}

std::pair<SharedMemory, ConnectionPtr> Connect(const std::string& what) {
  const CreationLock lock;
  if (!HasMainFile()) return MakeSharedMemory(what);
  const PinnedFiles files(SharedMemoryFiles());
  // All that is pinned is of one life, since nobody makes another meanwhile.
  const SharedMemory memory = RequireSharedMemory(what);
  if (!files.complete()) throw Error(what + ": its shared memory is damaged; remove it");
  const SharedMemoryDirectory pinned(files.directory());
  return {memory, CallLibrary(what)};
}

}  // namespace

void SessionDeleter::operator()(sr_session_ctx_t* session) const {
  const Leaving leaving(*connection);
  sr_session_stop(session);
}

Connection::Connection() {
  const std::string what = std::string("cannot connect to the datastore in ") + sr_get_repo_path();
  RequireLibraryPaths();
  repository_ = RequireRepository(what);
  std::tie(shared_memory_, connection_) = Connect(what);
}

Connection::~Connection() {
  const Leaving leaving(*this);
  connection_.reset();
}

SessionPtr Connection::OpenSession(sr_datastore_t database) const {
  sr_session_ctx_t* session = nullptr;
  Check(sr_session_start(connection_.get(), database, &session), "cannot open a datastore session");
  return SessionPtr(session, SessionDeleter{this});
}

bool Connection::HasRepository() const { return Identify(ModelsDirectory()) == repository_; }

std::string Connection::LossReason() const {
  if (!HasSharedMemory()) return "the shared memory of the datastore is gone";
  return HasRepository() ? "" : "the repository of the datastore is gone";
}

Leaving::Leaving(const Connection& connection) {
  const bool has_shared_memory = connection.HasSharedMemory();
  if (has_shared_memory && connection.HasRepository()) return;
  repository_.emplace();
  if (!has_shared_memory) shared_memory_.emplace();
}

}  // namespace datastore
