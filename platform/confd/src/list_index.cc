#include "platform/confd/src/list_index.h"

#include <libyang/libyang.h>

#include <bit>

#include "platform/confd/src/hash.h"

namespace confd {
namespace {

constexpr std::size_t kSmallList = 8;  // entries that are faster walked than looked up

// Also the hash of the keys' texts with a blank between two of them.
std::uint32_t HashKeys(const lyd_node* entry) {
  Fnv1a hash;
  const lyd_node* first = lyd_child(entry);
  for (const lyd_node* key = first; key != nullptr && lysc_is_key(key->schema); key = key->next) {
    if (key != first) hash.Add(' ');
    hash.Add(lyd_get_value(key));
  }
  return hash.value();
}

}  // namespace

const lyd_node* NextEntry(const lyd_node* entry) {
  const lyd_node* next = entry->next;
  return next != nullptr && next->schema == entry->schema ? next : nullptr;
}

bool HasKeys(const lyd_node* entry, std::string_view keys) {
  const lyd_node* first = lyd_child(entry);
  for (const lyd_node* key = first; key != nullptr && lysc_is_key(key->schema); key = key->next) {
    if (key != first) {
      if (!keys.starts_with(' ')) return false;
      keys.remove_prefix(1);
    }
    const std::string_view text = lyd_get_value(key);
    if (!keys.starts_with(text)) return false;
    keys.remove_prefix(text.size());
  }
  return keys.empty();
}

ListIndex::ListIndex(const lyd_node* first) {
  for (const lyd_node* entry = first; entry != nullptr; entry = NextEntry(entry)) {
    entries_.push_back(entry);
  }
}

const lyd_node* ListIndex::At(std::size_t position) const {
  return position < entries_.size() ? entries_[position] : nullptr;
}

void ListIndex::BuildSlots() {
  std::vector<std::uint32_t> slots(std::bit_ceil(2 * entries_.size()), 0);
  const std::size_t mask = slots.size() - 1;
  for (std::uint32_t i = 0; i < entries_.size(); ++i) {
    std::size_t slot = HashKeys(entries_[i]) & mask;
    while (slots[slot] != 0) slot = (slot + 1) & mask;
    slots[slot] = i + 1;
  }
  slots_ = std::move(slots);
}

const lyd_node* ListIndex::Find(std::string_view keys) {
  if (slots_.empty()) BuildSlots();
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t slot = HashText(keys) & mask; slots_[slot] != 0; slot = (slot + 1) & mask) {
    const lyd_node* entry = entries_[slots_[slot] - 1];
    if (HasKeys(entry, keys)) return entry;
  }
  return nullptr;
}

ListIndex& ListIndexes::IndexOf(const lyd_node* first) {
  return indexes_.try_emplace(first, first).first->second;
}

std::size_t ListIndexes::Count(const lyd_node* first) {
  std::size_t count = 0;
  for (const lyd_node* entry = first; entry != nullptr; entry = NextEntry(entry)) {
    if (++count > kSmallList) return IndexOf(first).size();
  }
  return count;
}

const lyd_node* ListIndexes::At(const lyd_node* first, std::size_t position) {
  if (position >= kSmallList) return first != nullptr ? IndexOf(first).At(position) : nullptr;
  for (; first != nullptr && position > 0; --position) first = NextEntry(first);
  return first;
}

const lyd_node* ListIndexes::Find(const lyd_node* first, std::string_view keys) {
  if (first == nullptr || HasKeys(first, keys)) return first;
  const lyd_node* entry = NextEntry(first);
  if (entry == nullptr) return nullptr;
  if (const auto known = indexes_.find(first); known != indexes_.end()) {
    return known->second.Find(keys);
  }
  for (std::size_t i = 1; entry != nullptr && i < kSmallList; ++i, entry = NextEntry(entry)) {
    if (HasKeys(entry, keys)) return entry;
  }
  return entry != nullptr ? IndexOf(first).Find(keys) : nullptr;
}

}  // namespace confd
