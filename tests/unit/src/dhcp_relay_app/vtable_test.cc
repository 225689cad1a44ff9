// The order of virtual operations is a binary contract with the platform: a slot of a table is
// called by its number, and what happens tells which operation stands there.

#include <bit>
#include <cstddef>
#include <cstring>
#include <new>

#include "src/dhcp_relay_app/dhcp_mgr_facade.h"
#include "tests/unit/src/dhcp_relay_app/daemon_test.h"

namespace dhcp_relay_app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

// Calls entry `slot` of the table of `object`, as the C++ ABI of this platform passes `this` and
// the arguments.
template <typename Result, typename... Arguments>
Result CallSlot(const void* object, std::size_t slot, Arguments... arguments) {
  const void* const* table = nullptr;
  std::memcpy(&table, object, sizeof(table));
  using Operation = Result (*)(const void*, Arguments...);
  return std::bit_cast<Operation>(table[slot])(object, arguments...);
}

constexpr std::size_t kDestructor = 0;
constexpr std::size_t kDeletingDestructor = 1;

int deletions = 0;

// Tells a deleting destructor from one that only destroys.
template <typename Base>
class Tracked : public Base {
 public:
  using Base::Base;
  ~Tracked() override { fakes::Journal::Get().Add("destroyed"); }
  static void operator delete(void* memory) {
    ++deletions;
    ::operator delete(memory);
  }
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void* operator new(std::size_t, void* place) { return place; }
};

// `view` gives the subobject whose table is meant.
template <typename Class, typename View, typename... Arguments>
void ExpectDestructorsFirst(View view, Arguments... arguments) {
  fakes::Journal& journal = fakes::Journal::Get();
  deletions = 0;
  journal.Clear();
  auto* const deleted = new Tracked<Class>(arguments...);
  CallSlot<void>(view(deleted), kDeletingDestructor);
  EXPECT_EQ(deletions, 1);
  EXPECT_THAT(journal.StartingWith("destroyed"), SizeIs(1));

  alignas(Tracked<Class>) std::byte place[sizeof(Tracked<Class>)];
  auto* const destroyed = new (place) Tracked<Class>(arguments...);
  CallSlot<void>(view(destroyed), kDestructor);
  EXPECT_EQ(deletions, 1);
  EXPECT_THAT(journal.StartingWith("destroyed"), SizeIs(2));
}

class VtableTest : public HandlerTest {
 protected:
  void SetUp() override {
    HandlerTest::SetUp();
    SetInstances({"r1"});
    Clear();
  }

  void Clear() {
    journal_.Clear();
    log_.lines.clear();
  }

  std::vector<std::string> LogOf(const void* object, std::size_t slot) {
    Clear();
    CallSlot<void>(object, slot);
    return log_.Texts();
  }
};

TEST_F(VtableTest, Mediator) {
  ExpectDestructorsFirst<Controller>([](Mediator* mediator) { return mediator; });
  DhcpDumpRequest request;
  Mediator* const mediator = controller_.get();
  Clear();
  CallSlot<void, Component*, Command*>(mediator, 2, handler_.get(), &request);
  EXPECT_THAT(journal_.entries(), ElementsAre("receiver: dump request"));
}

TEST_F(VtableTest, Component) {
  ExpectDestructorsFirst<Receiver>([](Component* component) { return component; }, nullptr);
  DhcpDumpRequest request;
  Component* const component = receiver_.get();
  Clear();
  CallSlot<void, Command*>(component, 2, &request);
  EXPECT_THAT(receiver_->commands, ElementsAre(&request));
}

TEST_F(VtableTest, Command) {
  const auto view = [](Command* command) { return command; };
  ExpectDestructorsFirst<Command>(view);
  ExpectDestructorsFirst<DhcpDumpRequest>(view);
  ExpectDestructorsFirst<DhcpDumpCancel>(view);
  ExpectDestructorsFirst<DhcpRelayIntfCmd>(view, FullRecord("r1"), true);
}

