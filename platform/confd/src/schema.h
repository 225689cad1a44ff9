// Look-up in the schema, and what follows from it for reading data.

#ifndef PLATFORM_CONFD_SRC_SCHEMA_H_
#define PLATFORM_CONFD_SRC_SCHEMA_H_

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

struct ly_ctx;
struct lyd_value;
struct lysc_node;

namespace confd {

// The data nodes below `parent` in schema order, those of choices in place of the choice.
std::vector<const lysc_node*> SchemaChildren(const lysc_node* parent);

// True for a node that is there in the data, explicitly or not, whenever its parent is: a container
// without presence, a leaf or leaf-list with a default. Not for one that depends on a condition or
// a choice: only the data knows whether these hold.
bool IsImplicit(const lysc_node* node);

// The default of a leaf; null when it has none.
const lyd_value* DefaultOf(const lysc_node* leaf);

// A node and what reading paths needs to know of it each time.
struct SchemaNode {
  const lysc_node* node;
  bool implicit;     // IsImplicit(node)
  std::size_t keys;  // number of keys, of a list
};

// Finds schema nodes by name, at the price of a hash look-up from the second time on.
class SchemaIndex {
 public:
  // `context` must outlive this object.
  explicit SchemaIndex(const ly_ctx* context) : context_(context) {}

  // The child of `parent` (null: a top-level node) of this name, in the module of name or prefix
  // `prefix`; an empty `prefix` stands for any module. Null when there is none; else it lives as
  // long as this object.
  const SchemaNode* FindChild(const lysc_node* parent, std::string_view prefix,
                              std::string_view name);

 private:
  struct Name {
    const lysc_node* parent;
    std::string_view prefix;
    std::string_view name;
    bool operator==(const Name&) const = default;
  };
  struct NameHash {
    std::size_t operator()(const Name& name) const;
  };

  const lysc_node* Search(const lysc_node* parent, std::string_view prefix, std::string_view name);

  const ly_ctx* context_;
  using Found = std::unordered_map<Name, SchemaNode, NameHash>;
  Found found_;                              // the texts are the schema's own
  const Found::value_type* last_ = nullptr;  // what was found last: the same is often asked again
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_SCHEMA_H_
