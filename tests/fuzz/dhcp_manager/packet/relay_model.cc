#include "tests/fuzz/dhcp_manager/packet/relay_model.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace fuzz {
namespace {

using dhcp_manager::RelayParameters;
using dhcp_relay::control::ReplyOutcome;
using dhcp_relay::control::RequestOutcome;
using dhcp_relay::wire::Policy;

Bytes Slice(const Bytes& bytes, std::size_t from, std::size_t to) {
  return {bytes.begin() + static_cast<std::ptrdiff_t>(from),
          bytes.begin() + static_cast<std::ptrdiff_t>(to)};
}

Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

Bytes WithoutZerosAtTheEnd(Bytes bytes) {
  while (!bytes.empty() && bytes.back() == 0) bytes.pop_back();
  return bytes;
}

// At least `size` bytes, with zeros.
Bytes Filled(Bytes bytes, std::size_t size) {
  bytes.resize(std::max(bytes.size(), size));
  return bytes;
}

bool IsOption82(const Bytes& piece) { return piece[0] == 82; }

// A place for options.
struct Options {
  std::vector<Bytes> pieces;  // options, and zeros between them
  bool whole = true;
  Bytes rest;  // End and what follows; empty without an End
};

Options Split(const Bytes& bytes) {
  Options options;
  std::size_t at = 0;
  while (at < bytes.size()) {
    if (bytes[at] == 255) {
      options.rest = Slice(bytes, at, bytes.size());
      break;
    }
    std::size_t size = 1;
    if (bytes[at] != 0) size = at + 1 < bytes.size() ? bytes[at + 1] + std::size_t{2} : 2;
    if (at + size > bytes.size()) {
      options.whole = false;
      break;
    }
    options.pieces.push_back(Slice(bytes, at, at + size));
    at += size;
  }
  return options;
}

bool HasOption82(const Options& options) {
  return std::any_of(options.pieces.begin(), options.pieces.end(), IsOption82);
}

Options WithoutOption82(Options options) {
  std::erase_if(options.pieces, IsOption82);
  return options;
}

Bytes Joined(const Options& options) {
  Bytes bytes;
  for (const Bytes& piece : options.pieces) bytes = std::move(bytes) + piece;
  return std::move(bytes) + options.rest;
}

// The four places of a message: the field `file` and the field `sname` hold options only if an
// option says so.
struct Message {
  Bytes head;  // up to sname
  Bytes sname;
  Bytes file;
  Bytes tail;  // what follows file, without a cookie
  std::optional<Options> options;
  std::optional<Options> file_options;
  std::optional<Options> sname_options;

  template <typename Visit>
  void ForEach(Visit visit) {
    for (auto* place : {&options, &file_options, &sname_options}) {
      if (*place) visit(**place);
    }
  }
  bool HasRelayAgentInformation() {
    bool has = false;
    ForEach([&](const Options& place) { has = has || HasOption82(place); });
    return has;
  }
};

const Bytes kCookie{99, 130, 83, 99};

std::optional<Message> Take(const Bytes& bytes, std::uint8_t op) {
  if (bytes.size() < 236 || bytes[0] != op || bytes[2] > 16) return std::nullopt;
  Message message{.head = Slice(bytes, 0, 44),
                  .sname = Slice(bytes, 44, 108),
                  .file = Slice(bytes, 108, 236),
                  .tail = Slice(bytes, 236, bytes.size()),
                  .options = {},
                  .file_options = {},
                  .sname_options = {}};
  if (message.tail.size() < 4 || Slice(message.tail, 0, 4) != kCookie) return message;
  message.options = Split(Slice(message.tail, 4, message.tail.size()));
  for (const Bytes& piece : message.options->pieces) {
    if (piece[0] != 52 || piece.size() < 3) continue;
    if (piece[2] % 2 == 1) message.file_options = Split(message.file);
    if (piece[2] / 2 % 2 == 1) message.sname_options = Split(message.sname);
  }
  return message;
}

Bytes Put(const Message& message, std::size_t size) {
  const auto& file = message.file_options;
  const auto& sname = message.sname_options;
  return Filled(message.head + (sname ? Filled(Joined(*sname), 64) : message.sname) +
                    (file ? Filled(Joined(*file), 128) : message.file) +
                    (message.options ? kCookie + Joined(*message.options) : message.tail),
                size);
}

// Ours comes last; nothing if that gets longer than `capacity`.
std::optional<Bytes> PutWithOurs(const RelayParameters& interface, Message message,
                                 std::size_t size, std::size_t capacity) {
  const Bytes header{82, static_cast<std::uint8_t>(interface.relay_agent_information.size())};
  message.options->pieces.push_back(header + interface.relay_agent_information);
  message.options->rest = WithoutZerosAtTheEnd(message.options->rest);
  if (message.options->rest.empty()) message.options->rest = {255};
  Bytes bytes = Put(message, size);
  return bytes.size() <= capacity ? std::optional(bytes) : std::nullopt;
}

bool IsNoRelay(const Bytes& giaddr) { return giaddr[0] == 127 || giaddr[0] >= 224; }

std::uint32_t Number(const Bytes& address) {
  std::uint32_t number = 0;
  for (const std::uint8_t byte : address) number = number << 8 | byte;
  return number;
}

void SetGiaddr(nettypes::IPv4Addr address, Bytes& head) {
  const in_addr packed = address.to_in_addr();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&packed);
  std::copy(bytes, bytes + sizeof(packed), head.begin() + 24);
}

}  // namespace

