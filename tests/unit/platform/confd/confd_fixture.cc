#include "tests/unit/platform/confd/confd_fixture.h"

#include <libyang/libyang.h>

#include <array>
#include <stdexcept>

namespace confd_test {
namespace {

constexpr const char* kSchemaModule = R"(
module vx-schema {
  namespace "urn:test:schema";
  prefix vxs;
  extension tag-hash { argument value; }
  extension ns-hash { argument value; }
  extension value-type { argument name; }
})";

constexpr const char* kShopModule = R"(
module shop {
  yang-version 1.1;
  namespace "urn:test:shop";
  prefix sh;
  import vx-schema { prefix vxs; }
  import ietf-inet-types { prefix inet; }
  vxs:ns-hash "0x01020304";

  typedef derived-address { type inet:ipv4-address-no-zone; }
  typedef host { type string { vxs:value-type "ipv4-address"; } }
  typedef near-host { type host { length "1..15"; } }
  typedef near-host-again { type near-host; }
  typedef place { type string { vxs:value-type "ipv4-address-and-prefix-length"; } }
  typedef place-of-host { type host { vxs:value-type "ipv4-address-and-prefix-length"; } }
  typedef strange { type string { vxs:value-type "colour"; } }
  typedef server-address { type string; }
  typedef ipv4-address { type string; }
  typedef ipv4-address-and-prefix-length { type string; }

  identity fruit;
  identity apple { base fruit; }

  container config {
    leaf-list colour { type string; }
    leaf-list size { type int32; default 1; default 2; }
    leaf name { type string; }
    list item {
      vxs:tag-hash "0x11112222";
      key name;
      leaf name { type string; }
      leaf number { type int32; default -5; }
      leaf count { type uint32; }
      leaf flag { type boolean; default true; }
      container box {
        vxs:tag-hash "287454020";
        leaf inside { type boolean; default false; }
        container deep { leaf bottom { type string; } }
      }
      list part {
        key "row column";
        leaf row { type string; }
        leaf column { type int32; }
        leaf note { type string; }
      }
      leaf mode {
        type enumeration {
          enum drop { value 0; }
          enum keep { value 1; }
          enum swap { value 7; }
        }
        default keep;
      }
      container lid {
        presence "it has a lid";
        leaf in-lid { type int32; default 9; }
      }
      leaf-list word { type string; ordered-by user; }
      leaf-list mark { type uint32; default 3; default 4; }
      choice way {
        case one { leaf one { type string; default first; } }
        case two { leaf two { type string; } }
      }
      leaf conditional { when "../flag = 'true'"; type string; default yes; }
    }
    container types {
      leaf address { type inet:ipv4-address; }
      leaf no-zone { type inet:ipv4-address-no-zone; }
      leaf derived { type derived-address; }
      leaf server { type host; }
      leaf prefix { type place; }
      leaf standard-prefix { type inet:ipv4-prefix; }
      leaf reference { type leafref { path "../../item/name"; } }
      leaf number-reference { type leafref { path "../../item/number"; } }
      leaf decimal { type decimal64 { fraction-digits 2; } }
      leaf either { type union { type int32; type string; } }
      leaf flags { type bits { bit red; } }
      leaf fruit { type identityref { base fruit; } }
      leaf nothing { type empty; }
      leaf-list server-list { type host; }
    }
    list log { config false; leaf line { type string; } }
    anydata blob;
  }
  container numbers {
    leaf i8 { type int8; }
    leaf i16 { type int16; }
    leaf i64 { type int64; }
    leaf u8 { type uint8; }
    leaf u16 { type uint16; }
    leaf u64 { type uint64; }
  }
  container hosts {
    leaf near { type near-host; }
    leaf near-and-short { type near-host-again { length "1..12"; } }
    leaf own { type string { vxs:value-type "ipv4-address"; } }
    leaf host-reference { type leafref { path "../near"; } }
    leaf place-of-host { type place-of-host; }
    leaf strange { type strange; }
    leaf named-server { type server-address; }
    leaf named-address { type ipv4-address; }
    leaf named-prefix { type ipv4-address-and-prefix-length; }
  }
  container stats { config false; leaf uptime { type uint32; } }
  list top { key id; leaf id { type int32; } }
  container last {
    leaf word { type string; }
    list crate {
      key name;
      leaf name { type string; }
      container inside { list bottle { key label; leaf label { type string; } } }
      list jar { key label; leaf label { type string; } }
    }
  }
})";

constexpr const char* kExtrasModule = R"(
module shop-extras {
  yang-version 1.1;
  namespace "urn:test:extras";
  prefix ex;
  import shop { prefix sh; }
  augment "/sh:config" {
    leaf extra { type string; }
    leaf name { type string; }
    container store { leaf open { type boolean; default true; } }
  }
})";

void LoadModule(ly_ctx* context, const char* text) {
  if (lys_parse_mem(context, text, LYS_IN_YANG, nullptr) != LY_SUCCESS) {
    throw std::runtime_error("the test's data model does not compile");
  }
}

}  // namespace

Context MakeContext() {
  ly_ctx* raw = nullptr;
  if (ly_ctx_new(nullptr, 0, &raw) != LY_SUCCESS) throw std::runtime_error("no context");
  const std::shared_ptr<ly_ctx> context(raw, ly_ctx_destroy);
  for (const char* module : {kSchemaModule, kShopModule, kExtrasModule}) {
    LoadModule(context.get(), module);
  }
  return context;
}

Tree ParseData(const Context& context, const std::string& json, Defaults defaults) {
  const std::uint32_t parse = defaults == Defaults::kLeftOut ? LYD_PARSE_ONLY : 0U;
  lyd_node* tree = nullptr;
  const LY_ERR result =
      lyd_parse_data_mem(context.get(), json.c_str(), LYD_JSON, parse | LYD_PARSE_STRICT,
                         parse == 0 ? LYD_VALIDATE_PRESENT : 0U, &tree);
  if (result != LY_SUCCESS) {
    throw std::runtime_error(std::string("bad test data: ") + ly_last_errmsg());
  }
  return {tree, [](const lyd_node* node) { lyd_free_all(const_cast<lyd_node*>(node)); }};
}

const lysc_node* FindSchema(const Context& context, const std::string& path) {
  const lysc_node* node = lys_find_path(context.get(), nullptr, path.c_str(), 0);
  if (node == nullptr) throw std::runtime_error("no such schema node: " + path);
  return node;
}

std::string Text(const confd_value_t& value) {
  if (value.type == C_NOEXISTS) return "<none>";
  std::array<char, 512> text = {};
  confd_pp_value(text.data(), static_cast<int>(text.size()), &value);
  return text.data();
}

void ConfdTest::Open(const std::string& json, Defaults defaults) {
  confd::CloseSession(sock_);
  sock_ = confd::OpenSession(
      std::make_shared<confd::Snapshot>(context_, ParseData(context_, json, defaults)));
}

}  // namespace confd_test
