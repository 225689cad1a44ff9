// Key paths and values of changes, as the adapter hands them to a change callback.

#ifndef TESTS_UNIT_SRC_DHCP_RELAY_APP_CHANGE_PATH_H_
#define TESTS_UNIT_SRC_DHCP_RELAY_APP_CHANGE_PATH_H_

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include <confd_lib.h>
#include <nettypes/ipv4_addr.h>
#include <vx/schema_hash.h>

namespace dhcp_relay_app {

inline constexpr std::uint32_t kOtherTag = 0x00000001;  // of a node that no callback knows

// The text behind a string value lives as long as the process.
inline confd_value_t BufValue(const std::string& text) {
  static std::list<std::string> texts;
  std::string& kept = texts.emplace_back(text);
  confd_value_t value = {C_BUF, {}};
  value.val.buf = {static_cast<unsigned>(kept.size()),
                   reinterpret_cast<unsigned char*>(kept.data())};
  return value;
}
inline confd_value_t TagValue(std::uint32_t tag) {
  confd_value_t value = {C_XMLTAG, {}};
  value.val.xmltag = {tag, vx_schema::kNsDhcpRelay};
  return value;
}
inline confd_value_t AddressValue(const char* dotted) {
  confd_value_t value = {C_IPV4, {}};
  value.val.ip = nettypes::IPv4Addr::parse(dotted)->to_in_addr();
  return value;
}
inline confd_value_t PrefixValue(const char* dotted, std::uint8_t length) {
  confd_value_t value = {C_IPV4_AND_PLEN, {}};
  value.val.ipv4prefix = {nettypes::IPv4Addr::parse(dotted)->to_in_addr(), length};
  return value;
}
inline confd_value_t BoolValue(bool flag) {
  confd_value_t value = {C_BOOL, {}};
  value.val.boolean = flag ? 1 : 0;
  return value;
}
inline confd_value_t EnumValue(std::int32_t number) {
  confd_value_t value = {C_ENUM_VALUE, {}};
  value.val.enumvalue = number;
  return value;
}
inline confd_value_t Int32Value(std::int32_t number) {
  confd_value_t value = {C_INT32, {}};
  value.val.i32 = number;
  return value;
}

// `elements` are given from the outermost to the innermost.
inline confd_hkeypath_t KeyPathOf(const std::vector<confd_value_t>& elements) {
  confd_hkeypath_t path = {};
  path.len = static_cast<int>(elements.size());
  for (int i = 0; i < path.len; ++i) {
    path.v[i][0] = elements[elements.size() - 1 - static_cast<std::size_t>(i)];
  }
  return path;
}

// Below /config/dhcp/relay{name}: tags and keys of the rest.
inline confd_hkeypath_t RelayPath(const std::string& name, std::vector<confd_value_t> rest = {}) {
  std::vector<confd_value_t> elements = {TagValue(kOtherTag), TagValue(kOtherTag),
                                         TagValue(vx_schema::kTagRelay), BufValue(name)};
  elements.insert(elements.end(), rest.begin(), rest.end());
  return KeyPathOf(elements);
}

inline confd_hkeypath_t OptionPath(const std::string& name, std::uint32_t leaf) {
  return RelayPath(name, {TagValue(kOtherTag), TagValue(leaf)});
}

inline confd_hkeypath_t IfOptionPath(const std::string& name, const std::string& if_name,
                                     std::uint32_t leaf) {
  return RelayPath(name, {TagValue(vx_schema::kTagIfOption), BufValue(if_name), TagValue(kOtherTag),
                          TagValue(leaf)});
}

inline confd_hkeypath_t ServerPath(const std::string& name, const char* address) {
  return RelayPath(name,
                   {TagValue(kOtherTag), TagValue(vx_schema::kTagIpv4), AddressValue(address)});
}

inline confd_hkeypath_t ServerKeyPath(const std::string& name, const char* address) {
  return RelayPath(name, {TagValue(kOtherTag), TagValue(vx_schema::kTagIpv4), AddressValue(address),
                          TagValue(vx_schema::kTagAddress)});
}

inline confd_hkeypath_t EntryPath(const std::string& name, std::uint32_t list,
                                  const std::string& if_name) {
  return RelayPath(name, {TagValue(list), BufValue(if_name)});
}

inline confd_hkeypath_t VrfPath(const std::string& name) {
  return RelayPath(name, {TagValue(vx_schema::kTagVrf)});
}

// Below /config/interface/l3{key}.
inline confd_hkeypath_t VlanPathOf(const std::string& key) {
  return KeyPathOf({TagValue(kOtherTag), TagValue(kOtherTag), TagValue(kOtherTag), BufValue(key),
                    TagValue(kOtherTag), TagValue(kOtherTag)});
}
inline confd_hkeypath_t AddressPathOf(const std::string& key) {
  return KeyPathOf({TagValue(kOtherTag), TagValue(kOtherTag), TagValue(kOtherTag), BufValue(key),
                    TagValue(kOtherTag), TagValue(kOtherTag), TagValue(kOtherTag)});
}

}  // namespace dhcp_relay_app

#endif  // TESTS_UNIT_SRC_DHCP_RELAY_APP_CHANGE_PATH_H_
