// What the configuration adapter needs of this library beyond its C interface: opening read
// sessions on data it took from the datastore, and the values and hashes of schema nodes.

#ifndef CONFD_SESSION_H_
#define CONFD_SESSION_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <confd_lib.h>

struct ly_ctx;
struct lyd_node;
struct lys_module;
struct lysc_node;

namespace confd {
class Reader;
class SnapshotIndex;
}  // namespace confd

#pragma GCC visibility push(default)

namespace confd {

// Reads the data of a module, in the context of the snapshot that asks for it: the first of its
// top-level siblings, null when it has none. What it throws becomes the failure of the read call
// that needed the module.
using ModuleLoader = std::function<std::shared_ptr<const lyd_node>(const lys_module* module)>;

// One consistent, immutable copy of a datastore, with the look-up tables that reading it builds up.
// Sessions may share one.
class Snapshot {
 public:
  // `context` is the schema of the data. `tree` is the first of the top-level siblings, null for an
  // empty datastore. Both stay alive through the pointers given; either may carry its own deleter.
  // A module that has no data in `tree` is asked of `load`, once; without one it has none.
  Snapshot(std::shared_ptr<const ly_ctx> context, std::shared_ptr<const lyd_node> tree,
           ModuleLoader load = nullptr);
  ~Snapshot();
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

 private:
  friend class Reader;
  std::unique_ptr<SnapshotIndex> index_;
};

// Opens a read session and returns its socket, a small number of 0 or more that is free again after
// CloseSession. Closing a socket that is not open does nothing.
int OpenSession(std::shared_ptr<Snapshot> snapshot);
void CloseSession(int sock);

// Sets what confd_errno and confd_lasterr() say.
void SetLastError(int code, std::string text);

// Fills `*value` with the value whose canonical text in a leaf of this schema is `text`. The caller
// releases it with confd_free_value. False, with the error set, when the leaf's type has no ConfD
// value here.
bool ValueFromCanonical(const lysc_node* leaf, const char* text, confd_value_t* value);

// The hash of a node's tag: the number that the data model fixes with its tag-hash extension, else
// 32-bit FNV-1a of the name. The hash of a namespace likewise, from ns-hash or the module's name.
std::uint32_t TagHash(const lysc_node* node);
std::uint32_t NamespaceHash(const lys_module* module);

}  // namespace confd

#pragma GCC visibility pop

#endif  // CONFD_SESSION_H_
