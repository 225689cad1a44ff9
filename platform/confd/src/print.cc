#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <confd_lib.h>

#include "platform/confd/src/error.h"
#include "platform/confd/src/tags.h"

namespace confd {
namespace {

std::string AddressText(in_addr address) {
  std::array<char, INET_ADDRSTRLEN> text = {};
  inet_ntop(AF_INET, &address, text.data(), text.size());
  return text.data();
}

std::string_view BufferText(const confd_buf_t& buffer) {
  return {reinterpret_cast<const char*>(buffer.ptr), buffer.size};
}

std::optional<std::string> ValueText(const confd_value_t& value);

std::optional<std::string> ListText(const confd_list& list) {
  std::string text;
  for (unsigned int i = 0; i < list.size; ++i) {
    const auto element = ValueText(list.ptr[i]);
    if (!element) return std::nullopt;
    if (i > 0) text += ' ';
    text += *element;
  }
  return text;
}

std::optional<std::string> IntegerText(const confd_value_t& value) {
  switch (value.type) {
    case C_INT8:
      return std::to_string(value.val.i8);
    case C_INT16:
      return std::to_string(value.val.i16);
    case C_INT32:
      return std::to_string(value.val.i32);
    case C_INT64:
      return std::to_string(value.val.i64);
    case C_UINT8:
      return std::to_string(value.val.u8);
    case C_UINT16:
      return std::to_string(value.val.u16);
    case C_UINT32:
      return std::to_string(value.val.u32);
    case C_UINT64:
      return std::to_string(value.val.u64);
    default:
      return std::nullopt;
  }
}

std::optional<std::string> ValueText(const confd_value_t& value) {
  switch (value.type) {
    case C_XMLTAG:
      return TagName(value.val.xmltag.tag);
    case C_BUF:
      return std::string(BufferText(value.val.buf));
    case C_IPV4:
      return AddressText(value.val.ip);
    case C_BOOL:
      return value.val.boolean != 0 ? "true" : "false";
    case C_ENUM_VALUE:
      return "enum<" + std::to_string(value.val.enumvalue) + ">";
    case C_LIST:
      return ListText(value.val.list);
    case C_IPV4_AND_PLEN:
      return AddressText(value.val.ipv4prefix.ip) + "/" + std::to_string(value.val.ipv4prefix.len);
    default:
      return IntegerText(value);
  }
}

// Adds the keys of a list entry. False when there are none, or one has no text.
bool AddKeys(const confd_value_t* keys, std::string& text) {
  text += '{';
  int count = 0;
  for (; count < MAXKEYLEN && keys[count].type != C_NOEXISTS; ++count) {
    const auto key = ValueText(keys[count]);
    if (!key) return false;
    if (count > 0) text += ' ';
    text += *key;
  }
  text += '}';
  return count > 0;
}

std::optional<std::string> PathText(const confd_hkeypath_t& path) {
  if (path.len < 0 || path.len > MAXDEPTH) return std::nullopt;
  std::string text;
  for (int i = path.len - 1; i >= 0; --i) {
    const confd_value_t* element = path.v[i];
    if (element[0].type == C_XMLTAG) {
      text += "/" + TagName(element[0].val.xmltag.tag);
    } else if (!AddKeys(element, text)) {
      return std::nullopt;
    }
  }
  return text.empty() ? "/" : text;
}

// As snprintf with "%s".
int PrintText(char* buf, int size, std::string_view text) {
  if (size > 0) {
    const std::size_t length = std::min(text.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(buf, text.data(), length);
    buf[length] = '\0';
  }
  return static_cast<int>(text.size());
}

// The same, but a text that is missing is a failure.
int Print(char* buf, int size, const std::optional<std::string>& text, const char* what) {
  if (text) return PrintText(buf, size, *text);
  if (size > 0) buf[0] = '\0';
  return Fail(CONFD_ERR_BADTYPE, what, "it cannot be printed");
}

}  // namespace
}  // namespace confd

int confd_pp_value(char* buf, int size, const confd_value_t* value) {
  // Most values are names, and clients print thousands of them in a row.
  if (value->type == C_BUF) return confd::PrintText(buf, size, confd::BufferText(value->val.buf));
  return confd::Guarded([&] {
    return confd::Print(buf, size, confd::ValueText(*value), "a value that does not exist");
  });
}

int confd_pp_kpath(char* buf, int size, const confd_hkeypath_t* path) {
  return confd::Guarded(
      [&] { return confd::Print(buf, size, confd::PathText(*path), "a malformed key path"); });
}
