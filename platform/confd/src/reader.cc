#include "platform/confd/src/reader.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>

#include "platform/confd/src/error.h"
#include "platform/confd/src/list_members.h"

namespace confd {

Reader::Reader(Snapshot& snapshot, std::string_view path) : index_(*snapshot.index_), path_(path) {}

bool Reader::FindOut(bool* exists) {
  if (const auto known = index_.members().Find(path_)) {
    *exists = *known;
    return true;
  }
  if (!Resolve()) return false;
  *exists = resolved_.exists;
  index_.members().Add(index_, path_);
  return true;
}

bool Reader::Refuse(int code, std::string_view what) const {
  Fail(code, path_, what);
  return false;
}

bool Reader::RequireThere() const {
  return resolved_.exists || Refuse(CONFD_ERR_NOEXISTS, "does not exist");
}

bool Reader::RequireLeaf(ValueKind kind, std::string_view type_name) const {
  if (resolved_.schema->nodetype != LYS_LEAF) return Refuse(CONFD_ERR_BADTYPE, "is not a leaf");
  if (KindOf(resolved_.schema) != kind) {
    return Refuse(CONFD_ERR_BADTYPE, "the leaf is not of type " + std::string(type_name));
  }
  return RequireThere();
}

bool Reader::RefuseValueOf(const lysc_node* leaf) const {
  const std::string name = "'" + std::string(leaf->name) + "'";
  const bool known = KindOf(leaf) != ValueKind::kUnsupported;
  return Refuse(CONFD_ERR_BADTYPE, known ? "the text of " + name + " is no value of its type"
                                         : "the type of " + name + " cannot be read");
}

bool Reader::ReadLeaf(ValueKind kind, std::string_view type_name, confd_value_t* value) {
  if (!RequireLeaf(kind, type_name)) return false;
  return ToConfdValue(index_.context(), LeafValue(resolved_), kind, value) ||
         RefuseValueOf(resolved_.schema);
}

bool Reader::ReadText(std::string_view* text) {
  if (!RequireLeaf(ValueKind::kString, "string")) return false;
  *text = lyd_value_get_canonical(index_.context(), &LeafValue(resolved_));
  return true;
}

bool Reader::ReadValue(confd_value_t* value) {
  if ((resolved_.schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) == 0) {
    return Refuse(CONFD_ERR_BADTYPE, "is neither a leaf nor a leaf-list");
  }
  const ValueKind kind = KindOf(resolved_.schema);
  if (kind == ValueKind::kUnsupported) return RefuseValueOf(resolved_.schema);
  if (!RequireThere()) return false;
  const bool good = resolved_.whole_list
                        ? ReadLeafList(index_, resolved_, kind, value)
                        : ToConfdValue(index_.context(), LeafValue(resolved_), kind, value);
  return good || RefuseValueOf(resolved_.schema);
}

bool Reader::RequireList() const {
  if (resolved_.schema->nodetype != LYS_LIST) return Refuse(CONFD_ERR_BADTYPE, "is not a list");
  return resolved_.whole_list || Refuse(CONFD_ERR_BADPATH, "names one entry, not the list");
}

bool Reader::CountEntries(std::size_t* count) {
  if (!RequireList()) return false;
  *count = index_.lists().Count(resolved_.node);
  return true;
}

bool Reader::RequireObject() const {
  if ((resolved_.schema->nodetype & (LYS_CONTAINER | LYS_LIST)) == 0) {
    return Refuse(CONFD_ERR_BADTYPE, "is neither a container nor a list entry");
  }
  if (resolved_.whole_list) {
    return Refuse(CONFD_ERR_BADPATH, "names the list: a key or a position is missing");
  }
  return RequireThere();
}

bool Reader::ReadObject(confd_value_t* values, std::size_t n, std::size_t* count) {
  if (!RequireObject()) return false;
  const std::size_t whole = index_.LayoutOf(resolved_.schema).size();
  ValueBatch batch(index_.batch_storage(), std::min(n, whole));
  if (const lysc_node* leaf = FillObject(index_, resolved_, n, batch.data())) {
    return RefuseValueOf(leaf);
  }
  batch.MoveTo(values);
  *count = whole;
  return true;
}

bool Reader::RequireRange(std::size_t first, std::size_t entries) {
  const std::size_t size = index_.lists().Count(resolved_.node);
  if (entries == 0 || (first <= size && entries <= size - first)) return true;
  return Refuse(CONFD_ERR_NOEXISTS, "the list has " + std::to_string(size) + " entries; " +
                                        std::to_string(entries) + " from position " +
                                        std::to_string(first) + " were asked for");
}

bool Reader::ReadObjects(confd_value_t* values, std::size_t n, std::size_t first,
                         std::size_t entries, std::size_t* count) {
  if (!RequireList() || !RequireRange(first, entries)) return false;
  *count = index_.LayoutOf(resolved_.schema).size();
  const BatchKey key = {resolved_.node, n, first, entries};
  if (index_.recent_batch().Find(key, values)) return true;
  ValueBatch batch(index_.batch_storage(), n * entries);
  if (const lysc_node* leaf = FillEntries(n, first, entries, batch.data())) {
    return RefuseValueOf(leaf);
  }
  index_.recent_batch().Add(key, {batch.data(), n * entries});
  batch.MoveTo(values);
  return true;
}

const lysc_node* Reader::FillEntries(std::size_t n, std::size_t first, std::size_t entries,
                                     confd_value_t* values) {
  ResolvedNode entry = {resolved_.schema, index_.lists().At(resolved_.node, first), true, false};
  for (std::size_t i = 0; i < entries; ++i, entry.node = NextEntry(entry.node)) {
    if (const lysc_node* leaf = FillObject(index_, entry, n, values + i * n)) return leaf;
  }
  return nullptr;
}

}  // namespace confd
