// Any bytes as what daemons say to the manager. Input: packets, each after its size in two bytes,
// the low one first. Where the manager would close the connection, the next packet comes from a
// daemon that has just connected.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "base/descriptor.h"
#include "base/packet_socket.h"
#include "dhcp_manager/control/config_session.h"
#include "dhcp_manager/control/table_answer.h"
#include "dhcp_manager/table/journal.h"
#include "dhcp_manager/table/relay_table.h"
#include "dhcp_manager/table/resync.h"
#include "protocol/control/control.pb.h"
#include "protocol/wire/wire.h"
#include "tests/fuzz/require.h"

namespace {

namespace wire = dhcp_relay::wire;
using dhcp_manager::ConfigSession;
using dhcp_manager::Instance;
using dhcp_manager::Journal;
using dhcp_manager::RelayTable;
using dhcp_manager::Resync;
using dhcp_manager::Settings;
using dhcp_relay::wire::Call;
using fuzz::Require;

constexpr std::size_t kSizeBytes = 2;

// A journal in memory, emptied for every input.
class JournalFile {
 public:
  JournalFile() : fd_(mkstemp(name_.data())), journal_(name_.data()) { unlink(name_.data()); }

  Journal& journal() { return journal_; }

  std::string Take() {
    journal_.Flush();
    std::string text(static_cast<std::size_t>(lseek(fd_.get(), 0, SEEK_END)), '\0');
    const ssize_t got = pread(fd_.get(), text.data(), text.size(), 0);
    Require(got == static_cast<ssize_t>(text.size()), "the journal can be read");
    Require(ftruncate(fd_.get(), 0) == 0, "the journal can be emptied");
    return text;
  }

 private:
  std::array<char, 32> name_{"/dev/shm/vxf.XXXXXX"};
  base::Descriptor fd_;
  Journal journal_;
};

bool IsName(const std::string& name) { return !name.empty() && name.size() <= 255; }

// What an operation takes besides the instance's name.
struct Takes {
  bool name;
  Call::ValueCase value;
};

// By the operation's number.
const std::map<int, Takes> kTakes{
    {1, {false, Call::kAddress}},      {2, {false, Call::kAddress}},
    {3, {false, Call::VALUE_NOT_SET}}, {4, {true, Call::VALUE_NOT_SET}},
    {5, {true, Call::kAddress}},       {6, {false, Call::kIdentifier}},
    {7, {true, Call::kVlan}},          {8, {true, Call::kVlan}},
    {9, {true, Call::VALUE_NOT_SET}},  {10, {false, Call::kFlag}},
    {11, {false, Call::kFlag}},        {12, {false, Call::kFlag}},
    {13, {false, Call::kPolicy}},      {14, {true, Call::VALUE_NOT_SET}},
    {15, {true, Call::VALUE_NOT_SET}}, {16, {true, Call::kFlag}},
    {17, {true, Call::kFlag}},         {18, {true, Call::kFlag}},
    {19, {true, Call::kPolicy}}};

bool IsCall(const Call& call) {
  const auto takes = kTakes.find(call.operation());
  return takes != kTakes.end() && IsName(call.instance()) &&
         (takes->second.name ? IsName(call.name()) : call.name().empty()) &&
         takes->second.value == call.value_case() && call.policy() <= 2 && call.vlan() <= 0xFFFF;
}

void CheckSettings(const Settings& settings) {
  Require(!settings.policy || *settings.policy == wire::Policy::kDrop ||
              *settings.policy == wire::Policy::kKeep || *settings.policy == wire::Policy::kReplace,
          "a policy is one of three");
}

void CheckInstance(const std::string& name, const Instance& instance) {
  Require(IsName(name), "an instance has a name");
  Require(instance.vrf != 0U, "no VRF is none");
  CheckSettings(instance.settings);
  for (const auto& [if_name, interface] : instance.interfaces) {
    Require(IsName(if_name), "an interface has a name");
  }
  for (const auto& [if_name, settings] : instance.overrides) {
    Require(IsName(if_name), "an override has a name");
    CheckSettings(settings);
  }
}

// How much an operator is told of an instance, whatever number of replies that takes.
struct Size {
  int servers = 0;
  int interfaces = 0;
  int overrides = 0;

