// Reading a configuration of 4,094 relay instances, each with one interface, one override and two
// servers. The figures to look at are ratios: cdb_exists to lyd_find_path for the same node, and
// the time per entry of a small configuration to that of a large one. `allocs` counts allocations
// through operator new per iteration.

#include <benchmark/benchmark.h>
#include <libyang/libyang.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <confd/session.h>
#include <confd_cdb.h>

#include "bench/allocation_count.h"

namespace {

constexpr int kMany = 4094;

std::string Instance(int i) {
  const std::string n = std::to_string(i);
  return R"({"name": "r)" + n + R"(", "interface": [{"name": "l3-)" + n +
         R"("}], "if-option": [{"name": "l3-)" + n + R"("}], "server": {"ipv4": [
         {"address": "10.0.0.1"}, {"address": "10.0.0.2"}]}})";
}

std::string Data(int instances) {
  std::string list;
  for (int i = 0; i < instances; ++i) {
    if (i > 0) list += ',';
    list += Instance(i);
  }
  return R"({"vx-config:config": {"vx-dhcp-relay:dhcp": {"relay": [)" + list + "]}}}";
}

class Database {
 public:
  explicit Database(int instances) {
    ly_ctx* context = nullptr;
    if (ly_ctx_new(VX_YANG_DIR, 0, &context) != LY_SUCCESS) std::abort();
    context_.reset(context, ly_ctx_destroy);
    for (const char* module : {"metacli-internal", "vx-config", "vx-dhcp-relay", "vx-interface"}) {
      if (ly_ctx_load_module(context, module, nullptr, nullptr) == nullptr) std::abort();
    }
    lyd_node* tree = nullptr;
    if (lyd_parse_data_mem(context, Data(instances).c_str(), LYD_JSON, LYD_PARSE_STRICT,
                           LYD_VALIDATE_PRESENT, &tree) != LY_SUCCESS) {
      std::abort();
    }
    tree_.reset(tree, lyd_free_all);
    sock_ = Open();
  }
  ~Database() { confd::CloseSession(sock_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // A session whose look-up tables are still empty.
  int Open() { return confd::OpenSession(std::make_shared<confd::Snapshot>(context_, tree_)); }

  const ly_ctx* context() const { return context_.get(); }
  const lyd_node* tree() const { return tree_.get(); }
  int sock() const { return sock_; }

 private:
  std::shared_ptr<ly_ctx> context_;
  std::shared_ptr<lyd_node> tree_;
  int sock_ = -1;
};

Database& Large() {
  static Database database(kMany);
  return database;
}

std::vector<std::string> Paths(const std::string& before, const std::string& behind) {
  std::vector<std::string> paths;
  paths.reserve(kMany);
  for (int i = 0; i < kMany; ++i)
    paths.push_back(std::string(before).append(std::to_string(i)).append(behind));
  return paths;
}

void Count(benchmark::State& state, std::size_t before) {
  state.counters["allocs"] = benchmark::Counter(
      static_cast<double>(bench::AllocationCount() - before), benchmark::Counter::kAvgIterations);
}

void FindPathOfLibyang(benchmark::State& state) {
  const auto paths = Paths("/vx-config:config/vx-dhcp-relay:dhcp/relay[name='r", "']/interface");
  std::size_t i = 0;
  for ([[maybe_unused]] auto _ : state) {
    const std::string path = paths[i] + "[name='l3-" + std::to_string(i) + "']";
    lyd_node* match = nullptr;
    if (lyd_find_path(Large().tree(), path.c_str(), 0, &match) != LY_SUCCESS) std::abort();
    i = (i + 1) % kMany;
  }
}
BENCHMARK(FindPathOfLibyang);

void ExistsByKeys(benchmark::State& state) {
  const auto paths = Paths("/config/dhcp/relay{r", "}/interface{l3-");
  std::vector<std::string> whole;
  whole.reserve(kMany);
  for (int i = 0; i < kMany; ++i) {
    whole.push_back(paths[static_cast<std::size_t>(i)] + std::to_string(i) + "}");
  }
  std::size_t i = 0;
  cdb_exists(Large().sock(), whole[kMany - 1].c_str());
  const std::size_t before = bench::AllocationCount();
  for ([[maybe_unused]] auto _ : state) {
    if (cdb_exists(Large().sock(), whole[i].c_str()) != 1) std::abort();
    i = (i + 1) % kMany;
  }
  Count(state, before);
}
BENCHMARK(ExistsByKeys);

// One node again and again: the price of the path alone, all data in the cache.
void ResolveWarm(benchmark::State& state) {
  const int sock = Large().sock();
  for ([[maybe_unused]] auto _ : state) {
    if (cdb_exists(sock, "/config/dhcp/relay{%s}/relay-information/policy", "r3000") != 1) {
      std::abort();
    }
  }
}
BENCHMARK(ResolveWarm);

void AbsentLeaf(benchmark::State& state) {
  const int sock = Large().sock();
  char text[64];
  for ([[maybe_unused]] auto _ : state) {
    if (cdb_get_str(sock, text, sizeof text, "/config/dhcp/relay{%s}/vrf", "r3000") == CONFD_OK) {
      std::abort();
    }
  }
}
BENCHMARK(AbsentLeaf);

void GetObject(benchmark::State& state) {
  const auto paths = Paths("/config/dhcp/relay{r", "}");
  const int sock = Large().sock();
  std::size_t i = 0;
  confd_value_t values[8];
  cdb_get_object(sock, values, 0, paths[kMany - 1].c_str());
  const std::size_t before = bench::AllocationCount();
  for ([[maybe_unused]] auto _ : state) {
    if (cdb_get_object(sock, values, 8, paths[i].c_str()) < 8) std::abort();
    for (confd_value_t& value : values) confd_free_value(&value);
    i = (i + 1) % kMany;
  }
  Count(state, before);
}
BENCHMARK(GetObject);

// What a full read asks of one instance's lists.
void ReadInstance(int sock, const std::string& path) {
  confd_value_t values[8];
  if (cdb_get_object(sock, values, 8, path.c_str()) < 8) std::abort();
  for (confd_value_t& value : values) confd_free_value(&value);
  const std::string server = path + "/server/ipv4";
  const int servers = cdb_num_instances(sock, server.c_str());
  for (int i = 0; i < servers; ++i) {
    if (cdb_get_object(sock, values, 1, (server + "[%d]").c_str(), i) != 1) std::abort();
  }
  for (const char* list : {"/interface", "/if-option"}) {
    if (cdb_get_objects(sock, values, 1, 0, 1, (path + list).c_str()) < 1) std::abort();
    confd_free_value(&values[0]);
  }
}

// A full read on a new session, look-up tables included; the time per instance must not grow.
void FullReadPerInstance(benchmark::State& state) {
  const int instances = static_cast<int>(state.range(0));
  Database database(instances);
  const auto paths = Paths("/config/dhcp/relay{r", "}");
  for ([[maybe_unused]] auto _ : state) {
    const int sock = database.Open();
    for (int i = 0; i < instances; ++i) ReadInstance(sock, paths[static_cast<std::size_t>(i)]);
    confd::CloseSession(sock);
  }
  state.counters["per_instance"] = benchmark::Counter(
      static_cast<double>(instances),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(FullReadPerInstance)->Arg(16)->Arg(256)->Arg(kMany)->Unit(benchmark::kMicrosecond);

// Looking for an interface that no instance has: one membership test in every instance.
void SearchAllInstances(benchmark::State& state) {
  const auto paths = Paths("/config/dhcp/relay{r", "}/interface{l3-none}");
  for ([[maybe_unused]] auto _ : state) {
    const int sock = Large().Open();
    for (const std::string& path : paths) {
      if (cdb_exists(sock, path.c_str()) != 0) std::abort();
    }
    confd::CloseSession(sock);
  }
  state.counters["per_probe"] = benchmark::Counter(
      kMany, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(SearchAllInstances)->Unit(benchmark::kMicrosecond);

// The search for the instance of each interface in turn, in a session that stays open: what is
// built for the first search serves all.
void SearchForEveryInterface(benchmark::State& state) {
  const auto paths = Paths("/config/dhcp/relay{r", "}/interface{l3-");
  const int sock = Large().Open();
  int interface = 0;
  std::string path;
  for ([[maybe_unused]] auto _ : state) {
    const std::string entry = std::to_string(interface) + "}";
    for (int i = 0; i < kMany; ++i) {
      path.assign(paths[static_cast<std::size_t>(i)]).append(entry);
      if (cdb_exists(sock, path.c_str()) != (i == interface ? 1 : 0)) std::abort();
    }
    interface = (interface + 1) % kMany;
  }
  confd::CloseSession(sock);
  state.counters["per_probe"] = benchmark::Counter(
      kMany, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(SearchForEveryInterface)->Unit(benchmark::kMicrosecond);

}  // namespace
