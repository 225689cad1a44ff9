#include "dhcp_manager/table/resync.h"

#include <utility>

namespace dhcp_manager {

std::uint32_t Resync::Connected() {
  state_ = State::kWaiting;
  return ++dump_;
}

void Resync::Disconnected() {
  state_ = State::kDisconnected;
  commit_open_ = false;
  next_ = RelayTable();
}

void Resync::Apply(const dhcp_relay::wire::Call& call) {
  ++calls_;
  if (state_ == State::kReceiving || commit_open_) {
    next_.Apply(call);
  } else {
    table_.Apply(call);
    Changed(Change::kCall);
  }
}

void Resync::BeginCommit() {
  if (state_ == State::kReceiving || commit_open_) return;
  commit_open_ = true;
  next_ = table_;
}

void Resync::EndCommit() {
  if (std::exchange(commit_open_, false)) UseNext();
}

void Resync::UseNext() {
  table_ = std::exchange(next_, RelayTable());
  Changed(Change::kTable);
}

bool Resync::BeginDump(std::uint32_t id) {
  if (state_ != State::kWaiting || id != dump_) return false;
  state_ = State::kReceiving;
  commit_open_ = false;
  next_ = RelayTable();
  return true;
}

bool Resync::CompleteDump(std::uint32_t id) {
  if (state_ != State::kReceiving || id != dump_) return false;
  state_ = State::kInSync;
  ++dumps_;
  UseNext();
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