  bool operator==(const Size&) const = default;
};

std::map<std::string, Size> Told(const Resync& resync) {
  std::map<std::string, Size> told;
  dhcp_manager::TableAnswer answer(resync);
  while (!answer.complete()) {
    const std::string packet = answer.Next();
    dhcp_relay::control::Reply reply;
    Require(packet.size() <= base::kMaxPacketSize, "a reply fits into a packet");
    Require(reply.ParseFromString(packet), "a reply can be read");
    Require(reply.last() == answer.complete(), "the last reply says so");
    for (const auto& instance : reply.instances()) {
      Size& size = told[instance.name()];
      size.servers += instance.servers_size();
      size.interfaces += instance.interfaces_size();
      size.overrides += instance.overrides_size();
    }
  }
  return told;
}

void CheckTable(const Resync& resync) {
  std::map<std::string, Size> expected;
  for (const auto& [name, instance] : resync.table().instances()) {
    CheckInstance(name, instance);
    expected[name] = {.servers = static_cast<int>(instance.servers.size()),
                      .interfaces = static_cast<int>(instance.interfaces.size()),
                      .overrides = static_cast<int>(instance.overrides.size())};
  }
  Require(Told(resync) == expected, "an operator is told the whole table");
}

// The manager, and beside it what it must have come to.
class Manager {
 public:
  explicit Manager(JournalFile& journal) : journal_(journal) { Connect(); }

  void Receive(std::span<const std::uint8_t> packet) {
    wire::ClientMessage message;
    if (!message.ParseFromArray(packet.data(), static_cast<int>(packet.size()))) {
      Reconnect();
      return;
    }
    const bool is_right = Expect(message);
    try {
      const auto answer = session_->Handle(message);
      Require(is_right, "what is wrong is refused");
      Require(answer.has_value() == message.has_hello(), "a greeting and nothing else is answered");
      if (answer) asked_ = answer->dump_request().id();
    } catch (const base::ConnectionError& error) {
      Require(!is_right, "what is right is taken");
      Require(error.what() != std::string(), "a refusal says why");
      Reconnect();
    }
    Require(resync_.table() == table_, "the table in use is the one expected");
  }

  void Finish() {
    Require(resync_.calls() == calls_, "every call before a fault counts");
    Require(journal_.Take() == lines_, "every call has its line");
    CheckTable(resync_);
  }

 private:
  void Connect() {
    session_.emplace(resync_, journal_.journal());
    asked_.reset();
    dump_.reset();
    commit_.reset();
  }

  void Reconnect() {
    resync_.Disconnected();
    Connect();
    Require(!resync_.outstanding(), "a dump ends with its connection");
  }

  // Whether the message has its place here; carries out what there is to.
  bool Expect(const wire::ClientMessage& message) {
    if (message.has_hello()) return !asked_ && message.hello().version() == 1;
    if (message.has_calls()) return asked_ && ExpectCalls(message.calls());
    if (message.has_dump_begin()) return ExpectBegin(message.dump_begin().id());
    if (message.has_commits_pending()) return asked_ && completed_ == asked_;
    return message.has_dump_complete() && ExpectComplete(message.dump_complete().id());
  }

  bool ExpectCalls(const wire::Calls& calls) {
    if (calls.commit_continues() && !commit_) commit_ = table_;
    for (const Call& call : calls.calls()) {
      if (!IsCall(call)) return false;
      Building().Apply(call);
      lines_ += dhcp_manager::JournalLine(call) + "\n";
      ++calls_;
    }
    if (!calls.commit_continues()) EndCommit();
    return true;
  }

  RelayTable& Building() {
    if (dump_) return *dump_;
    return commit_ ? *commit_ : table_;
  }

  void EndCommit() {
    if (commit_ && !dump_) table_ = *commit_;
    commit_.reset();
  }

  bool ExpectBegin(std::uint32_t id) {
    if (asked_ != id || dump_ || completed_ == id) return false;
    dump_.emplace();
    commit_.reset();
    return true;
  }

  bool ExpectComplete(std::uint32_t id) {
    if (asked_ != id || !dump_) return false;
    table_ = *dump_;
    dump_.reset();
    commit_.reset();
    completed_ = id;
    return true;
  }

  JournalFile& journal_;
  Resync resync_;
  std::optional<ConfigSession> session_;

  std::optional<std::uint32_t> asked_;      // the dump asked for on this connection
  std::optional<std::uint32_t> completed_;  // the latest that was complete
  std::optional<RelayTable> dump_;          // while it comes in
  std::optional<RelayTable> commit_;        // while one of several packets comes in
  RelayTable table_;
  std::string lines_;
  std::uint64_t calls_ = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static JournalFile journal;
  Manager manager(journal);
  std::span<const std::uint8_t> rest(data, size);
  while (rest.size() >= kSizeBytes) {
    const std::size_t wanted = rest[0] + (std::size_t{rest[1]} << 8U);
    rest = rest.subspan(kSizeBytes);
    const auto packet = rest.first(std::min(wanted, rest.size()));
    manager.Receive(packet);
    rest = rest.subspan(packet.size());
  }
  manager.Finish();
  return 0;
}
