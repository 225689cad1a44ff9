// Which table the daemon's calls go to: on every connect a new table is built beside the one in
// use, and replaces it when the dump is complete.

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

  // Called after every change of the table in use: by a single call, or by a complete dump.
  enum class Change { kCall, kDump };
  void OnChange(std::function<void(Change)> changed) { changed_ = std::move(changed); }

  // The daemon has connected: returns the id of the dump to request.
  std::uint32_t Connected();
  // The table of an incomplete dump is dropped; the table in use stays.
  void Disconnected();

  void Apply(const dhcp_relay::wire::Call& call);

  // False when `id` is not the dump that was requested, or when it has not begun.
  [[nodiscard]] bool BeginDump(std::uint32_t id);
  [[nodiscard]] bool CompleteDump(std::uint32_t id);

  // Whether commits were made whose calls are still to come. False without a complete dump.
  [[nodiscard]] bool SetCommitsPending(bool pending);

  State state() const { return state_; }
  // The dump that was requested and is not complete.
  std::optional<std::uint32_t> outstanding() const;

  const RelayTable& table() const { return table_; }
  std::uint64_t calls() const { return calls_; }
  std::uint64_t dumps() const { return dumps_; }
  // Changes with the table in use.
  std::uint64_t version() const { return version_; }

 private:
  void Changed(Change change) {
    ++version_;
    if (changed_) changed_(change);
  }

  std::function<void(Change)> changed_;
  State state_ = State::kDisconnected;
  std::uint32_t dump_ = 0;
  RelayTable table_;
  RelayTable next_;
  std::uint64_t calls_ = 0;
  std::uint64_t dumps_ = 0;
  std::uint64_t version_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_RESYNC_H_
