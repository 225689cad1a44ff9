// Which table the daemon's calls go to: on every connect a new table is built beside the one in
// use, and replaces it when the dump is complete. A commit that comes in several packets is made in
// a copy of the table in use, which replaces it in the same way, so that the table in use never
// holds a part of such a commit.

#ifndef DHCP_MANAGER_TABLE_RESYNC_H_
#define DHCP_MANAGER_TABLE_RESYNC_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

#include "dhcp_manager/table/relay_table.h"

namespace dhcp_manager {

class Resync {
 public:
  enum class State {
    kDisconnected,
    kWaiting,    // a dump has been requested
    kReceiving,  // the calls of the dump arrive
    kInSync,
    kBehind,  // after a dump; commits were made whose calls are still to come
  };

  // Called after every change of the table in use: by a single call, or by a complete dump or a
  // complete commit of several packets.
  enum class Change { kCall, kTable };
  void OnChange(std::function<void(Change)> changed) { changed_ = std::move(changed); }

  // The daemon has connected: returns the id of the dump to request.
  std::uint32_t Connected();
  // The table of an incomplete dump or commit is dropped; the table in use stays.
  void Disconnected();

  void Apply(const dhcp_relay::wire::Call& call);

  // Calls between these take effect together, at the end. A commit that is begun goes on until it
  // ends; during a dump neither does anything.
  void BeginCommit();
  void EndCommit();
  // A commit was begun whose end is still to come.
  bool commit_open() const { return commit_open_; }

  // False when `id` is not the dump that was requested, or when it has not begun.
  [[nodiscard]] bool BeginDump(std::uint32_t id);
  [[nodiscard]] bool CompleteDump(std::uint32_t id);

  // Whether commits were made whose calls are still to come. False without a complete dump.
  [[nodiscard]] bool SetCommitsPending(bool pending);

  State state() const { return state_; }
  // The table in use holds everything that the daemon has committed.
  bool in_sync() const { return state_ == State::kInSync && !commit_open_; }
  // The dump that was requested and is not complete.
  std::optional<std::uint32_t> outstanding() const;

  const RelayTable& table() const { return table_; }
  std::uint64_t calls() const { return calls_; }
  std::uint64_t dumps() const { return dumps_; }
  // Changes with the table in use.
  std::uint64_t version() const { return version_; }

 private:
  void UseNext();
  void Changed(Change change) {
    ++version_;
    if (changed_) changed_(change);
  }

  std::function<void(Change)> changed_;
  State state_ = State::kDisconnected;
  std::uint32_t dump_ = 0;
  RelayTable table_;
  RelayTable next_;  // of the dump or the commit that comes in
  bool commit_open_ = false;
  std::uint64_t calls_ = 0;
  std::uint64_t dumps_ = 0;
  std::uint64_t version_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_RESYNC_H_
