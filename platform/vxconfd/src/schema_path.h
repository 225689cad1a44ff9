// Schema paths without keys or prefixes, as subscription points have them.

#ifndef PLATFORM_VXCONFD_SRC_SCHEMA_PATH_H_
#define PLATFORM_VXCONFD_SRC_SCHEMA_PATH_H_

#include <string_view>

struct ly_ctx;
struct lysc_node;

namespace vxconfd {

// The top-level node that the path begins with; null when the models do not know the whole path.
const lysc_node* FindTopOf(const ly_ctx* context, std::string_view path);

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_SCHEMA_PATH_H_
