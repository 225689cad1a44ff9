#include "platform/vxconfd/src/schema_path.h"

#include <libyang/libyang.h>

namespace vxconfd {
namespace {

const lysc_node* FindChild(const lysc_node* parent, const lysc_module* module,
                           std::string_view name) {
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, parent, module, 0)) != nullptr) {
    if (name == child->name) return child;
  }
  return nullptr;
}

const lysc_node* FindTopLevel(const ly_ctx* context, std::string_view name) {
  std::uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    if (module->compiled == nullptr) continue;
    if (const lysc_node* node = FindChild(nullptr, module->compiled, name)) return node;
  }
  return nullptr;
}

}  // namespace

const lysc_node* FindTopOf(const ly_ctx* context, std::string_view path) {
  const lysc_node* top = nullptr;
  const lysc_node* node = nullptr;
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    node = node == nullptr ? FindTopLevel(context, name) : FindChild(node, nullptr, name);
    if (node == nullptr) return nullptr;
    if (top == nullptr) top = node;
    path.remove_prefix(name.size());
  }
  return top;
}

}  // namespace vxconfd