TEST_F(VtableTest, HandlersOwnTable) {
  ExpectDestructorsFirst<DhcpRelayCfgHandler>([](Component* component) { return component; },
                                              nullptr, nullptr);
  const void* const own = static_cast<Component*>(handler_.get());
  EXPECT_EQ(own, static_cast<const void*>(handler_.get()));

  DhcpDumpCancel cancel;
  Clear();
  CallSlot<void, Command*>(own, 2, &cancel);
  EXPECT_THAT(log_.Texts(), ElementsAre("10 ProcessDumpCancel: Entry Point"));

  EXPECT_EQ(CallSlot<const std::vector<vxconfd::SubscriptionPoint>*>(own, 3),
            &handler_->GetSubscriptionPoints());
  EXPECT_THAT(LogOf(own, 4), ElementsAre("10 LoadInitialConfig: Entry Point"));
  EXPECT_THAT(LogOf(own, 5), ElementsAre("10 ApplyInitialConfig: Entry Point"));
  EXPECT_THAT(LogOf(own, 6), ElementsAre("10 StartCommit: Entry Point"));
  EXPECT_THAT(LogOf(own, 7), ElementsAre("10 ApplyCommitConfig: Entry Point"));
}

TEST_F(VtableTest, HandlerAsThePlatformSeesIt) {
  ExpectDestructorsFirst<DhcpRelayCfgHandler>(
      [](vxconfd::ConfigHandler* handler) { return handler; }, nullptr, nullptr);
  const void* const platform = static_cast<vxconfd::ConfigHandler*>(handler_.get());
  EXPECT_NE(platform, static_cast<const void*>(handler_.get()));

  CallSlot<void, ELEM_CONFD_PHASE_ET>(platform, 2, ELEM_CONFD_PHASE_2);
  EXPECT_THAT(adapter_.connected_phases, ElementsAre(ELEM_CONFD_PHASE_2));
  EXPECT_EQ(adapter_.disconnections, 0);
  CallSlot<void>(platform, 3);
  EXPECT_EQ(adapter_.disconnections, 1);
  EXPECT_THAT(adapter_.connected_phases, SizeIs(1));

  EXPECT_THAT(LogOf(platform, 4), ElementsAre("10 LoadInitialConfig: Entry Point"));
  EXPECT_THAT(LogOf(platform, 5), ElementsAre("10 ApplyInitialConfig: Entry Point"));
  EXPECT_THAT(LogOf(platform, 6), ElementsAre("10 StartCommit: Entry Point"));
  EXPECT_THAT(LogOf(platform, 7), ElementsAre("10 ApplyCommitConfig: Entry Point"));
  EXPECT_EQ(CallSlot<const std::vector<vxconfd::SubscriptionPoint>*>(platform, 8),
            &handler_->GetSubscriptionPoints());
}

// The same member functions, on the same object, through either table.
TEST_F(VtableTest, BothTablesOfTheHandlerReachTheSameState) {
  const void* const own = static_cast<Component*>(handler_.get());
  const void* const platform = static_cast<vxconfd::ConfigHandler*>(handler_.get());
  DhcpDumpRequest request;
  CallSlot<void, Command*>(own, 2, &request);
  CallSlot<void>(platform, 4);
  EXPECT_THAT(BatchNames(), ElementsAre("r1"));
  CallSlot<void>(own, 5);
  EXPECT_THAT(receiver_->records, SizeIs(1));
  CallSlot<void>(platform, 6);
  EXPECT_THAT(Batch(), IsEmpty());
}

class FacadeVtableTest : public VtableTest {
 protected:
  std::shared_ptr<fakes::ClientDouble> client_ = std::make_shared<fakes::ClientDouble>();
};

