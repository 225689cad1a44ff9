// Single files of the datastore's shared memory go, or stay, under a running adapter.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>

#include "tests/integration/platform/vxconfd/lost_datastore.h"

namespace {

namespace fs = std::filesystem;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using tests::Interface;
using tests::Interfaces;

class RemovedFilesTest : public tests::LostDatastoreTest {};

// The library crashes where it takes an event whose file is empty. That is so when somebody removes
// the files under a commit, and another process begins to make new ones.
TEST_F(RemovedFilesTest, TakesNoEventWhoseFileIsGone) {
  Start(Interfaces(Interface(1, 10)));
  CommitUnservedAndKill(Interfaces(Interface(1, 11)));
  MakeEmpty(SharedMemory("sub_data_vx-config.running"));
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events, ElementsAre("disconnected", "connected", "1=11", "load", "apply"));
  EXPECT_THAT(repository_.Faults(), HasSubstr("cannot take changes"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

class PartOfSharedMemoryTest : public RemovedFilesTest,
                               public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(All, PartOfSharedMemoryTest, ::testing::Values("_main", "_mod", "_ext"));

// The library crashes where it connects to the rest, and leaves an empty file then.
TEST_P(PartOfSharedMemoryTest, IsNoticedWhenItGoesAndWaitedForWhenItIsEmpty) {
  Start(Interfaces(Interface(1, 10)));
  MakeEmpty(SharedMemory(GetParam()));
  EXPECT_TRUE(RunUntilHeard("disconnected"));
  tests::RunFor(mw_.get(), std::chrono::milliseconds(500));
  EXPECT_FALSE(adapter_.connected());
  tests::PrivateRepository::RemoveSharedMemory();
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_TRUE(adapter_.connected());
}

// A committer that goes on in the lost datastore makes files of the new one, which nobody can make
// then.
TEST_F(RemovedFilesTest, ConnectsAnewAlthoughFilesWereLeft) {
  Start(Interfaces(Interface(1, 10)));
  const std::string data = SharedMemory("_vx-config.running");
  const std::string events = SharedMemory("sub_vx-config.running");
  const fs::path kept = repository_.directory() / "kept";
  fs::copy_file(data, kept);
  tests::PrivateRepository::RemoveSharedMemory();
  fs::copy_file(kept, data);
  MakeEmpty(events);
  EXPECT_TRUE(RunUntilHeard("apply"));
  EXPECT_THAT(handler_.events, ElementsAre("disconnected", "connected", "load", "apply"));
  Commit(Interfaces(Interface(3, 30)));
  EXPECT_THAT(handler_.events, Contains("3=30"));
}

}  // namespace
