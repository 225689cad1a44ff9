// Every name that travels is in the data model of the operational data, and no other is there.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "protocol/control/interface_state.h"
#include "protocol/control/outcome.h"

namespace {

namespace control = dhcp_relay::control;
using ::testing::UnorderedElementsAreArray;

constexpr char kState[] = "/vx-dhcp-relay-state:dhcp-relay-state";
constexpr char kInterface[] = "/vx-dhcp-relay-state:dhcp-relay-state/instance/interface";

class StateModelTest : public ::testing::Test {
 protected:
  StateModelTest() {
    ly_ctx* context = nullptr;
    EXPECT_EQ(ly_ctx_new(VX_YANG_DIR, 0, &context), LY_SUCCESS);
    context_.reset(context);
    EXPECT_NE(ly_ctx_load_module(context, "vx-dhcp-relay-state", nullptr, nullptr), nullptr);
  }

  const lysc_node* Find(const std::string& path) const {
    return lys_find_path(context_.get(), nullptr, path.c_str(), 0);
  }

  // The leaves of a container of outcomes without the sum.
  std::vector<std::string> OutcomeLeaves(const std::string& path) const {
    std::vector<std::string> names;
    const lysc_node* leaf = nullptr;
    while ((leaf = lys_getnext(leaf, Find(path), nullptr, 0)) != nullptr) {
      if (leaf->name != std::string("received")) names.emplace_back(leaf->name);
    }
    return names;
  }

  std::vector<std::string> Enums(const std::string& path) const {
    const auto* const leaf = reinterpret_cast<const lysc_node_leaf*>(Find(path));
    const auto* const type = reinterpret_cast<const lysc_type_enum*>(leaf->type);
    std::vector<std::string> names;
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(type->enums); ++i) {
      names.emplace_back(type->enums[i].name);
    }
    return names;
  }

  struct ContextDeleter {
    void operator()(ly_ctx* context) const { ly_ctx_destroy(context); }
  };
  std::unique_ptr<ly_ctx, ContextDeleter> context_;
};

TEST_F(StateModelTest, HasALeafForEachOutcome) {
  const std::string interface = kInterface;
  EXPECT_THAT(OutcomeLeaves(interface + "/requests"),
              UnorderedElementsAreArray(control::RequestOutcomes()));
  EXPECT_THAT(OutcomeLeaves(interface + "/replies"),
              UnorderedElementsAreArray(control::ReplyOutcomes()));
  EXPECT_THAT(OutcomeLeaves(std::string(kState) + "/other"),
              UnorderedElementsAreArray(control::UnmatchedOutcomes()));
}

TEST_F(StateModelTest, HasAnEnumForEachInterfaceState) {
  EXPECT_THAT(Enums(std::string(kInterface) + "/state"),
              UnorderedElementsAreArray(control::InterfaceStates()));
}

}  // namespace
