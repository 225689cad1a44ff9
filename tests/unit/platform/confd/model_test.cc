// The device's own data model, as programs read it: by position.

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <string>
#include <vector>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

Context LoadModel() {
  ly_ctx* raw = nullptr;
  EXPECT_EQ(ly_ctx_new(VX_YANG_DIR, 0, &raw), LY_SUCCESS);
  const std::shared_ptr<ly_ctx> context(raw, ly_ctx_destroy);
  for (const char* module : {"metacli-internal", "vx-config", "vx-dhcp-relay", "vx-interface"}) {
    EXPECT_NE(ly_ctx_load_module(raw, module, nullptr, nullptr), nullptr) << module;
  }
  return context;
}

constexpr const char* kData = R"({
  "metacli-internal:internal": {"vrf-config": {"stringTOindex": [{"name": "red", "vrf-idx": 7}]}},
  "vx-config:config": {
    "vx-interface:interface": {"l3": [{"name": "5", "lower-layer-if": {"vlan": 5},
                                       "ipv4": {"address": {"ip": "192.168.1.1/24"}}}]},
    "vx-dhcp-relay:dhcp": {"relay": [{"name": "r1", "vrf": "red",
      "server": {"ipv4": [{"address": "10.0.0.1"}]},
      "relay-information": {"option": true, "check": false, "trusted": true, "policy": "drop"},
      "interface": [{"name": "l3-5"}],
      "if-option": [{"name": "l3-5", "relay-information": {"check": true}}]}]}}})";

class ConfdModel : public testing::Test {
 protected:
  ConfdModel()
      : context_(LoadModel()),
        sock_(confd::OpenSession(std::make_shared<confd::Snapshot>(
            context_, ParseData(context_, kData, Defaults::kImplicit)))) {}
  void TearDown() override { confd::CloseSession(sock_); }

  // Reads all values of an object of `n`.
  std::vector<confd_value_t> Read(const char* path, int n) {
    std::vector<confd_value_t> values(static_cast<std::size_t>(n), confd_value_t{C_NOEXISTS, {}});
    EXPECT_EQ(cdb_get_object(sock_, values.data(), n, "%s", path), n) << confd_lasterr();
    return values;
  }

  static void ExpectAll(std::vector<confd_value_t> values, const std::vector<std::string>& texts) {
    ASSERT_EQ(values.size(), texts.size());
    for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(Text(values[i]), texts[i]) << i;
    for (confd_value_t& value : values) confd_free_value(&value);
  }

  Context context_;
  int sock_;
};

TEST_F(ConfdModel, HasTheValuesOfAnInstanceInTheirPlaces) {
  const auto values = Read("/config/dhcp/relay{r1}", 11);
  EXPECT_EQ(values[0].type, C_BUF);
  EXPECT_EQ(values[1].type, C_BUF);
  EXPECT_EQ(values[2].type, C_NOEXISTS);
  EXPECT_EQ(values[3].type, C_XMLTAG);
  for (const std::size_t i : {4U, 5U, 6U}) EXPECT_EQ(values[i].type, C_BOOL);
  EXPECT_EQ(values[7].type, C_ENUM_VALUE);
  EXPECT_EQ(values[8].type, C_NOEXISTS);
  EXPECT_EQ(values[9].type, C_XMLTAG);
  EXPECT_EQ(values[10].type, C_NOEXISTS);
  ExpectAll(values, {"r1", "red", "<none>", "relay-information", "true", "false", "true", "enum<0>",
                     "<none>", "server", "<none>"});
}

TEST_F(ConfdModel, HasTheValuesOfAnOverrideInTheirPlaces) {
  const auto values = Read("/config/dhcp/relay{r1}/if-option{l3-5}", 6);
  EXPECT_EQ(values[1].type, C_XMLTAG);
  for (const std::size_t i : {2U, 3U, 4U}) EXPECT_EQ(values[i].type, C_BOOL);
  EXPECT_EQ(values[5].type, C_ENUM_VALUE);
  ExpectAll(values, {"l3-5", "relay-information", "false", "true", "false", "enum<1>"});
}

TEST_F(ConfdModel, GivesServersAsAddresses) {
  confd_value_t address = {C_NOEXISTS, {}};
  EXPECT_EQ(cdb_get_object(sock_, &address, 1, "/config/dhcp/relay{r1}/server/ipv4[%d]", 0), 1);
  EXPECT_EQ(address.type, C_IPV4);
  EXPECT_EQ(Text(address), "10.0.0.1");
  EXPECT_EQ(cdb_num_instances(sock_, "/config/dhcp/relay{r1}/server/ipv4"), 1);
}

TEST_F(ConfdModel, GivesTheLeavesOfAnInterface) {
  std::int32_t vlan = 0;
  EXPECT_EQ(cdb_get_int32(sock_, &vlan, "/config/interface/l3{5}/lower-layer-if/vlan"), CONFD_OK);
  EXPECT_EQ(vlan, 5);
  confd_ipv4_prefix prefix = {};
  EXPECT_EQ(cdb_get_ipv4_and_plen(sock_, &prefix, "/config/interface/l3{5}/ipv4/address/ip"),
            CONFD_OK);
  EXPECT_EQ(ntohl(prefix.ip.s_addr), 0xc0a80101U);
  EXPECT_EQ(prefix.len, 24);
  EXPECT_EQ(cdb_exists(sock_, "/config/interface/l3{}/ipv4/address/ip"), 0);
}

TEST_F(ConfdModel, GivesTheNameAndTheIndexOfAVrf) {
  char vrf[64] = "";
  EXPECT_EQ(cdb_get_str(sock_, vrf, sizeof vrf, "/config/dhcp/relay{r1}/vrf"), CONFD_OK);
  EXPECT_STREQ(vrf, "red");
  OwnedValue index;
  EXPECT_EQ(cdb_get(sock_, index.get(),
                    "/metacli-internal:internal/metacli-internal:vrf-config/"
                    "stringTOindex{%s}/vrf-idx",
                    vrf),
            CONFD_OK);
  EXPECT_EQ(index->type, C_UINT32);
  EXPECT_EQ(CONFD_GET_UINT32(index.get()), 7U);
}

}  // namespace
}  // namespace confd_test
