#include "dhcp_manager/datapath/client_guard.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <random>
#include <string_view>

namespace dhcp_manager {
namespace {

std::uint64_t DrawSecret() {
  std::random_device device;
  return std::uniform_int_distribution<std::uint64_t>()(device);
}

}  // namespace

ClientGuard::ClientGuard(base::RateLimit limit)
    : limit_(limit),
      secret_(DrawSecret()),
      entries_(kSets * kWays, Entry{.key = {}, .last = {}, .bucket = {limit, {}}}) {}

bool ClientGuard::Take(int link, std::span<const std::uint8_t> address, Clock::time_point now) {
  const Key key = KeyOf(link, address);
  const auto set = SetOf(key);
  auto entry = std::ranges::find(set, key, &Entry::key);
  if (entry == set.end()) {
    entry = std::ranges::min_element(set, {}, &Entry::last);
    *entry = {.key = key, .last = now, .bucket = {limit_, now}};
  }
  entry->last = now;
  return entry->bucket.Take(now);
}

ClientGuard::Key ClientGuard::KeyOf(int link, std::span<const std::uint8_t> address) {
  Key key{};
  std::memcpy(key.data(), &link, sizeof(link));
  key[sizeof(link)] = static_cast<std::uint8_t>(address.size());
  std::ranges::copy(address, key.begin() + sizeof(link) + 1);
  return key;
}

std::span<ClientGuard::Entry, ClientGuard::kWays> ClientGuard::SetOf(const Key& key) {
  std::array<char, sizeof(secret_) + std::tuple_size_v<Key>> hashed{};
  std::memcpy(hashed.data(), &secret_, sizeof(secret_));
  std::memcpy(hashed.data() + sizeof(secret_), key.data(), key.size());
  const std::size_t hash = std::hash<std::string_view>()({hashed.data(), hashed.size()});
  return std::span<Entry, kWays>(&entries_[hash % kSets * kWays], kWays);
}

}  // namespace dhcp_manager