TEST_F(FacadeVtableTest, OwnTable) {
  ExpectDestructorsFirst<DhcpMgrFacade>([](Component* component) { return component; }, nullptr,
                                        nullptr, client_);
  DhcpMgrFacade facade(nullptr, controller_, client_);
  const void* const own = static_cast<Component*>(&facade);
  EXPECT_EQ(own, static_cast<const void*>(&facade));
  DhcpRelayIntf gone("r1");
  gone.SetShouldDelete();
  DhcpRelayIntfCmd command(gone, true);
  CallSlot<void, Command*>(own, 2, &command);
  EXPECT_THAT(client_->calls, ElementsAre("DeleteInstance r1"));
  Clear();
  CallSlot<void>(own, 3);
  CallSlot<void>(own, 4);
  EXPECT_THAT(journal_.StartingWith("receiver"),
              ElementsAre("receiver: dump request", "receiver: dump cancel"));
}

TEST_F(FacadeVtableTest, CallbackTableAsTheClientSeesIt) {
  const auto view = [](dhcp_relay::DhcpUser::CallbackIf* callbacks) { return callbacks; };
  ExpectDestructorsFirst<DhcpMgrFacade>(view, nullptr, nullptr, client_);
  DhcpMgrFacade facade(nullptr, controller_, client_);
  const void* const callbacks = view(&facade);
  Clear();
  CallSlot<void>(callbacks, 2);
  CallSlot<void>(callbacks, 3);
  EXPECT_THAT(journal_.StartingWith("receiver"),
              ElementsAre("receiver: dump request", "receiver: dump cancel"));
}

// The facade calls the client by the slots below, of which it leaves slot 15 out.
TEST_F(FacadeVtableTest, OperationsOfTheClient) {
  using Name = const std::string&;
  using nettypes::IPv4Addr;
  ExpectDestructorsFirst<fakes::ClientDouble>([](dhcp_relay::DhcpUser* user) { return user; });
  const std::string r = "r";
  const std::string i = "i";
  const IPv4Addr ip = Ip("10.0.0.1");
  const auto keep = dhcp_relay::Policy::kKeep;
  const std::uint16_t vlan = 5;
  const void* const user = static_cast<dhcp_relay::DhcpUser*>(client_.get());
  CallSlot<void, Name, IPv4Addr>(user, 2, r, ip);
  CallSlot<void, Name, IPv4Addr>(user, 3, r, ip);
  CallSlot<void, Name>(user, 4, r);
  CallSlot<void, Name, Name>(user, 5, r, i);
  CallSlot<void, Name, Name, IPv4Addr>(user, 6, r, i, ip);
  CallSlot<void, Name, limid_t>(user, 7, r, 9U);
  CallSlot<void, Name, Name, std::uint16_t>(user, 8, r, i, vlan);
  CallSlot<void, Name, Name, std::uint16_t>(user, 9, r, i, vlan);
  CallSlot<void, Name, Name>(user, 10, r, i);
  CallSlot<void, Name, bool>(user, 11, r, true);
  CallSlot<void, Name, bool>(user, 12, r, true);
  CallSlot<void, Name, bool>(user, 13, r, true);
  CallSlot<void, Name, dhcp_relay::Policy>(user, 14, r, keep);
  CallSlot<void, Name, Name>(user, 16, r, i);
  CallSlot<void, Name, Name, bool>(user, 17, r, i, true);
  CallSlot<void, Name, Name, bool>(user, 18, r, i, true);
  CallSlot<void, Name, Name, bool>(user, 19, r, i, true);
  CallSlot<void, Name, Name, dhcp_relay::Policy>(user, 20, r, i, keep);
  EXPECT_THAT(client_->calls,
              ElementsAre("AddServer r 10.0.0.1", "DeleteServer r 10.0.0.1", "DeleteInstance r",
                          "AddL3Interface r i", "SetL3InterfaceAddress r i 10.0.0.1", "SetVrf r 9",
                          "SetL3InterfaceVlan r i 5", "DeleteL3InterfaceVlan r i 5",
                          "DeleteL3Interface r i", "SetTrusted r true", "SetOption r true",
                          "SetCheck r true", "SetPolicy r 1", "DeleteIfOption r i",
                          "SetIfOptionTrusted r i true", "SetIfOptionOption r i true",
                          "SetIfOptionCheck r i true", "SetIfOptionPolicy r i 1"));
}

}  // namespace
}  // namespace dhcp_relay_app
