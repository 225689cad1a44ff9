#include "tests/fuzz/relay_model.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace fuzz {
namespace {

using dhcp_manager::RelayParameters;
using dhcp_manager::ReplyResult;
using dhcp_manager::RequestResult;
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

bool IsInformation(const Bytes& piece) { return piece[0] == 82; }

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

bool HasInformation(const Options& options) {
  return std::any_of(options.pieces.begin(), options.pieces.end(), IsInformation);
}

Options WithoutInformation(Options options) {
  std::erase_if(options.pieces, IsInformation);
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
  bool HasInformationAnywhere() {
    bool has = false;
    ForEach([&](const Options& place) { has = has || HasInformation(place); });
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
std::optional<Bytes> PutWithOurs(const RelayParameters& port, Message message, std::size_t size,
                                 std::size_t capacity) {
  const Bytes header{82, static_cast<std::uint8_t>(port.information.size())};
  message.options->pieces.push_back(header + port.information);
  message.options->rest = WithoutZerosAtTheEnd(message.options->rest);
  if (message.options->rest.empty()) message.options->rest = {255};
  Bytes bytes = Put(message, size);
  return bytes.size() <= capacity ? std::optional(bytes) : std::nullopt;
}

bool IsNoRelay(const Bytes& giaddr) { return giaddr[0] == 127 || giaddr[0] >= 224; }

std::uint32_t Packed(const Bytes& address) {
  in_addr packed{};
  std::copy(address.begin(), address.end(), reinterpret_cast<std::uint8_t*>(&packed));
  return packed.s_addr;
}

void SetGiaddr(nettypes::IPv4Addr address, Bytes& head) {
  const in_addr packed = address.to_in_addr();
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&packed);
  std::copy(bytes, bytes + sizeof(packed), head.begin() + 24);
}

}  // namespace

RequestOutcome ModelRequest(const RelayParameters& port,
                            const std::unordered_set<std::uint32_t>& own_addresses,
                            std::size_t capacity, const Bytes& bytes) {
  auto message = Take(bytes, 1);
  if (!message) return {RequestResult::kMalformed, {}};
  bool whole = true;
  message->ForEach([&](const Options& place) { whole = whole && place.whole; });
  const Bytes giaddr = Slice(bytes, 24, 28);
  if (!whole || IsNoRelay(giaddr)) return {RequestResult::kMalformed, {}};
  if (bytes[3] > 16) return {RequestResult::kHops, {}};
  const bool first = giaddr == Bytes(4);
  if (!first && own_addresses.contains(Packed(giaddr))) return {RequestResult::kOwnGiaddr, {}};
  const bool there = message->HasInformationAnywhere();
  if (there && first && !port.trusted) return {RequestResult::kUntrusted, {}};
  if (there && port.option && port.policy == Policy::kDrop) return {RequestResult::kPolicyDrop, {}};

  ++message->head[3];
  if (first) SetGiaddr(port.giaddr, message->head);
  const bool replace = there && port.option && port.policy == Policy::kReplace;
  const bool add = !there && first && port.option && message->options;
  if (replace) message->ForEach([](Options& place) { place = WithoutInformation(place); });
  if (!replace && !add) return {RequestResult::kRelay, Put(*message, 0)};
  if (auto out = PutWithOurs(port, *message, bytes.size(), capacity)) {
    return {RequestResult::kRelay, *out, true};
  }
  return {RequestResult::kRelayNoRoom, Put(*message, bytes.size())};
}

ReplyOutcome ModelReply(const RelayParameters& port, const Bytes& bytes) {
  auto message = Take(bytes, 2);
  if (!message) return {ReplyResult::kMalformed, {}};
  // The overloaded fields of a reply are the client's business.
  message->file_options.reset();
  message->sname_options.reset();
  if (message->options && !message->options->whole) return {ReplyResult::kMalformed, {}};
  Bytes information;
  if (message->options) {
    for (const Bytes& piece : message->options->pieces) {
      if (IsInformation(piece))
        information = std::move(information) + Slice(piece, 2, piece.size());
    }
  }
  const bool there = message->HasInformationAnywhere();
  const bool ours = there && information == port.information;
  if (port.check && port.option) {
    if (!there) return {ReplyResult::kNoInformation, {}};
    if (!ours) return {ReplyResult::kForeignInformation, {}};
  }
  if (!ours) return {ReplyResult::kRelay, bytes};
  message->options = WithoutInformation(*message->options);
  return {ReplyResult::kRelay, Put(*message, std::min<std::size_t>(bytes.size(), 300))};
}

Bytes OptionsWithoutInformation(const Bytes& bytes) {
  const auto message = Take(bytes, bytes[0]);
  if (!message || !message->options) return {};
  Options options = WithoutInformation(*message->options);
  if (options.rest.empty()) options.rest = {255};
  return WithoutZerosAtTheEnd(Joined(options));
}

}  // namespace fuzz
