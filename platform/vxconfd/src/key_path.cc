#include "platform/vxconfd/src/key_path.h"

#include <string>

#include <confd/session.h>

namespace vxconfd {
namespace {

void Fill(const lysc_node* leaf, const char* canonical, confd_value_t* value) {
  if (!confd::ValueFromCanonical(leaf, canonical, value)) {
    throw UnreadableChange(confd_lasterr());
  }
}

}  // namespace

Value::Value(const lysc_node* leaf, const char* canonical) { Fill(leaf, canonical, &value_); }

KeyPath::KeyPath(const lyd_node* node) : path_(std::make_unique<confd_hkeypath_t>()) {
  for (; node != nullptr; node = lyd_parent(node)) {
    if (node->schema->nodetype == LYS_LIST) AddKeys(node);
    AddTag(node->schema);
  }
}

KeyPath::~KeyPath() {
  for (int i = 0; i < path_->len; ++i) {
    for (confd_value_t& key : path_->v[i]) confd_free_value(&key);
  }
}

confd_value_t* KeyPath::NextElement() {
  if (path_->len == MAXDEPTH) throw UnreadableChange("the path has too many elements");
  return path_->v[path_->len++];
}

void KeyPath::AddTag(const lysc_node* schema) {
  confd_value_t* const element = NextElement();
  element->type = C_XMLTAG;
  element->val.xmltag = {confd::TagHash(schema), confd::NamespaceHash(schema->module)};
}

void KeyPath::AddKeys(const lyd_node* entry) {
  confd_value_t* const element = NextElement();
  int count = 0;
  for (const lyd_node* key = lyd_child(entry); key != nullptr && lysc_is_key(key->schema);
       key = key->next) {
    if (count == MAXKEYLEN - 1) {
      throw UnreadableChange("the entry has too many keys");
    }
    Fill(key->schema, lyd_get_value(key), &element[count++]);
  }
  element[count].type = C_NOEXISTS;
}

}  // namespace vxconfd
