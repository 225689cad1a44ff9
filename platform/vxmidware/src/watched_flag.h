// A flag that one part of the platform sets and others watch.

#ifndef PLATFORM_VXMIDWARE_SRC_WATCHED_FLAG_H_
#define PLATFORM_VXMIDWARE_SRC_WATCHED_FLAG_H_

#include <functional>
#include <list>
#include <memory>

namespace vxmw {

class WatchedFlag {
 public:
  using Watch = std::shared_ptr<const std::function<void(bool)>>;

  bool value() const { return value_; }

  // Calls every watch when the value changes. A watch may add and remove watches, and set the flag;
  // what it throws reaches the caller.
  void Set(bool value);

  Watch Add(std::function<void(bool)> callback);
  void Remove(const Watch& watch) { watches_.remove(watch); }

 private:
  bool IsThere(const Watch& watch) const;

  bool value_ = false;
  std::list<Watch> watches_;
};

}  // namespace vxmw

#endif  // PLATFORM_VXMIDWARE_SRC_WATCHED_FLAG_H_
