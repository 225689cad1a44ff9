#include "platform/vxconfd/src/data_tree.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

using vxconfd::ContextPtr;
using vxconfd::DataTree;

constexpr char kModel[] = R"(module m { namespace "urn:m"; prefix m;
    leaf-list word { type string; }
    list entry { key k; leaf k { type string; } }
    container top {
      container options { leaf flag { type boolean; default true; } leaf set { type string; } }
      list item { key k; leaf k { type string; }
        leaf value { type uint16; default 5; }
        container more { leaf flag { type boolean; default true; } }
        list part { key k; leaf k { type string; } }
        leaf-list number { type uint16; } }
      list step { key k; ordered-by user; leaf k { type string; } }
      leaf-list number { type uint16; }
      container last { presence "set"; } } })";

constexpr char kOtherModel[] = R"(module n { namespace "urn:n"; prefix n;
    container other { list item { key k; leaf k { type string; } } } })";

// As kModel where data of the tests is there, but numbers are smaller.
constexpr char kNarrowModel[] = R"(module m { namespace "urn:m"; prefix m;
    container top { leaf-list number { type uint8; } } })";

ContextPtr MakeContext(const std::vector<const char*>& models) {
  ly_ctx* context = nullptr;
  EXPECT_EQ(ly_ctx_new(nullptr, 0, &context), LY_SUCCESS);
  const std::shared_ptr<ly_ctx> owner(context, ly_ctx_destroy);
  for (const char* model : models) {
    EXPECT_EQ(lys_parse_mem(context, model, LYS_IN_YANG, nullptr), LY_SUCCESS);
  }
  return owner;
}

// A line for each node in their order: the path with its value, flags and metadata.
std::string Describe(const lyd_node* siblings) {
  std::string text;
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    char* path = lyd_path(node, LYD_PATH_STD, nullptr, 0);
    const char* value = lyd_get_value(node);
    text += std::string(path) + " = " + (value != nullptr ? value : "-") + " flags " +
            std::to_string(node->flags);
    std::free(path);
    for (const lyd_meta* meta = node->meta; meta != nullptr; meta = meta->next) {
      text += std::string(" ") + meta->name + "=" + lyd_get_meta_value(meta);
    }
    text += "\n" + Describe(lyd_child(node));
  }
  return text;
}

// A node that is set.
struct Change {
  const char* what;
  const char* path;
  const char* value;
};

class DataTreeTest : public ::testing::Test {
 protected:
  // `path` may have the value of a leaf-list entry.
  lyd_node* Add(const std::string& path, const char* value = nullptr) {
    lyd_node* node = nullptr;
    EXPECT_EQ(lyd_new_path2(source_.first() != nullptr ? *source_.root() : nullptr,
                            source_.context().get(), path.c_str(), value, 0, LYD_ANYDATA_STRING, 0,
                            source_.first() != nullptr ? nullptr : source_.root(), &node),
              LY_SUCCESS)
        << path;
    while (source_.first()->prev->next != nullptr) *source_.root() = source_.first()->prev;
    return node;
  }

  void AddNumbers(const std::vector<const char*>& numbers) {
    for (const char* number : numbers) Add("/m:top/number", number);
  }

  void AddDefaults() {
    EXPECT_EQ(lyd_new_implicit_all(source_.root(), source_.context().get(), 0, nullptr),
              LY_SUCCESS);
  }

  void FillForComparison() {
    Add("/m:top/item[k='a']/part[k='x']");
    Add("/m:top/item[k='b']/value", "7");
    AddNumbers({"1", "2"});
    Add("/n:other/item[k='z']");
    AddDefaults();
  }

  // Moves the data to `target_`, which must make of it what a copy is.
  void ExpectMoveEqualsCopy() {
    const vxconfd::DataTreePtr copy = vxconfd::CopyData(target_, source_.first());
    ASSERT_NE(copy, nullptr);
    const vxconfd::DataTreePtr moved = vxconfd::MoveData(target_, source_.root());
    ASSERT_NE(moved, nullptr);
    EXPECT_EQ(source_.first(), nullptr);
    EXPECT_EQ(Describe(moved->first()), Describe(copy->first()));
    EXPECT_EQ(vxconfd::Difference(*copy, *moved)->first(), nullptr);
    EXPECT_TRUE(moved->first() == nullptr || LYD_CTX(moved->first()) == target_.get());
  }

  DataTree source_{MakeContext({kModel, kOtherModel})};
  const ContextPtr target_ = MakeContext({kModel, kOtherModel});
};

TEST_F(DataTreeTest, MovesNothing) { ExpectMoveEqualsCopy(); }

TEST_F(DataTreeTest, KeepsTheOrderOfListsAndLeafLists) {
  for (const char* key : {"c", "a", "b", "e", "d"}) {
    Add("/m:top/step[k='" + std::string(key) + "']");
    Add("/m:top/item[k='" + std::string(key) + "']/part[k='y']");
    Add("/m:top/item[k='" + std::string(key) + "']/part[k='x']");
    Add("/m:top/item[k='" + std::string(key) + "']/number", "7");
  }
  AddNumbers({"30", "10", "20"});
  Add("/m:top/last");
  ExpectMoveEqualsCopy();
}

TEST_F(DataTreeTest, KeepsDefaultFlags) {
  Add("/m:top/item[k='plain']");
  Add("/m:top/item[k='set']/value", "5");
  Add("/m:top/item[k='set']/more/flag", "true");
  AddDefaults();
  ExpectMoveEqualsCopy();
}

