#include "platform/confd/src/tags.h"

#include <libyang/libyang.h>
#include <libyang/plugins_exts.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>
#include <unordered_map>

#include <confd/session.h>

#include "platform/confd/src/extension.h"
#include "platform/confd/src/hash.h"

namespace confd {
namespace {

std::unordered_map<std::uint32_t, std::string>& Names() {
  static std::unordered_map<std::uint32_t, std::string> names;
  return names;
}

// A number in decimal, or in hexadecimal after 0x.
std::optional<std::uint32_t> ParseNumber(std::string_view text) {
  const bool hex = text.substr(0, 2) == "0x";
  if (hex) text.remove_prefix(2);
  std::uint32_t number = 0;
  const auto parsed = std::from_chars(text.begin(), text.end(), number, hex ? 16 : 10);
  if (parsed.ec != std::errc() || parsed.ptr != text.end()) return std::nullopt;
  return number;
}

// The argument of the first extension `name`.
std::optional<std::uint32_t> FixedHash(const lysc_ext_instance* extensions, std::string_view name) {
  LY_ARRAY_COUNT_TYPE i = 0;
  LY_ARRAY_FOR(extensions, i) {
    if (const char* number = ArgumentOf(extensions[i], name)) return ParseNumber(number);
  }
  return std::nullopt;
}

}  // namespace

// Computed anew at each call: a result kept by address would be wrong as soon as the datastore
// reloads its schema and another node takes the place.
std::uint32_t TagHash(const lysc_node* node) {
  const auto fixed = FixedHash(node->exts, "tag-hash");
  const std::uint32_t tag = fixed ? *fixed : HashText(node->name);
  Names().try_emplace(tag, node->name);
  return tag;
}

std::uint32_t NamespaceHash(const lys_module* module) {
  const auto fixed =
      FixedHash(module->compiled != nullptr ? module->compiled->exts : nullptr, "ns-hash");
  return fixed ? *fixed : HashText(module->name);
}

std::string TagName(std::uint32_t tag) {
  const auto found = Names().find(tag);
  if (found != Names().end()) return found->second;
  std::array<char, 10> text;
  std::snprintf(text.data(), text.size(), "#%08x", tag);
  return text.data();
}

}  // namespace confd
