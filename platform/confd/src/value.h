// Values of leaves: from libyang's to ConfD's.

#ifndef PLATFORM_CONFD_SRC_VALUE_H_
#define PLATFORM_CONFD_SRC_VALUE_H_

#include <cstddef>
#include <vector>

#include <confd_lib.h>

struct ly_ctx;
struct lyd_value;
struct lysc_node;
struct lysc_type;

namespace confd {

// What a leaf's type becomes.
enum class ValueKind {
  kUnsupported,
  kString,
  kInt32,
  kUint32,
  kBool,
  kEnum,
  kIpv4,
  kIpv4AndPlen,
};

// The kind of a leaf or leaf-list. A reference has the kind of what it refers to.
ValueKind KindOf(const lysc_node* leaf);

// Fills `*value`; whatever it owns is for confd_free_value. False, with `*value` untouched and no
// error set, when the text is none of this kind.
bool ToConfdValue(const ly_ctx* context, const lyd_value& from, ValueKind kind,
                  confd_value_t* value);

// Values on their way to the caller, who gets all or none of them.
class ValueBatch {
 public:
  // `storage` is memory to use, kept by the owner so that it need not be allocated anew each time.
  ValueBatch(std::vector<confd_value_t>& storage, std::size_t size);
  ~ValueBatch();
  ValueBatch(const ValueBatch&) = delete;
  ValueBatch& operator=(const ValueBatch&) = delete;

  confd_value_t* data() { return values_.data(); }

  // Hands all the values over.
  void MoveTo(confd_value_t* out);

 private:
  std::vector<confd_value_t>& values_;
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_VALUE_H_
