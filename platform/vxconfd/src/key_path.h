// ConfD key paths and values of datastore nodes.

#ifndef PLATFORM_VXCONFD_SRC_KEY_PATH_H_
#define PLATFORM_VXCONFD_SRC_KEY_PATH_H_

#include <libyang/libyang.h>

#include <memory>
#include <stdexcept>

#include <confd_lib.h>

namespace vxconfd {

// A changed node or its value cannot be expressed in the read API; the text says why.
class UnreadableChange : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A value that is released when it goes.
class Value {
 public:
  // The value of a leaf whose canonical text this is. Throws UnreadableChange when the leaf's
  // type has no ConfD value.
  Value(const lysc_node* leaf, const char* canonical);
  ~Value() { confd_free_value(&value_); }
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;

  confd_value_t* get() { return &value_; }

 private:
  confd_value_t value_ = {C_NOEXISTS, {}};
};

// The path to a node, innermost element first: the keys of a list entry, then its list's tag. Owns
// its keys' values. Throws UnreadableChange when the node lies too deep, or has too many keys or
// one without a ConfD value.
class KeyPath {
 public:
  explicit KeyPath(const lyd_node* node);
  ~KeyPath();
  KeyPath(const KeyPath&) = delete;
  KeyPath& operator=(const KeyPath&) = delete;

  confd_hkeypath_t* get() { return path_.get(); }

 private:
  confd_value_t* NextElement();
  void AddTag(const lysc_node* schema);
  void AddKeys(const lyd_node* entry);

  std::unique_ptr<confd_hkeypath_t> path_;
};

}  // namespace vxconfd

#endif  // PLATFORM_VXCONFD_SRC_KEY_PATH_H_
