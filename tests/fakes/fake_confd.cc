#include "tests/fakes/fake_confd.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tests/fakes/journal.h"

namespace fakes {
namespace {

in_addr ToInAddr(const std::string& dotted) {
  in_addr address = {};
  inet_pton(AF_INET, dotted.c_str(), &address);
  return address;
}

std::string Dotted(in_addr address) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &address, text, sizeof(text));
  return text;
}

std::string Hex(std::uint32_t number) {
  char text[16] = {};
  std::snprintf(text, sizeof(text), "%08x", number);
  return text;
}

// Null when the value cannot be printed.
const char* Printed(const confd_value_t& value, std::string* text) {
  switch (value.type) {
    case C_BUF:
      *text = reinterpret_cast<const char*>(value.val.buf.ptr);
      break;
    case C_INT32:
      *text = std::to_string(value.val.i32);
      break;
    case C_UINT32:
      *text = std::to_string(value.val.u32);
      break;
    case C_IPV4:
      *text = Dotted(value.val.ip);
      break;
    case C_BOOL:
      *text = value.val.boolean != 0 ? "true" : "false";
      break;
    case C_ENUM_VALUE:
      *text = "enum<" + std::to_string(value.val.enumvalue) + ">";
      break;
    case C_IPV4_AND_PLEN:
      *text = Dotted(value.val.ipv4prefix.ip) + "/" + std::to_string(value.val.ipv4prefix.len);
      break;
    default:
      return nullptr;
  }
  return text->c_str();
}

}  // namespace

Value Buf(std::string text) { return {C_BUF, std::move(text), 0}; }
Value Flag(bool value) { return {C_BOOL, "", value ? 1 : 0}; }
Value Enumeration(std::int32_t number) { return {C_ENUM_VALUE, "", number}; }
Value Int32(std::int32_t number) { return {C_INT32, "", number}; }
Value Uint32(std::uint32_t number) { return {C_UINT32, "", number}; }
Value Address(std::string dotted) { return {C_IPV4, std::move(dotted), 0}; }
Value Prefix(std::string dotted, int length) {
  return {C_IPV4_AND_PLEN, std::move(dotted), length};
}
Value Absent() { return {}; }
Value Unprintable() { return {C_LIST, "", 0}; }

Confd& Confd::Get() {
  static Confd* const confd = new Confd;
  return *confd;
}

void Confd::Reset() {
  for (unsigned char* block : blocks_) delete[] block;
  *this = Confd();
  confd_errno = 0;
}

void Confd::SetObject(const std::string& path, std::vector<Value> values) {
  objects_[path] = std::move(values);
}

void Confd::Fail(const std::string& call, const std::string& path, Failure failure) {
  failures_[{call, path}] = std::move(failure);
}

std::vector<std::string> Confd::CallTexts() const {
  std::vector<std::string> texts;
  for (const CdbCall& call : calls_) texts.push_back(call.text);
  return texts;
}

int Confd::OpenSession() {
  const int sock = next_socket_++;
  open_sockets_.insert(sock);
  return sock;
}

void Confd::CloseSession(int sock) { open_sockets_.erase(sock); }

bool Confd::Enter(const std::string& name, const std::string& numbers, int sock,
                  const std::string& path, int* result) {
  const std::string text = name + numbers + " " + path;
  Journal::Get().Add(text);
  calls_.push_back({name, path, text, sock});
  if (!open_sockets_.contains(sock)) {
    ++stray_calls_;
    *result = SetError(CONFD_ERR_NOSESSION, "no session");
    return false;
  }
  const auto failure = failures_.find({name, path});
  if (failure == failures_.end()) return true;
  SetError(failure->second.code, failure->second.text);
  errno = failure->second.os_error;
  *result = failure->second.result;
  return false;
}

int Confd::SetError(int code, std::string text) {
  confd_errno = code;
  last_error_ = std::move(text);
  return CONFD_ERR;
}

const Value* Confd::FindLeaf(const std::string& path, confd_vtype type, int* result) {
  const auto leaf = leaves_.find(path);
  if (leaf == leaves_.end()) {
    *result = SetError(CONFD_ERR_NOEXISTS, path + " is not there");
    return nullptr;
  }
  if (leaf->second.type != type) {
    *result = SetError(CONFD_ERR_BADTYPE, path + " is of another type");
    return nullptr;
  }
  return &leaf->second;
}

int Confd::NumInstances(int sock, const std::string& path) {
  int result = CONFD_OK;
  if (!Enter("cdb_num_instances", "", sock, path, &result)) return result;
  const auto list = lists_.find(path);
  return list == lists_.end() ? 0 : static_cast<int>(list->second.size());
}

int Confd::Exists(int sock, const std::string& path) {
  int result = CONFD_OK;
  if (!Enter("cdb_exists", "", sock, path, &result)) return result;
  const auto answer = exists_answers_.find(path);
  if (answer != exists_answers_.end()) return answer->second;
  return leaves_.contains(path) || objects_.contains(path) ? 1 : 0;
}

int Confd::GetValue(int sock, const std::string& path, confd_value_t* value) {
  int result = CONFD_OK;
  if (!Enter("cdb_get", "", sock, path, &result)) return result;
  const auto leaf = leaves_.find(path);
  if (leaf == leaves_.end()) return SetError(CONFD_ERR_NOEXISTS, path + " is not there");
  Convert(value, leaf->second);
  return CONFD_OK;
}

int Confd::GetStr(int sock, const std::string& path, char* value, int size) {
  int result = CONFD_OK;
  if (!Enter("cdb_get_str", "(" + std::to_string(size) + ")", sock, path, &result)) return result;
  const Value* leaf = FindLeaf(path, C_BUF, &result);
  if (leaf == nullptr) return result;
  if (leaf->text.size() + 1 > static_cast<std::size_t>(size)) {
    return SetError(CONFD_ERR_BADTYPE, path + " does not fit");
  }
  std::memcpy(value, leaf->text.c_str(), leaf->text.size() + 1);
  return CONFD_OK;
}

