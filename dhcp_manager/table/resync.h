// Which table the calls of the daemon go to: on every connect a new one is built beside the old,
// and takes its place when the dump is complete.

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
    kWaiting,    // a dump is asked for
    kReceiving,  // its calls come in
    kInSync,
  };

  // Called after every change of the table in use: by one call of maybe many, or by a whole dump.
  enum class Change { kCall, kDump };
  void OnChange(std::function<void(Change)> changed) { changed_ = std::move(changed); }

  // The daemon has connected: returns the number of the dump to ask for.
  std::uint32_t Connected();
  // What came of an incomplete dump is dropped; the table in use stays.
  void Disconnected();

  void Apply(const dhcp_relay::wire::Call& call);

  // False when `id` is not the dump that was asked for, or is not begun.
  [[nodiscard]] bool BeginDump(std::uint32_t id);
  [[nodiscard]] bool CompleteDump(std::uint32_t id);

  State state() const { return state_; }
  // The dump that was asked for and is not complete.
  std::optional<std::uint32_t> outstanding() const;

  const RelayTable& table() const { return table_; }
  std::uint64_t calls() const { return calls_; }
  std::uint64_t dumps() const { return dumps_; }

 private:
  void Changed(Change change) const {
    if (changed_) changed_(change);
  }

  std::function<void(Change)> changed_;
  State state_ = State::kDisconnected;
  std::uint32_t dump_ = 0;
  RelayTable table_;
  RelayTable next_;
  std::uint64_t calls_ = 0;
  std::uint64_t dumps_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_TABLE_RESYNC_H_
