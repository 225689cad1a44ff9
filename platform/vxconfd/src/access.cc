#include "platform/vxconfd/src/access.h"

#include <libyang/libyang.h>
#include <pwd.h>
#include <unistd.h>

#include <memory>

namespace vxconfd {
namespace {

struct SetDeleter {
  void operator()(ly_set* set) const { ly_set_free(set, nullptr); }
};

// The datastore keeps a node in the module of its top-level ancestor.
const char* OwnerOf(const lysc_node* node) {
  while (node->parent != nullptr) node = node->parent;
  return node->module->name;
}

LY_ERR AddTargets(lysc_node* node, void* modules, ly_bool* /*skip_children*/) {
  const bool is_value = (node->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0;
  if (!is_value || (node->flags & LYS_CONFIG_W) == 0) return LY_SUCCESS;
  ly_set* found = nullptr;
  const LY_ERR result = lysc_node_lref_targets(node, &found);
  const std::unique_ptr<ly_set, SetDeleter> targets(found);
  for (std::uint32_t i = 0; result == LY_SUCCESS && targets && i < targets->count; ++i) {
    static_cast<Modules*>(modules)->insert(OwnerOf(targets->snodes[i]));
  }
  return LY_SUCCESS;
}

// The modules that the configuration in these modules refers to.
Modules Referenced(const ly_ctx* models, const Modules& modules) {
  Modules referenced;
  for (const std::string& name : modules) {
    const lys_module* module = ly_ctx_get_module_implemented(models, name.c_str());
    if (module != nullptr) lysc_module_dfs_full(module, AddTargets, &referenced);
  }
  return referenced;
}

const char* NameOf(sr_datastore_t datastore) {
  return datastore == SR_DS_OPERATIONAL ? "operational" : "running";
}

// Why the account may not do this; empty when it may.
std::string Denial(sr_conn_ctx_t* connection, const Access& access) {
  int read = 0;
  int write = 0;
  Check(
      sr_check_module_ds_access(connection, access.module.c_str(), access.datastore, &read, &write),
      "cannot find out the rights on the module " + access.module);
  const std::string where =
      " module " + access.module + " in the " + NameOf(access.datastore) + " datastore";
  if (read == 0) return "read" + where;
  // The datastore lets only those subscribe who may write.
  const bool denied = access.right == Access::Right::kSubscribe && write == 0;
  return denied ? "subscribe to" + where + ", which takes the right to write" : std::string();
}

std::string Account() {
  const uid_t id = geteuid();
  const passwd* entry = getpwuid(id);
  const std::string number = "uid " + std::to_string(id);
  return entry != nullptr ? std::string(entry->pw_name) + " (" + number + ")" : number;
}

}  // namespace

std::vector<Access> AccessToFollow(const ly_ctx* models, const Modules& modules) {
  std::vector<Access> needed;
  for (const std::string& module : modules) {
    needed.push_back({module, SR_DS_RUNNING, Access::Right::kSubscribe});
  }
  for (const std::string& module : Referenced(models, modules)) {
    if (!modules.contains(module)) needed.push_back({.module = module});
  }
  return needed;
}

void RequireAccess(sr_conn_ctx_t* connection, const std::vector<Access>& needed) {
  std::string denied;
  for (const Access& access : needed) {
    const std::string denial = Denial(connection, access);
    if (!denial.empty()) denied += (denied.empty() ? "" : "; ") + denial;
  }
  if (denied.empty()) return;
  throw AccessDenied("the account " + Account() + " may not " + denied);
}

}  // namespace vxconfd