ModelledRequest ModelRequest(const RelayParameters& interface,
                             const dhcp_manager::AddressSet& own_addresses, std::size_t capacity,
                             const Bytes& bytes) {
  auto message = Take(bytes, 1);
  if (!message) return {{RequestOutcome::kMalformed}, {}};
  bool whole = true;
  message->ForEach([&](const Options& place) { whole = whole && place.whole; });
  const Bytes giaddr = Slice(bytes, 24, 28);
  if (!whole || IsNoRelay(giaddr)) return {{RequestOutcome::kMalformed}, {}};
  if (bytes[3] > 16) return {{RequestOutcome::kTooManyHops}, {}};
  const bool first = giaddr == Bytes(4);
  if (!first && own_addresses.contains(Number(giaddr))) return {{RequestOutcome::kOwnGiaddr}, {}};
  if (!first && interface.drop_foreign_giaddr && !interface.trusted) {
    return {{RequestOutcome::kForeignGiaddr}, {}};
  }
  const bool there = message->HasRelayAgentInformation();
  if (there && first && !interface.trusted) return {{RequestOutcome::kUntrustedOption}, {}};
  if (there && interface.option && interface.policy == Policy::kDrop)
    return {{RequestOutcome::kPolicyDrop}, {}};

  ++message->head[3];
  if (first) SetGiaddr(interface.giaddr, message->head);
  const bool replace = there && interface.option && interface.policy == Policy::kReplace;
  const bool add = !there && first && interface.option && message->options;
  if (replace) message->ForEach([](Options& place) { place = WithoutOption82(place); });
  if (!replace && !add) return {{RequestOutcome::kRelayed}, Put(*message, 0)};
  if (auto out = PutWithOurs(interface, *message, bytes.size(), capacity)) {
    return {{RequestOutcome::kRelayed}, *out, true};
  }
  return {{RequestOutcome::kRelayed, true}, Put(*message, bytes.size())};
}

ModelledReply ModelReply(const RelayParameters& interface, const Bytes& bytes) {
  auto message = Take(bytes, 2);
  if (!message) return {ReplyOutcome::kMalformed, {}};
  // The overloaded fields of a reply are the client's business.
  message->file_options.reset();
  message->sname_options.reset();
  if (message->options && !message->options->whole) return {ReplyOutcome::kMalformed, {}};
  Bytes value;
  if (message->options) {
    for (const Bytes& piece : message->options->pieces) {
      if (IsOption82(piece)) value = std::move(value) + Slice(piece, 2, piece.size());
    }
  }
  const bool there = message->HasRelayAgentInformation();
  const bool ours = there && value == interface.relay_agent_information;
  if (interface.check && interface.option) {
    if (!there) return {ReplyOutcome::kNoOption, {}};
    if (!ours) return {ReplyOutcome::kForeignOption, {}};
  }
  if (!ours) return {ReplyOutcome::kRelayed, bytes};
  message->options = WithoutOption82(*message->options);
  return {ReplyOutcome::kRelayed, Put(*message, std::min<std::size_t>(bytes.size(), 300))};
}

Bytes OptionsWithoutRelayAgent(const Bytes& bytes) {
  const auto message = Take(bytes, bytes[0]);
  if (!message || !message->options) return {};
  Options options = WithoutOption82(*message->options);
  if (options.rest.empty()) options.rest = {255};
  return WithoutZerosAtTheEnd(Joined(options));
}

}  // namespace fuzz
