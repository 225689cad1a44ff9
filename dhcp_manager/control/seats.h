// Who may hold a connection to the control socket: so many for each user, and so many for all users
// together but root, who always finds one.

#ifndef DHCP_MANAGER_CONTROL_SEATS_H_
#define DHCP_MANAGER_CONTROL_SEATS_H_

#include <sys/types.h>

#include <cstddef>
#include <map>

namespace dhcp_manager {

class Seats {
 public:
  static constexpr std::size_t kPerUser = 16;
  static constexpr std::size_t kOfOthers = 32;  // of all users but root

  // Whether there is a seat for that user; takes it.
  bool Take(uid_t user) {
    const auto mine = taken_.find(user);
    if (mine != taken_.end() && mine->second == kPerUser) return false;
    if (user != kRoot && others_ == kOfOthers) return false;
    if (user != kRoot) ++others_;
    ++taken_[user];
    return true;
  }

  // Gives back a seat that was taken.
  void Leave(uid_t user) {
    if (user != kRoot) --others_;
    const auto mine = taken_.find(user);
    if (--mine->second == 0) taken_.erase(mine);
  }

 private:
  static constexpr uid_t kRoot = 0;

  std::map<uid_t, std::size_t> taken_;
  std::size_t others_ = 0;
};

}  // namespace dhcp_manager

#endif  // DHCP_MANAGER_CONTROL_SEATS_H_
