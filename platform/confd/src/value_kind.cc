#include "platform/confd/src/value_kind.h"

#include <libyang/libyang.h>
#include <libyang/plugins_types.h>

#include <optional>
#include <string_view>

#include "platform/confd/src/extension.h"

namespace confd {
namespace {

ValueKind KindNamed(std::string_view name) {
  if (name == "ipv4-address") return ValueKind::kIpv4;
  if (name == "ipv4-address-and-prefix-length") return ValueKind::kIpv4AndPlen;
  return ValueKind::kUnsupported;
}

// What the model says of the type. The compiled schema has the extensions of a type with all that
// it was derived through, the innermost typedef's first: the last is the closest to the leaf.
std::optional<ValueKind> FixedKind(const lysc_type& type) {
  std::optional<ValueKind> kind;
  LY_ARRAY_COUNT_TYPE i = 0;
  LY_ARRAY_FOR(type.exts, i) {
    if (const char* name = ArgumentOf(type.exts[i], "value-type")) kind = KindNamed(name);
  }
  return kind;
}

// The standard address types carry no extension; they and all that derive from them share the
// plugins of the standard types.
bool IsStandardIpv4(const lysc_type& type) {
  const std::string_view plugin = type.plugin->id != nullptr ? type.plugin->id : "";
  return plugin.find("- ipv4-address,") != std::string_view::npos ||
         plugin.find("- ipv4-address-no-zone,") != std::string_view::npos;
}

ValueKind KindOfBaseType(const lysc_type& type) {
  switch (type.basetype) {
    case LY_TYPE_STRING:
      return IsStandardIpv4(type) ? ValueKind::kIpv4 : ValueKind::kString;
    case LY_TYPE_INT8:
      return ValueKind::kInt8;
    case LY_TYPE_INT16:
      return ValueKind::kInt16;
    case LY_TYPE_INT32:
      return ValueKind::kInt32;
    case LY_TYPE_INT64:
      return ValueKind::kInt64;
    case LY_TYPE_UINT8:
      return ValueKind::kUint8;
    case LY_TYPE_UINT16:
      return ValueKind::kUint16;
    case LY_TYPE_UINT32:
      return ValueKind::kUint32;
    case LY_TYPE_UINT64:
      return ValueKind::kUint64;
    case LY_TYPE_BOOL:
      return ValueKind::kBool;
    case LY_TYPE_ENUM:
      return ValueKind::kEnum;
    default:
      return ValueKind::kUnsupported;
  }
}

}  // namespace

const lysc_type& RealType(const lysc_node* leaf) {
  const lysc_type* type = leaf->nodetype == LYS_LEAF
                              ? reinterpret_cast<const lysc_node_leaf*>(leaf)->type
                              : reinterpret_cast<const lysc_node_leaflist*>(leaf)->type;
  while (type->basetype == LY_TYPE_LEAFREF) {
    type = reinterpret_cast<const lysc_type_leafref*>(type)->realtype;
  }
  return *type;
}

ValueKind KindOf(const lysc_node* leaf) {
  const lysc_type& type = RealType(leaf);
  const std::optional<ValueKind> fixed = FixedKind(type);
  return fixed ? *fixed : KindOfBaseType(type);
}

}  // namespace confd
