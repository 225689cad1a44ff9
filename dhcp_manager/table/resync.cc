#include "dhcp_manager/table/resync.h"

#include <utility>

namespace dhcp_manager {

std::uint32_t Resync::Connected() {
  state_ = State::kWaiting;
  return ++dump_;
}

void Resync::Disconnected() {
  state_ = State::kDisconnected;
  next_ = RelayTable();
}

void Resync::Apply(const dhcp_relay::wire::Call& call) {
  ++calls_;
  if (state_ == State::kReceiving) {
    next_.Apply(call);
  } else {
    table_.Apply(call);
    Changed(Change::kCall);
  }
}

bool Resync::BeginDump(std::uint32_t id) {
  if (state_ != State::kWaiting || id != dump_) return false;
  state_ = State::kReceiving;
  next_ = RelayTable();
  return true;
}

bool Resync::CompleteDump(std::uint32_t id) {
  if (state_ != State::kReceiving || id != dump_) return false;
  state_ = State::kInSync;
  table_ = std::exchange(next_, RelayTable());
  ++dumps_;
  Changed(Change::kDump);
  return true;
}

bool Resync::SetCommitsPending(bool pending) {
  if (state_ != State::kInSync && state_ != State::kBehind) return false;
  state_ = pending ? State::kBehind : State::kInSync;
  return true;
}

std::optional<std::uint32_t> Resync::outstanding() const {
  if (state_ == State::kWaiting || state_ == State::kReceiving) return dump_;
  return std::nullopt;
}

}  // namespace dhcp_manager
