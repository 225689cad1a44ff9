// What the relaying is doing, as a libyang tree.

#ifndef STATE_STATE_TREE_H_
#define STATE_STATE_TREE_H_

#include <libyang/libyang.h>

#include "protocol/control/client.h"

namespace state {

inline constexpr char kStateModule[] = "vx-dhcp-relay-state";
inline constexpr char kStatePath[] = "/vx-dhcp-relay-state:dhcp-relay-state";

// A new tree for the caller to free, made with the module of `context`. Throws std::runtime_error
// when the module there is another than this one writes.
lyd_node* MakeStateTree(const ly_ctx* context, const dhcp_relay::control::Status& status,
                        const dhcp_relay::control::RelayState& relaying);

}  // namespace state

#endif  // STATE_STATE_TREE_H_
