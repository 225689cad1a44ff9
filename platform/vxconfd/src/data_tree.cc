#include "platform/vxconfd/src/data_tree.h"

#include <cstdlib>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/vxconfd/src/datastore_error.h"

namespace vxconfd {
namespace {

// Those of the datastore's own contexts.
constexpr std::uint16_t kContextOptions = LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIR_CWD |
                                          LY_CTX_REF_IMPLEMENTED | LY_CTX_EXPLICIT_COMPILE;

struct FreeText {
  void operator()(char* text) const { std::free(text); }
};
using TextPtr = std::unique_ptr<char, FreeText>;

[[noreturn]] void FailModels() {
  const char* reason = ly_last_logmsg();
  throw DatastoreError(std::string("cannot load the datastore's models: ") +
                       (reason != nullptr ? reason : "no reason given"));
}

// Names of the module's enabled features, with the null that ends them.
std::vector<const char*> EnabledFeatures(const lys_module* module) {
  std::vector<const char*> names;
  std::uint32_t index = 0;
  const lysp_feature* feature = nullptr;
  while ((feature = lysp_feature_next(feature, module->parsed, &index)) != nullptr) {
    if ((feature->flags & LYS_FENABLED) != 0) names.push_back(feature->name);
  }
  names.push_back(nullptr);
  return names;
}

// The datastore's description of itself is built in, and describes no configuration.
bool IsNeeded(const lys_module* module) {
  return module->implemented != 0 && std::string_view(module->name) != "sysrepo";
}

void LoadModules(ly_ctx* context, const ly_ctx* models) {
  std::uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(models, &index)) {
    if (!IsNeeded(module)) continue;
    auto features = EnabledFeatures(module);
    if (ly_ctx_load_module(context, module->name, module->revision, features.data()) == nullptr) {
      FailModels();
    }
  }
}

// Where copies go.
struct Target {
  const ly_ctx* context;
  lyd_node_inner* parent;  // null for the top level
  lyd_node** root;
};

// What is below is copied if `recursive` is LYD_DUP_RECURSIVE. Null when the schema does not allow
// the node.
lyd_node* CopyNode(const lyd_node* node, const Target& target, std::uint32_t recursive) {
  const std::uint32_t options = LYD_DUP_WITH_FLAGS | LYD_DUP_NO_LYDS | recursive;
  lyd_node* copy = nullptr;
  if (lyd_dup_single_to_ctx(node, target.context, target.parent, options, &copy) != LY_SUCCESS) {
    return nullptr;
  }
  if (target.parent == nullptr) lyd_insert_sibling(*target.root, copy, target.root);
  return copy;
}

bool MoveSiblings(lyd_node** first, const Target& target);

// A container goes child by child, since the large lists are in containers.
bool MoveNode(lyd_node* node, const Target& target) {
  if (node->schema == nullptr || node->schema->nodetype != LYS_CONTAINER) {
    return CopyNode(node, target, LYD_DUP_RECURSIVE) != nullptr;
  }
  lyd_node* const copy = CopyNode(node, target, 0);
  lyd_node* child = lyd_child(node);
  return copy != nullptr && MoveSiblings(&child, {.context = target.context,
                                                  .parent = reinterpret_cast<lyd_node_inner*>(copy),
                                                  .root = target.root});
}

// A node is freed once the next one is copied: the first of a list has metadata for the whole list,
// and passes it on to the next one when it is freed.
bool MoveSiblings(lyd_node** first, const Target& target) {
  lyd_node* copied = nullptr;
  for (lyd_node* node = *first; node != nullptr; node = node->next) {
    if (!MoveNode(node, target)) return false;
    *first = node;
    lyd_free_tree(copied);
    copied = node;
  }
  *first = nullptr;
  lyd_free_tree(copied);
  return true;
}

}  // namespace

DataTree::DataTree(ContextPtr context, lyd_node* first)
    : context_(std::move(context)), first_(first) {}

DataTree::~DataTree() { lyd_free_all(first_); }

QuietYang::QuietYang() : options_(LY_LOSTORE_LAST) { ly_temp_log_options(&options_); }

QuietYang::~QuietYang() { ly_temp_log_options(nullptr); }

ContextPtr CopyModels(const ly_ctx* models) {
  const QuietYang quiet;
  const char* const* directories = ly_ctx_get_searchdirs(models);
  ly_ctx* context = nullptr;
  if (ly_ctx_new(directories != nullptr ? directories[0] : nullptr, kContextOptions, &context) !=
      LY_SUCCESS) {
    FailModels();
  }
  const std::shared_ptr<ly_ctx> owner(context, ly_ctx_destroy);
  LoadModules(context, models);
  if (ly_ctx_compile(context) != LY_SUCCESS) FailModels();
  return owner;
}

DataTreePtr CopyData(const ContextPtr& context, const lyd_node* siblings) {
  auto copy = std::make_shared<DataTree>(context);
  if (siblings == nullptr) return copy;
  const QuietYang quiet;
  const std::uint32_t options = LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS;
  const bool good = lyd_dup_siblings_to_ctx(siblings, context.get(), nullptr, options,
                                            copy->root()) == LY_SUCCESS;
  return good ? copy : nullptr;
}

DataTreePtr MoveData(const ContextPtr& context, lyd_node** siblings) {
  const QuietYang quiet;
  auto moved = std::make_shared<DataTree>(context);
  const Target target{.context = context.get(), .parent = nullptr, .root = moved->root()};
  return MoveSiblings(siblings, target) ? moved : nullptr;
}

DataTreePtr CopyKnownData(const ContextPtr& context, const lyd_node* siblings) {
  const QuietYang quiet;
  char* text = nullptr;
  if (lyd_print_mem(&text, siblings, LYD_JSON, LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS)
    return nullptr;
  const TextPtr owner(text);
  auto copy = std::make_shared<DataTree>(context);
  if (text == nullptr) return copy;
  const bool good = lyd_parse_data_mem(context.get(), text, LYD_JSON, LYD_PARSE_ONLY, 0,
                                       copy->root()) == LY_SUCCESS &&
                    lyd_new_implicit_all(copy->root(), context.get(), LYD_IMPLICIT_NO_STATE,
                                         nullptr) == LY_SUCCESS;
  return good ? copy : nullptr;
}

bool HasEqualData(const DataTree& held, const lyd_node* siblings) {
  const QuietYang quiet;
  return lyd_compare_siblings(held.first(), siblings,
                              LYD_COMPARE_FULL_RECURSION | LYD_COMPARE_DEFAULTS) == LY_SUCCESS;
}

DataTreePtr Difference(const DataTree& from, const DataTree& to) {
  auto difference = std::make_shared<DataTree>(to.context());
  if (lyd_diff_siblings(from.first(), to.first(), LYD_DIFF_DEFAULTS, difference->root()) !=
      LY_SUCCESS) {
    throw DatastoreError("cannot compare the configuration with what was read before");
  }
  return difference;
}

std::size_t CountNodes(const lyd_node* siblings) {
  std::size_t count = 0;
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    count += 1 + CountNodes(lyd_child(node));
  }
  return count;
}

int CountChanges(const lyd_node* difference) {
  int count = 0;
  for (const lyd_node* node = difference; node != nullptr; node = node->next) {
    const lyd_meta* operation = lyd_find_meta(node->meta, nullptr, "yang:operation");
    if (operation != nullptr && std::string_view(lyd_get_meta_value(operation)) != "none") ++count;
    count += CountChanges(lyd_child(node));
  }
  return count;
}

}  // namespace vxconfd
