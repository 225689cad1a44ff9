// Values of leaves: from libyang's to ConfD's.

#ifndef PLATFORM_CONFD_SRC_VALUE_H_
#define PLATFORM_CONFD_SRC_VALUE_H_

#include <cstddef>
#include <span>
#include <vector>

#include <confd_lib.h>

#include "platform/confd/src/value_kind.h"

struct ly_ctx;
struct lyd_node;
struct lyd_value;

namespace confd {

// Fills `*value`; whatever it owns is for confd_free_value. False, with `*value` untouched and no
// error set, when the text is none of this kind.
bool ToConfdValue(const ly_ctx* context, const lyd_value& from, ValueKind kind,
                  confd_value_t* value);

// Fills `*copy` with the same value; a string's bytes belong to both. Not for a C_LIST.
void ShareValue(const confd_value_t& value, confd_value_t* copy);

// What a batch of values was read of.
struct BatchKey {
  const lyd_node* first = nullptr;  // entry of the list
  std::size_t values = 0;           // of each entry
  std::size_t position = 0;         // of the first entry that was read
  std::size_t entries = 0;
  bool operator==(const BatchKey&) const = default;
};

// The latest batch, once it was asked for twice in a row. A client that looks for something in all
// entries of a list reads the same keys for each thing it looks for.
class RecentBatch {
 public:
  RecentBatch() = default;
  ~RecentBatch();
  RecentBatch(const RecentBatch&) = delete;
  RecentBatch& operator=(const RecentBatch&) = delete;

  // Fills `out`, if it is this batch.
  bool Find(const BatchKey& key, confd_value_t* out) const;
  void Add(const BatchKey& key, std::span<const confd_value_t> values);

 private:
  void Clear();

  BatchKey key_;
  std::vector<confd_value_t> values_;
};

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
