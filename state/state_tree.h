// The state of the relay as a libyang tree.

#ifndef STATE_STATE_TREE_H_
#define STATE_STATE_TREE_H_

#include <libyang/libyang.h>

#include <memory>

#include "protocol/control/client.h"

namespace state {

inline constexpr char kStateModule[] = "vx-dhcp-relay-state";
inline constexpr char kStatePath[] = "/vx-dhcp-relay-state:dhcp-relay-state";

struct TreeDeleter {
  void operator()(lyd_node* tree) const { lyd_free_all(tree); }
};
using Tree = std::unique_ptr<lyd_node, TreeDeleter>;

// A tree of the module in `context`, which must outlive it. Outcomes that the module does not know
// are left out. Throws std::runtime_error when the module does not know the rest.
Tree MakeStateTree(const ly_ctx* context, const dhcp_relay::control::Status& status,
                   const dhcp_relay::control::RelayState& relay);

}  // namespace state

#endif  // STATE_STATE_TREE_H_
