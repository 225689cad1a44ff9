#include "dhcp_manager/packet/dhcp_message.h"

namespace dhcp_manager::message {

bool IsDiscover(const std::uint8_t* data, std::size_t size) {
  if (!HasOptions(data, size)) return false;
  bool found = false;
  std::uint8_t overload = 0;
  const auto look = [&](std::uint8_t code, std::size_t position, std::size_t length) {
    if (length == 0) return;
    const std::uint8_t value = data[position + kOptionHeader];
    if (code == kMessageType && value == kDiscover) found = true;
    if (code == kOverload) overload |= value;
  };
  static_cast<void>(WalkOptions(data, kOptions, size, look));
  if ((overload & kFileBit) != 0) static_cast<void>(WalkOptions(data, kFile, kVend, look));
  if ((overload & kSnameBit) != 0) static_cast<void>(WalkOptions(data, kSname, kFile, look));
  return found;
}

std::size_t RemoveRelayAgentInformation(std::uint8_t* data, std::size_t from, std::size_t to) {
  std::size_t write = from;
  std::size_t read = from;
  // Bytes are moved while the walk is under way: it never reads behind `read`, and `write` never
  // overtakes `read`.
  const OptionsEnd end =
      WalkOptions(data, from, to, [&](std::uint8_t code, std::size_t position, std::size_t length) {
        if (code != kRelayAgentInformation) return;
        std::memmove(data + write, data + read, position - read);
        write += position - read;
        read = position + kOptionHeader + length;
      });
  static_cast<void>(end);
  std::memmove(data + write, data + read, to - read);
  const std::size_t freed = read - write;
  std::memset(data + to - freed, kPad, freed);
  return freed;
}

}  // namespace dhcp_manager::message
