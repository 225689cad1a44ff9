#include "platform/vxmidware/src/watched_flag.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace vxmw {

bool WatchedFlag::IsThere(const Watch& watch) const {
  return std::find(watches_.begin(), watches_.end(), watch) != watches_.end();
}

void WatchedFlag::Set(bool value) {
  if (std::exchange(value_, value) == value) return;
  // A copy, because a watch may add and remove watches.
  const auto watches = watches_;
  for (const auto& watch : watches) {
    if (value_ != value) return;  // a watch changed it; the others have been called
    if (IsThere(watch)) (*watch)(value);
  }
}

WatchedFlag::Watch WatchedFlag::Add(std::function<void(bool)> callback) {
  watches_.push_back(std::make_shared<const std::function<void(bool)>>(std::move(callback)));
  return watches_.back();
}

}  // namespace vxmw