TEST_F(DataTreeTest, KeepsContainersThatAreThereByDefault) {
  AddDefaults();
  ASSERT_NE(source_.first(), nullptr);
  ExpectMoveEqualsCopy();
}

TEST_F(DataTreeTest, KeepsFlagsOfNewNodesAndMetadata) {
  for (const char* path : {"/m:top/item[k='a']", "/m:top/item[k='b']", "/m:top/options"}) {
    lyd_node* const node = Add(path);
    EXPECT_EQ(lyd_new_meta(nullptr, node, nullptr, "yang:operation", "create", 0, nullptr),
              LY_SUCCESS);
  }
  EXPECT_NE(Describe(source_.first()).find("operation=create"), std::string::npos);
  ExpectMoveEqualsCopy();
}

TEST_F(DataTreeTest, MovesTopLevelSiblingsOfSeveralModules) {
  Add("/n:other/item[k='z']");
  for (const char* key : {"b", "a", "c"}) {
    Add("/m:entry[k='" + std::string(key) + "']");
    Add("/m:word", key);
  }
  AddNumbers({"1"});
  ExpectMoveEqualsCopy();
}

TEST_F(DataTreeTest, AllowsInsertionIntoWhatWasMoved) {
  AddNumbers({"1", "3"});
  const vxconfd::DataTreePtr moved = vxconfd::MoveData(target_, source_.root());
  ASSERT_NE(moved, nullptr);
  EXPECT_EQ(lyd_new_path(*moved->root(), nullptr, "/m:top/number", "2", 0, nullptr), LY_SUCCESS);
  AddNumbers({"1", "2", "3"});
  const vxconfd::DataTreePtr expected = vxconfd::CopyData(target_, source_.first());
  EXPECT_EQ(vxconfd::Difference(*expected, *moved)->first(), nullptr);
  std::string numbers;
  for (const lyd_node* node = lyd_child(moved->first()); node != nullptr; node = node->next) {
    numbers += lyd_get_value(node);
  }
  EXPECT_EQ(numbers, "123");
}

TEST_F(DataTreeTest, GivesNothingWhenAValueInTheMiddleIsNotAllowed) {
  AddNumbers({"1", "2", "3", "300", "400"});
  EXPECT_EQ(vxconfd::MoveData(MakeContext({kNarrowModel}), source_.root()), nullptr);
  // What was copied is freed, but for the latest; what is left still belongs to the caller.
  ASSERT_NE(source_.first(), nullptr);
  EXPECT_EQ(vxconfd::CountNodes(lyd_child(source_.first())), 3U);
  EXPECT_STREQ(lyd_get_value(lyd_child(source_.first())), "3");
}

TEST_F(DataTreeTest, GivesNothingWhenALaterModuleIsNotKnown) {
  AddNumbers({"1"});
  Add("/n:other/item[k='z']");
  EXPECT_EQ(vxconfd::MoveData(MakeContext({kNarrowModel}), source_.root()), nullptr);
  EXPECT_NE(Describe(source_.first()).find("/n:other"), std::string::npos);
}

TEST_F(DataTreeTest, EqualDataOfAnotherContextIsEqual) {
  EXPECT_TRUE(vxconfd::HasEqualData(source_, nullptr));
  FillForComparison();
  const auto copy = vxconfd::CopyData(target_, source_.first());
  EXPECT_TRUE(vxconfd::HasEqualData(*copy, source_.first()));
  EXPECT_FALSE(vxconfd::HasEqualData(*copy, nullptr));
  EXPECT_FALSE(vxconfd::HasEqualData(DataTree(target_), source_.first()));
}

TEST_F(DataTreeTest, EveryChangeMakesDataUnequal) {
  FillForComparison();
  const std::vector<Change> changes = {
      {"another value", "/m:top/item[k='b']/value", "9"},
      {"a default that is set", "/m:top/item[k='a']/value", "5"},
      {"one more list entry", "/m:top/item[k='c']", nullptr},
      {"one more leaf-list entry", "/m:top/number", "8"},
      {"one more setting", "/m:top/options/set", "x"},
      {"a container with presence", "/m:top/last", nullptr},
      {"an entry of another module", "/n:other/item[k='y']", nullptr},
  };
  for (const auto& change : changes) {
    const auto copy = vxconfd::CopyData(target_, source_.first());
    EXPECT_EQ(lyd_new_path(*copy->root(), nullptr, change.path, change.value, LYD_NEW_PATH_UPDATE,
                           nullptr),
              LY_SUCCESS)
        << change.what;
    EXPECT_FALSE(vxconfd::HasEqualData(*copy, source_.first())) << change.what;
  }
}

TEST_F(DataTreeTest, AnotherOrderOfAListThatUsersOrderMakesDataUnequal) {
  Add("/m:top/step[k='a']");
  lyd_node* const last = Add("/m:top/step[k='b']");
  const auto copy = vxconfd::CopyData(target_, source_.first());
  EXPECT_TRUE(vxconfd::HasEqualData(*copy, source_.first()));
  EXPECT_EQ(lyd_insert_before(lyd_child(source_.first()), last), LY_SUCCESS);
  EXPECT_FALSE(vxconfd::HasEqualData(*copy, source_.first()));
}

}  // namespace
