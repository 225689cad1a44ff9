// Which of ConfD's values a leaf has.

#ifndef PLATFORM_CONFD_SRC_VALUE_KIND_H_
#define PLATFORM_CONFD_SRC_VALUE_KIND_H_

struct lysc_node;
struct lysc_type;

namespace confd {

// What a leaf's type becomes.
enum class ValueKind {
  kUnsupported,
  kString,
  kInt8,
  kInt16,
  kInt32,
  kInt64,
  kUint8,
  kUint16,
  kUint32,
  kUint64,
  kBool,
  kEnum,
  kIpv4,
  kIpv4AndPlen,
};

// The type of a leaf or leaf-list; of a reference, the type of what it refers to.
const lysc_type& RealType(const lysc_node* leaf);

// The kind of a leaf or leaf-list. A reference has the kind of what it refers to.
ValueKind KindOf(const lysc_node* leaf);

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_VALUE_KIND_H_
