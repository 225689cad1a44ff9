// One call of the reading interface: a path, and what is read of the node that it names.

#ifndef PLATFORM_CONFD_SRC_READER_H_
#define PLATFORM_CONFD_SRC_READER_H_

#include <cstddef>
#include <string_view>

#include <confd/session.h>

#include "platform/confd/src/resolved_node.h"

namespace confd {

// All operations return false, with the error set and their results untouched, on failure. Only
// after Resolve succeeded may any other but FindOut be called.
class Reader {
 public:
  Reader(Snapshot& snapshot, std::string_view path);

  bool Resolve() { return confd::Resolve(index_, path_, &resolved_); }

  // Whether the node exists. False when the path is wrong, with the error set.
  bool FindOut(bool* exists);

  // A leaf's value or default, a leaf-list's values. The caller releases `*value`.
  bool ReadValue(confd_value_t* value);

  // The same for a leaf that must be of this kind; `type_name` is what the caller calls it.
  bool ReadLeaf(ValueKind kind, std::string_view type_name, confd_value_t* value);

  // The text of a string leaf, or of its default. It lives as long as the data.
  bool ReadText(std::string_view* text);

  bool CountEntries(std::size_t* count);

  // As cdb_get_object. Sets `*count` to the number of the object's values.
  bool ReadObject(confd_value_t* values, std::size_t n, std::size_t* count);

  // As cdb_get_objects. Sets `*count` to the number of one entry's values.
  bool ReadObjects(confd_value_t* values, std::size_t n, std::size_t first, std::size_t entries,
                   std::size_t* count);

  // Sets an error of this path. Returns false.
  bool Refuse(int code, std::string_view what) const;

 private:
  bool RequireThere() const;
  bool RequireLeaf(ValueKind kind, std::string_view type_name) const;
  bool RequireList() const;
  bool RequireObject() const;
  bool RequireRange(std::size_t first, std::size_t entries);
  const lysc_node* FillEntries(std::size_t n, std::size_t first, std::size_t entries,
                               confd_value_t* values);
  bool RefuseValueOf(const lysc_node* leaf) const;

  SnapshotIndex& index_;
  std::string_view path_;
  ResolvedNode resolved_;
};

}  // namespace confd

#endif  // PLATFORM_CONFD_SRC_READER_H_
