#include "platform/confd/src/value.h"

#include <arpa/inet.h>
#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include <confd/session.h>

#include "platform/confd/src/error.h"

namespace confd {
namespace {

constexpr confd_value_t kNothing = {C_NOEXISTS, {}};

// What stands in front of a string's bytes, so that values can share them.
struct Header {
  std::size_t users;
};

Header* HeaderOf(const confd_buf_t& text) { return reinterpret_cast<Header*>(text.ptr) - 1; }

confd_value_t MakeString(std::string_view text) {
  auto* header = static_cast<Header*>(std::malloc(sizeof(Header) + text.size() + 1));
  if (header == nullptr) throw std::bad_alloc();
  header->users = 1;
  auto* copy = reinterpret_cast<unsigned char*>(header + 1);
  std::memcpy(copy, text.data(), text.size());
  copy[text.size()] = '\0';
  confd_value_t value = {C_BUF, {}};
  value.val.buf = {static_cast<unsigned int>(text.size()), copy};
  return value;
}

void FreeString(const confd_buf_t& text) {
  if (text.ptr != nullptr && --HeaderOf(text)->users == 0) std::free(HeaderOf(text));
}

bool MakeIpv4(const char* text, confd_value_t* value) {
  in_addr address = {};
  if (inet_pton(AF_INET, text, &address) != 1) return false;
  value->type = C_IPV4;
  value->val.ip = address;
  return true;
}

template <typename Integer>
std::optional<Integer> ParseInteger(std::string_view text) {
  Integer number = 0;
  const auto parsed = std::from_chars(text.begin(), text.end(), number);
  if (parsed.ec != std::errc() || parsed.ptr != text.end()) return std::nullopt;
  return number;
}

bool MakeIpv4AndPlen(std::string_view text, confd_value_t* value) {
  const std::size_t slash = text.find('/');
  std::array<char, INET_ADDRSTRLEN> dotted = {};
  if (slash >= dotted.size()) return false;
  std::copy_n(text.begin(), slash, dotted.begin());
  confd_ipv4_prefix prefix = {};
  const auto length = ParseInteger<std::uint8_t>(text.substr(slash + 1));
  if (!length || *length > 32 || inet_pton(AF_INET, dotted.data(), &prefix.ip) != 1) return false;
  prefix.len = *length;
  value->type = C_IPV4_AND_PLEN;
  value->val.ipv4prefix = prefix;
  return true;
}

// `member` is the one of `*value` that holds a number of this type.
template <typename Integer>
bool MakeNumber(std::optional<Integer> number, confd_vtype type, Integer& member,
                confd_value_t* value) {
  if (!number) return false;
  *value = {type, {}};
  member = *number;
  return true;
}

bool MakeInteger(ValueKind kind, std::string_view text, confd_value_t* value) {
  auto& val = value->val;
  switch (kind) {
    case ValueKind::kInt8:
      return MakeNumber(ParseInteger<std::int8_t>(text), C_INT8, val.i8, value);
    case ValueKind::kInt16:
      return MakeNumber(ParseInteger<std::int16_t>(text), C_INT16, val.i16, value);
    case ValueKind::kInt32:
      return MakeNumber(ParseInteger<std::int32_t>(text), C_INT32, val.i32, value);
    case ValueKind::kInt64:
      return MakeNumber(ParseInteger<std::int64_t>(text), C_INT64, val.i64, value);
    case ValueKind::kUint8:
      return MakeNumber(ParseInteger<std::uint8_t>(text), C_UINT8, val.u8, value);
    case ValueKind::kUint16:
      return MakeNumber(ParseInteger<std::uint16_t>(text), C_UINT16, val.u16, value);
    case ValueKind::kUint32:
      return MakeNumber(ParseInteger<std::uint32_t>(text), C_UINT32, val.u32, value);
    case ValueKind::kUint64:
      return MakeNumber(ParseInteger<std::uint64_t>(text), C_UINT64, val.u64, value);
    default:
      return false;
  }
}

bool CopyInteger(ValueKind kind, const lyd_value& from, confd_value_t* value) {
  auto& val = value->val;
  switch (kind) {
    case ValueKind::kInt8:
      return MakeNumber(std::optional(from.int8), C_INT8, val.i8, value);
    case ValueKind::kInt16:
      return MakeNumber(std::optional(from.int16), C_INT16, val.i16, value);
    case ValueKind::kInt32:
      return MakeNumber(std::optional(from.int32), C_INT32, val.i32, value);
    case ValueKind::kInt64:
      return MakeNumber(std::optional(from.int64), C_INT64, val.i64, value);
    case ValueKind::kUint8:
      return MakeNumber(std::optional(from.uint8), C_UINT8, val.u8, value);
    case ValueKind::kUint16:
      return MakeNumber(std::optional(from.uint16), C_UINT16, val.u16, value);
    case ValueKind::kUint32:
      return MakeNumber(std::optional(from.uint32), C_UINT32, val.u32, value);
    case ValueKind::kUint64:
      return MakeNumber(std::optional(from.uint64), C_UINT64, val.u64, value);
    default:
      return false;
  }
}

bool MakeBool(std::string_view text, confd_value_t* value) {
  if (text != "true" && text != "false") return false;
  value->type = C_BOOL;
  value->val.boolean = text == "true" ? 1 : 0;
  return true;
}

bool MakeEnum(const lysc_type& type, std::string_view text, confd_value_t* value) {
  const lysc_type_bitenum_item* enums = reinterpret_cast<const lysc_type_enum&>(type).enums;
  LY_ARRAY_COUNT_TYPE i = 0;
  LY_ARRAY_FOR(enums, i) {
    if (text != enums[i].name) continue;
    value->type = C_ENUM_VALUE;
    value->val.enumvalue = enums[i].value;
    return true;
  }
  return false;
}

bool MakeFromText(const lysc_type& type, ValueKind kind, const char* text, confd_value_t* value) {
  switch (kind) {
    case ValueKind::kString:
      *value = MakeString(text);
      return true;
    case ValueKind::kBool:
      return MakeBool(text, value);
    case ValueKind::kEnum:
      return MakeEnum(type, text, value);
    case ValueKind::kIpv4:
      return MakeIpv4(text, value);
    case ValueKind::kIpv4AndPlen:
      return MakeIpv4AndPlen(text, value);
    default:
      return MakeInteger(kind, text, value);
  }
}

std::string PathOf(const lysc_node* node) {
  std::array<char, 512> path = {};
  const char* text = lysc_path(node, LYSC_PATH_LOG, path.data(), path.size());
  return text != nullptr ? text : node->name;
}

}  // namespace

bool ToConfdValue(const ly_ctx* context, const lyd_value& from, ValueKind kind,
                  confd_value_t* value) {
  switch (kind) {
    case ValueKind::kBool:
      *value = {C_BOOL, {}};
      value->val.boolean = from.boolean;
      return true;
    case ValueKind::kEnum:
      *value = {C_ENUM_VALUE, {}};
      value->val.enumvalue = from.enum_item->value;
      return true;
    case ValueKind::kString:
    case ValueKind::kIpv4:
    case ValueKind::kIpv4AndPlen:
      return MakeFromText(*from.realtype, kind, lyd_value_get_canonical(context, &from), value);
    default:
      return CopyInteger(kind, from, value);
  }
}

bool ValueFromCanonical(const lysc_node* leaf, const char* text, confd_value_t* value) {
  if ((leaf->nodetype & (LYS_LEAF | LYS_LEAFLIST)) == 0) {
    Fail(CONFD_ERR_BADTYPE, PathOf(leaf), "not a leaf");
    return false;
  }
  const ValueKind kind = KindOf(leaf);
  if (kind == ValueKind::kUnsupported) {
    Fail(CONFD_ERR_BADTYPE, PathOf(leaf), "the leaf's type has no value here");
    return false;
  }
  if (text == nullptr || !MakeFromText(RealType(leaf), kind, text, value)) {
    Fail(CONFD_ERR_BADTYPE, PathOf(leaf),
         std::string("not a value of the leaf: ") + (text != nullptr ? text : "(null)"));
    return false;
  }
  return true;
}

void ShareValue(const confd_value_t& value, confd_value_t* copy) {
  if (value.type == C_BUF) ++HeaderOf(value.val.buf)->users;
  *copy = value;
}

RecentBatch::~RecentBatch() { Clear(); }

void RecentBatch::Clear() {
  for (confd_value_t& value : values_) confd_free_value(&value);
  values_.clear();
}

bool RecentBatch::Find(const BatchKey& key, confd_value_t* out) const {
  if (values_.empty() || key != key_) return false;
  for (const confd_value_t& value : values_) ShareValue(value, out++);
  return true;
}

void RecentBatch::Add(const BatchKey& key, std::span<const confd_value_t> values) {
  const bool again = key == key_;
  key_ = key;
  Clear();
  const auto is_list = [](const confd_value_t& value) { return value.type == C_LIST; };
  if (!again || std::any_of(values.begin(), values.end(), is_list)) return;
  values_.resize(values.size(), kNothing);
  for (std::size_t i = 0; i < values.size(); ++i) ShareValue(values[i], &values_[i]);
}

ValueBatch::ValueBatch(std::vector<confd_value_t>& storage, std::size_t size) : values_(storage) {
  values_.assign(size, kNothing);
}

ValueBatch::~ValueBatch() {
  for (confd_value_t& value : values_) confd_free_value(&value);
  values_.clear();
}

void ValueBatch::MoveTo(confd_value_t* out) {
  std::copy(values_.begin(), values_.end(), out);
  values_.clear();
}

}  // namespace confd

void confd_free_value(confd_value_t* value) {
  if (value == nullptr) return;
  if (value->type == C_BUF) confd::FreeString(value->val.buf);
  if (value->type == C_LIST) {
    for (unsigned int i = 0; i < value->val.list.size; ++i) {
      confd_free_value(&value->val.list.ptr[i]);
    }
    std::free(value->val.list.ptr);
  }
  *value = confd::kNothing;
}
