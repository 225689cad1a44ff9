#include "src/dhcp_relay_app/cdb_change.h"

namespace dhcp_relay_app {

const std::map<int, std::string> kIterOpNames = {
    {MOP_CREATED, "MOP_CREATED"},         {MOP_DELETED, "MOP_DELETED"},
    {MOP_MODIFIED, "MOP_MODIFIED"},       {MOP_VALUE_SET, "MOP_VALUE_SET"},
    {MOP_MOVED_AFTER, "MOP_MOVED_AFTER"}, {MOP_ATTR_SET, "MOP_ATTR_SET"}};

confd_value_t* InnermostTag(confd_hkeypath_t* kp) {
  for (int i = 0; i < kp->len; ++i) {
    if (kp->v[i][0].type == C_XMLTAG) return &kp->v[i][0];
  }
  return nullptr;
}

}  // namespace dhcp_relay_app
