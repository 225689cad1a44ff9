#include "platform/vxconfd/src/commit_queue.h"

#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include <memory>
#include <string>

namespace {

using vxconfd::Commit;
using vxconfd::CommitQueue;
using vxconfd::DataTree;

constexpr char kModel[] = R"(module m { namespace "urn:m"; prefix m;
    container top { leaf-list x { type string; } } })";

class CommitQueueTest : public ::testing::Test {
 protected:
  CommitQueueTest() {
    ly_ctx* context = nullptr;
    EXPECT_EQ(ly_ctx_new(nullptr, 0, &context), LY_SUCCESS);
    context_ = {context, ly_ctx_destroy};
    EXPECT_EQ(lys_parse_mem(context, kModel, LYS_IN_YANG, nullptr), LY_SUCCESS);
  }

  // Of as many nodes: a container, and values in it.
  Commit Of(int nodes) {
    auto changes = std::make_shared<DataTree>(context_);
    lyd_new_path(nullptr, context_.get(), "/m:top", nullptr, 0, changes->root());
    for (int i = 1; i < nodes; ++i) {
      lyd_new_path(*changes->root(), nullptr, ("/m:top/x[.='" + std::to_string(i) + "']").c_str(),
                   nullptr, 0, nullptr);
    }
    return {changes, nullptr};
  }

  vxconfd::ContextPtr context_;
};

TEST_F(CommitQueueTest, KeepsTheOrder) {
  CommitQueue queue(100);
  const Commit first = Of(1);
  const Commit second = Of(2);
  EXPECT_TRUE(queue.Add(first));
  EXPECT_TRUE(queue.Add(second));
  EXPECT_EQ(queue.Take().changes, first.changes);
  EXPECT_EQ(queue.Take().changes, second.changes);
  EXPECT_TRUE(queue.empty());
}

TEST_F(CommitQueueTest, TakesACommitOfAnySizeWhenItIsEmpty) {
  CommitQueue queue(5);
  EXPECT_TRUE(queue.Add(Of(50)));
}

TEST_F(CommitQueueTest, RefusesCommitsFromItsLimitOn) {
  CommitQueue queue(5);
  EXPECT_TRUE(queue.Add(Of(4)));
  EXPECT_TRUE(queue.Add(Of(1)));
  EXPECT_FALSE(queue.Add(Of(1)));
  queue.Take();
  EXPECT_TRUE(queue.Add(Of(1)));
}

TEST_F(CommitQueueTest, HasRoomAgainWhenItWasCleared) {
  CommitQueue queue(5);
  EXPECT_TRUE(queue.Add(Of(5)));
  queue.Clear();
  EXPECT_TRUE(queue.empty());
  EXPECT_TRUE(queue.Add(Of(5)));
}

}  // namespace
