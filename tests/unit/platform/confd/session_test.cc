#include <gmock/gmock.h>

#include <functional>
#include <initializer_list>
#include <memory>
#include <string>

#include "tests/unit/platform/confd/confd_fixture.h"

namespace confd_test {
namespace {

using testing::StrEq;

class ConfdSession : public testing::Test {
 protected:
  std::shared_ptr<confd::Snapshot> Make(const char* name) {
    const std::string json = std::string(R"({"shop:config": {"name": ")") + name + "\"}}";
    return std::make_shared<confd::Snapshot>(context_,
                                             ParseData(context_, json, Defaults::kImplicit));
  }

  std::string NameOf(int sock) {
    char text[64] = "";
    EXPECT_EQ(cdb_get_str(sock, text, sizeof text, "/config/name"), CONFD_OK) << confd_lasterr();
    return text;
  }

  void SetUp() override { confd::SetLastError(0, ""); }

  Context context_ = MakeContext();
};

TEST_F(ConfdSession, ReadsItsOwnSnapshot) {
  const int first = confd::OpenSession(Make("one"));
  const int second = confd::OpenSession(Make("two"));
  EXPECT_NE(first, second);
  EXPECT_EQ(NameOf(first), "one");
  EXPECT_EQ(NameOf(second), "two");
  confd::CloseSession(first);
  EXPECT_EQ(NameOf(second), "two");
  confd::CloseSession(second);
}

TEST_F(ConfdSession, MayShareASnapshot) {
  const auto snapshot = Make("one");
  const int first = confd::OpenSession(snapshot);
  const int second = confd::OpenSession(snapshot);
  confd::CloseSession(first);
  EXPECT_EQ(NameOf(second), "one");
  confd::CloseSession(second);
}

TEST_F(ConfdSession, UsesSocketsAgainAfterClosing) {
  const int first = confd::OpenSession(Make("one"));
  EXPECT_GE(first, 0);
  confd::CloseSession(first);
  const int second = confd::OpenSession(Make("two"));
  EXPECT_EQ(second, first);
  EXPECT_EQ(NameOf(second), "two");
  confd::CloseSession(second);
}

TEST_F(ConfdSession, ReleasesTheSnapshotWhenClosed) {
  const auto tree = ParseData(context_, R"({"shop:config": {"name": "n"}})", Defaults::kImplicit);
  const int sock = confd::OpenSession(std::make_shared<confd::Snapshot>(context_, tree));
  EXPECT_EQ(tree.use_count(), 2);
  confd::CloseSession(sock);
  EXPECT_EQ(tree.use_count(), 1);
}

TEST_F(ConfdSession, ReleasesTheDataBeforeTheSchema) {
  std::string order;
  {
    const Context context(context_.get(), [&](const ly_ctx*) { order += "schema"; });
    const auto tree = ParseData(context_, R"({"shop:config": {"name": "n"}})", Defaults::kImplicit);
    const Tree noted(tree.get(), [&](const lyd_node*) { order += "data "; });
    const confd::Snapshot snapshot(context, noted);
  }
  EXPECT_EQ(order, "data schema");
}

TEST_F(ConfdSession, ClosesWhatIsNotOpenWithoutHarm) {
  const int sock = confd::OpenSession(Make("one"));
  confd::CloseSession(sock);
  confd::CloseSession(sock);
  confd::CloseSession(-1);
  confd::CloseSession(1000);
  EXPECT_EQ(cdb_exists(sock, "/config"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_NOSESSION);
}

TEST_F(ConfdSession, RefusesEveryCallOnASocketThatIsNotOpen) {
  confd_value_t value = {C_NOEXISTS, {}};
  confd_ipv4_prefix prefix = {};
  char text[8] = "";
  std::int32_t number = 0;
  for (const int sock : {-1, 1000}) {
    const std::string expected = "no session on socket " + std::to_string(sock);
    for (const auto& call : std::initializer_list<std::function<int()>>{
             [&] { return cdb_num_instances(sock, "/config/item"); },
             [&] { return cdb_exists(sock, "/config"); },
             [&] { return cdb_get(sock, &value, "/config/name"); },
             [&] { return cdb_get_str(sock, text, sizeof text, "/config/name"); },
             [&] { return cdb_get_int32(sock, &number, "/config/name"); },
             [&] { return cdb_get_ipv4_and_plen(sock, &prefix, "/config/name"); },
             [&] { return cdb_get_object(sock, &value, 1, "/config"); },
             [&] { return cdb_get_objects(sock, &value, 1, 0, 0, "/config/item"); }}) {
      confd::SetLastError(0, "");
      EXPECT_EQ(call(), CONFD_ERR);
      EXPECT_EQ(confd_errno, CONFD_ERR_NOSESSION);
      EXPECT_THAT(confd_lasterr(), StrEq(expected));
    }
  }
}

TEST_F(ConfdSession, TellsWhyThereIsNoSession) {
  confd::SetLastError(CONFD_ERR_UNAVAILABLE, "the datastore is not there");
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(cdb_exists(-1, "/config"), CONFD_ERR);
    EXPECT_THAT(confd_lasterr(),
                StrEq("no session on socket -1 (previous error: the datastore is not there)"));
  }
  EXPECT_EQ(cdb_exists(-2, "/config"), CONFD_ERR);
  EXPECT_THAT(confd_lasterr(),
              StrEq("no session on socket -2 (previous error: the datastore is not there)"));
}

TEST_F(ConfdSession, DoesNotRepeatAReasonThatIsOver) {
  confd::SetLastError(CONFD_ERR_UNAVAILABLE, "the datastore is not there");
  EXPECT_EQ(cdb_exists(-1, "/config"), CONFD_ERR);
  confd::SetLastError(CONFD_ERR_LOCKED, "locked");
  EXPECT_EQ(cdb_exists(-1, "/config"), CONFD_ERR);
  EXPECT_THAT(confd_lasterr(), StrEq("no session on socket -1 (previous error: locked)"));
}

TEST_F(ConfdSession, TreatsANullSnapshotAsNoSession) {
  const int sock = confd::OpenSession(nullptr);
  EXPECT_EQ(cdb_exists(sock, "/config"), CONFD_ERR);
  EXPECT_EQ(confd_errno, CONFD_ERR_NOSESSION);
}

TEST(ConfdError, NamesEveryCode) {
  EXPECT_STREQ(confd_strerror(0), "no error");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_NOEXISTS), "item does not exist");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_BADTYPE), "bad type");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_BADPATH), "bad path");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_LOCKED), "locked by another session");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_MALLOC), "out of memory");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_NOSESSION), "no session");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_OS), "operating system error");
  EXPECT_STREQ(confd_strerror(CONFD_ERR_UNAVAILABLE), "datastore unavailable");
  EXPECT_STREQ(confd_strerror(12345), "unknown error");
}

TEST(ConfdError, SaysWhatWasSet) {
  confd::SetLastError(CONFD_ERR_OS, "no more sockets");
  EXPECT_EQ(confd_errno, CONFD_ERR_OS);
  EXPECT_STREQ(confd_lasterr(), "no more sockets");
}

}  // namespace
}  // namespace confd_test