int Confd::GetInt32(int sock, const std::string& path, std::int32_t* value) {
  int result = CONFD_OK;
  if (!Enter("cdb_get_int32", "", sock, path, &result)) return result;
  const Value* leaf = FindLeaf(path, C_INT32, &result);
  if (leaf == nullptr) return result;
  *value = static_cast<std::int32_t>(leaf->number);
  return CONFD_OK;
}

int Confd::GetPrefix(int sock, const std::string& path, confd_ipv4_prefix* value) {
  int result = CONFD_OK;
  if (!Enter("cdb_get_ipv4_and_plen", "", sock, path, &result)) return result;
  const Value* leaf = FindLeaf(path, C_IPV4_AND_PLEN, &result);
  if (leaf == nullptr) return result;
  *value = {ToInAddr(leaf->text), static_cast<std::uint8_t>(leaf->number)};
  return CONFD_OK;
}

int Confd::GetObject(int sock, const std::string& path, confd_value_t* values, int n) {
  int result = CONFD_OK;
  if (!Enter("cdb_get_object", "(" + std::to_string(n) + ")", sock, path, &result)) return result;
  const auto object = objects_.find(path);
  if (object == objects_.end()) return SetError(CONFD_ERR_NOEXISTS, path + " is not there");
  const int count = static_cast<int>(object->second.size());
  for (int i = 0; i < n && i < count; ++i) {
    Fill(&values[i], object->second[static_cast<std::size_t>(i)]);
  }
  return count;
}

int Confd::GetObjects(int sock, const std::string& path, confd_value_t* values, int n, int ix,
                      int nobj) {
  int result = CONFD_OK;
  const std::string numbers =
      "(" + std::to_string(n) + "," + std::to_string(ix) + "," + std::to_string(nobj) + ")";
  if (!Enter("cdb_get_objects", numbers, sock, path, &result)) return result;
  const auto list = lists_.find(path);
  const int count = list == lists_.end() ? 0 : static_cast<int>(list->second.size());
  if (ix + nobj > count) return SetError(CONFD_ERR_NOEXISTS, path + " is shorter");
  for (int i = 0; i < nobj; ++i) {
    Fill(&values[i * n], list->second[static_cast<std::size_t>(ix) + static_cast<std::size_t>(i)]);
  }
  return 1;
}

void Confd::Fill(confd_value_t* slot, const Value& value) {
  if (!filled_.insert(slot).second) ++overwritten_;
  Convert(slot, value);
}

void Confd::Convert(confd_value_t* slot, const Value& value) {
  *slot = {};
  slot->type = value.type;
  switch (value.type) {
    case C_BUF:
      slot->val.buf = {static_cast<unsigned>(value.text.size()), Allocate(value.text)};
      break;
    case C_LIST:
      slot->val.list = {0, reinterpret_cast<confd_value_t*>(Allocate("list"))};
      break;
    case C_BOOL:
      slot->val.boolean = static_cast<int>(value.number);
      break;
    case C_ENUM_VALUE:
      slot->val.enumvalue = static_cast<std::int32_t>(value.number);
      break;
    case C_INT32:
      slot->val.i32 = static_cast<std::int32_t>(value.number);
      break;
    case C_UINT32:
      slot->val.u32 = static_cast<std::uint32_t>(value.number);
      break;
    case C_IPV4:
      slot->val.ip = ToInAddr(value.text);
      break;
    case C_IPV4_AND_PLEN:
      slot->val.ipv4prefix = {ToInAddr(value.text), static_cast<std::uint8_t>(value.number)};
      break;
    default:
      break;
  }
}

unsigned char* Confd::Allocate(const std::string& bytes) {
  auto* const block = new unsigned char[bytes.size() + 1];
  std::memcpy(block, bytes.c_str(), bytes.size() + 1);
  blocks_.insert(block);
  return block;
}

void Confd::FreeValue(confd_value_t* value) {
  filled_.erase(value);
  unsigned char* block = nullptr;
  if (value->type == C_BUF) block = std::exchange(value->val.buf.ptr, nullptr);
  if (value->type == C_LIST) {
    block = reinterpret_cast<unsigned char*>(std::exchange(value->val.list.ptr, nullptr));
  }
  if (block == nullptr) return;
  if (blocks_.erase(block) == 0) {
    ++freed_twice_;
    return;
  }
  Journal::Get().Add(value->type == C_BUF
                         ? "confd_free_value " + std::string(reinterpret_cast<char*>(block))
                         : "confd_free_value");
  delete[] block;
}

int Confd::PrintValue(char* buf, int size, const confd_value_t* value) {
  pp_value_sizes_.push_back(size);
  std::string text;
  const char* const printed = Printed(*value, &text);
  if (printed == nullptr) return -1;
  return std::snprintf(buf, static_cast<std::size_t>(size), "%s", printed);
}

int Confd::PrintPath(char* buf, int size, const confd_hkeypath_t* path) {
  pp_kpath_sizes_.push_back(size);
  std::string text;
  for (int i = path->len - 1; i >= 0; --i) {
    const confd_value_t& value = path->v[i][0];
    std::string key;
    if (value.type == C_XMLTAG) {
      text += "/" + Hex(value.val.xmltag.tag);
    } else if (Printed(value, &key) != nullptr) {
      text += "{" + key + "}";
    }
  }
  return std::snprintf(buf, static_cast<std::size_t>(size), "%s", text.c_str());
}

}  // namespace fakes
