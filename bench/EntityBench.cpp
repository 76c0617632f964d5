// Costs of the entity framework's write paths, each beside a floor measured in the same run.
//
// Groups (name = group/variant; the variant "floor" is the plain C++ equivalent):
//   attr_set                   writing an Attr<uint32_t> with a new value each iteration
//   coll_insert|coll_erase/K/V keyed collection insert or erase, K = IntfId or string,
//                              V = entity (prebuilt Ptr, so allocation is not measured) or value
//   coll_new/IntfId/entity     insert of a freshly made child entity (`is`)
//   coll_update/IntfId/value   changing the value of an existing key, with per-key handlers
//                              (onKey) on the written keys or on other keys
// Variants: detached (no mount: no write counting), mounted (the entity sits under a mounted
// root, so every write is counted), +reactor (one handler on the collection), +N reactors.
// bench/run.sh runs them with repetitions and prints medians and ratios to the floor.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "platform/Database.h"
#include "platform/Entity.h"
#include "platform/IntfId.h"
#include "platform/Reactor.h"

using namespace platform;

namespace {

// --- entity types -----------------------------------------------------------------------------

struct BenchPort : EntityOf<BenchPort> {
  static constexpr const char* typeName = "Bench::Port";
  BenchPort() = default;
  explicit BenchPort(const IntfId& k) { name.set(k); }
  Attr<IntfId> name{this};
  Attr<uint32_t> speed{this};
  Attr<bool> enabled{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("speed", speed);
    d("enabled", enabled);
  }
};

struct BenchSession : EntityOf<BenchSession> {
  static constexpr const char* typeName = "Bench::Session";
  BenchSession() = default;
  explicit BenchSession(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Attr<uint32_t> id{this};
  Attr<std::string> description{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("id", id);
    d("description", description);
  }
};

// The entity every benchmark writes to.
struct BenchTable : EntityOf<BenchTable> {
  static constexpr const char* typeName = "Bench::Table";
  BenchTable() = default;
  explicit BenchTable(const std::string& k) { name.set(k); }
  Attr<std::string> name{this};
  Attr<uint32_t> counter{this};
  Attr<uint32_t> other{this};
  Coll<IntfId, Ptr<BenchPort>> port{this};
  Coll<IntfId, uint32_t> portValue{this};
  Coll<std::string, Ptr<BenchSession>> session{this};
  Coll<std::string, uint32_t> sessionValue{this};
  template <class D>
  void fields(D& d) {
    d.key("name", name);
    d("counter", counter);
    d("other", other);
    d("port", port);
    d("portValue", portValue);
    d("session", session);
    d("sessionValue", sessionValue);
  }
};

struct BenchRoot : EntityOf<BenchRoot> {
  static constexpr const char* typeName = "Bench::Root";
  BenchRoot() = default;
  Child<BenchTable> table{this};
  Coll<std::string, Ptr<BenchTable>> peer{this};  // other entities, for unrelated handlers
  template <class D>
  void fields(D& d) {
    d("table", table);
    d("peer", peer);
  }
};

// A table either detached or one level below a mounted root.
struct Fixture {
  Database db;
  Mount* mount = nullptr;
  Ptr<BenchRoot> root;
  Ptr<BenchTable> table;
  explicit Fixture(bool mounted) {
    if (mounted) {
      mount = db.rootIs<BenchRoot>("bench/root");
      root = dynamicPtrCast<BenchRoot>(mount->root());
      table = root->table();
    } else {
      table = make<BenchTable>();
    }
  }
  uint64_t writes() const { return mount ? mount->writes() : 0; }
};

// --- keys and values --------------------------------------------------------------------------

// Enough entries for a map a few levels deep, small enough to stay in cache like a busy agent's.
constexpr std::size_t kKeys = 1024;

// Shuffled with a fixed seed: real inserts do not arrive in key order, and every run and every
// variant sees the same order.
template <class K>
std::vector<K> shuffled(std::vector<K> keys) {
  std::mt19937 rng(12345);
  std::shuffle(keys.begin(), keys.end(), rng);
  return keys;
}

template <class K>
const std::vector<K>& keys();

template <>
const std::vector<IntfId>& keys<IntfId>() {
  static const std::vector<IntfId> k = [] {
    std::vector<IntfId> out;
    for (int m = 1; m <= 32; ++m) {
      for (int p = 1; p <= 32; ++p) out.emplace_back("Ethernet" + std::to_string(m) + "/" + std::to_string(p));
    }
    return shuffled(std::move(out));
  }();
  return k;
}

template <>
const std::vector<std::string>& keys<std::string>() {
  static const std::vector<std::string> k = [] {
    std::vector<std::string> out;
    for (std::size_t i = 0; i < kKeys; ++i) out.push_back("session" + std::to_string(i));
    return shuffled(std::move(out));
  }();
  return k;
}

template <class K, bool kEntity>
struct Shape;
template <>
struct Shape<IntfId, true> {
  using E = BenchPort;
  using V = Ptr<BenchPort>;
  static auto& coll(BenchTable& t) { return t.port; }
};
template <>
struct Shape<IntfId, false> {
  using V = uint32_t;
  static auto& coll(BenchTable& t) { return t.portValue; }
};
template <>
struct Shape<std::string, true> {
  using E = BenchSession;
  using V = Ptr<BenchSession>;
  static auto& coll(BenchTable& t) { return t.session; }
};
template <>
struct Shape<std::string, false> {
  using V = uint32_t;
  static auto& coll(BenchTable& t) { return t.sessionValue; }
};

// Prebuilt values, one per key: entities are made outside the timed region.
template <class K, bool kEntity>
std::vector<typename Shape<K, kEntity>::V> values() {
  std::vector<typename Shape<K, kEntity>::V> out;
  const auto& k = keys<K>();
  for (std::size_t i = 0; i < k.size(); ++i) {
    if constexpr (kEntity) {
      out.push_back(make<typename Shape<K, kEntity>::E>(k[i]));
    } else {
      out.push_back(static_cast<uint32_t>(i));
    }
  }
  return out;
}

enum class Where { floor, detached, mounted };
enum class Op { insert, erase };

// Handlers only count, so the measured cost is the framework's, not the handler's.
struct Calls {
  uint64_t n = 0;
};

void expect(benchmark::State& state, bool ok, const char* what) {
  if (!ok) state.SkipWithError(what);
}

// --- attributes -------------------------------------------------------------------------------

void attrFloor(benchmark::State& state) {
  struct Plain {
    uint32_t counter = 0;
  } plain;
  uint32_t i = 0;
  for (auto _ : state) {
    plain.counter = ++i;
    benchmark::DoNotOptimize(plain);
    benchmark::ClobberMemory();
  }
}

// The floor of a dispatch: a plain assignment plus calling N std::functions in a vector.
void attrFloorFunctions(benchmark::State& state, int n) {
  struct Plain {
    uint32_t counter = 0;
  } plain;
  Calls calls;
  std::vector<std::function<void()>> fns;
  for (int r = 0; r < n; ++r) fns.emplace_back([&calls] { ++calls.n; });
  uint32_t i = 0;
  for (auto _ : state) {
    plain.counter = ++i;
    benchmark::DoNotOptimize(plain);
    for (auto& f : fns) f();
    benchmark::ClobberMemory();
  }
  expect(state, calls.n == state.iterations() * static_cast<uint64_t>(n), "handlers not called");
}

// `reactors` handlers on the written attribute, `unrelated` reactors each bound to a sibling
// attribute of the same entity and to the same attribute of another entity.
void attrSet(benchmark::State& state, bool mounted, int reactors, int unrelated, bool equal) {
  Fixture f(mounted);
  Calls calls, unrelatedCalls;
  std::vector<std::unique_ptr<Reactor>> rs;
  for (int r = 0; r < reactors; ++r) {
    rs.push_back(std::make_unique<Reactor>());
    rs.back()->on(f.table->counter, [&calls] { ++calls.n; });
  }
  for (int r = 0; r < unrelated; ++r) {
    Ptr<BenchTable> peer = f.root->peer.is("peer" + std::to_string(r));
    rs.push_back(std::make_unique<Reactor>());
    rs.back()->on(f.table->other, [&unrelatedCalls] { ++unrelatedCalls.n; });
    rs.back()->on(peer->counter, [&unrelatedCalls] { ++unrelatedCalls.n; });
  }
  f.table->counter.set(1);
  calls.n = 0;
  const uint64_t writesBefore = f.writes();
  uint32_t i = 1;
  uint32_t same = 1;
  for (auto _ : state) {
    // Opaque to the compiler, so the equal write is not hoisted out of the loop.
    benchmark::DoNotOptimize(same);
    f.table->counter.set(equal ? same : ++i);
  }
  const uint64_t expectedCalls = equal ? 0 : state.iterations() * static_cast<uint64_t>(reactors);
  expect(state, calls.n == expectedCalls && unrelatedCalls.n == 0, "unexpected handler calls");
  const uint64_t expectedWrites = (mounted && !equal) ? state.iterations() : 0;
  expect(state, f.writes() - writesBefore == expectedWrites, "unexpected write count");
}

// --- collections ------------------------------------------------------------------------------

// One batch inserts every key, the other erases every key; only `op` is timed. The pause is
// amortized over kKeys operations.
template <class K, bool kEntity>
void collInsertErase(benchmark::State& state, Op op, Where where, bool reactor) {
  using S = Shape<K, kEntity>;
  const auto& k = keys<K>();
  const auto v = values<K, kEntity>();
  const std::size_t n = k.size();

  std::map<K, typename S::V> plain;
  Fixture f(where == Where::mounted);
  auto& coll = S::coll(*f.table);
  Calls calls;
  Reactor r;
  if (reactor) r.on(coll, [&calls](const K&) { ++calls.n; });

  auto insertAll = [&] {
    if (where == Where::floor) {
      for (std::size_t i = 0; i < n; ++i) plain.try_emplace(k[i], v[i]);
    } else if constexpr (kEntity) {
      for (std::size_t i = 0; i < n; ++i) coll.insert(k[i], v[i]);
    } else {
      for (std::size_t i = 0; i < n; ++i) coll.set(k[i], v[i]);
    }
  };
  auto eraseAll = [&] {
    if (where == Where::floor) {
      // find + erase(iterator) as Coll::del does: std::map::erase(key) walks an equal_range.
      for (std::size_t i = 0; i < n; ++i) plain.erase(plain.find(k[i]));
    } else {
      for (std::size_t i = 0; i < n; ++i) coll.del(k[i]);
    }
  };

  const uint64_t writesBefore = f.writes();
  uint64_t batches = 0;
  while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(n))) {
    if (op == Op::insert) {
      insertAll();
      state.PauseTiming();
      eraseAll();
      state.ResumeTiming();
    } else {
      state.PauseTiming();
      insertAll();
      state.ResumeTiming();
      eraseAll();
    }
    benchmark::ClobberMemory();
    ++batches;
  }
  expect(state, plain.empty() && coll.empty(), "entries left behind");
  expect(state, calls.n == (reactor ? 2 * n * batches : 0), "unexpected handler calls");
  expect(state, f.writes() - writesBefore == (where == Where::mounted ? 2 * n * batches : 0),
         "unexpected write count");
}

// Insert of a child made from its key, as agents do with `is`; the floor makes the same
// entity and places it in a std::map.
void collNew(benchmark::State& state, Where where, bool reactor) {
  const auto& k = keys<IntfId>();
  const std::size_t n = k.size();
  std::map<IntfId, Ptr<BenchPort>> plain;
  Fixture f(where == Where::mounted);
  Calls calls;
  Reactor r;
  if (reactor) r.on(f.table->port, [&calls](const IntfId&) { ++calls.n; });
  while (state.KeepRunningBatch(static_cast<benchmark::IterationCount>(n))) {
    if (where == Where::floor) {
      for (std::size_t i = 0; i < n; ++i) plain.try_emplace(k[i], make<BenchPort>(k[i]));
    } else {
      for (std::size_t i = 0; i < n; ++i) f.table->port.is(k[i]);
    }
    state.PauseTiming();
    plain.clear();
    f.table->port.clear();
    state.ResumeTiming();
  }
  expect(state, reactor ? calls.n > 0 : calls.n == 0, "unexpected handler calls");
}

// Changing the value of existing keys in turn (512 of them). With `ownKeyReactors`, one
// reactor follows each written key with onKey; `otherKeyReactors` reactors follow one key
// each that is never written, to show whether handlers of other keys cost anything.
void collUpdate(benchmark::State& state, Where where, int ownKeyReactors, int otherKeyReactors) {
  const auto& allKeys = keys<IntfId>();
  // The written keys are the first half; the followed other keys come from the second half.
  const std::size_t n = allKeys.size() / 2;
  std::map<IntfId, uint32_t> plain;
  Fixture f(where == Where::mounted);
  auto& coll = f.table->portValue;
  for (std::size_t i = 0; i < allKeys.size(); ++i) {
    plain.emplace(allKeys[i], 0);
    coll.set(allKeys[i], 0);
  }
  Calls calls, otherCalls;
  std::vector<std::unique_ptr<Reactor>> rs;
  for (int r = 0; r < ownKeyReactors; ++r) {
    rs.push_back(std::make_unique<Reactor>());
    for (std::size_t i = 0; i < n; ++i) rs.back()->onKey(coll, allKeys[i], [&calls] { ++calls.n; });
  }
  for (int r = 0; r < otherKeyReactors; ++r) {
    rs.push_back(std::make_unique<Reactor>());
    rs.back()->onKey(coll, allKeys[n + static_cast<std::size_t>(r) % n], [&otherCalls] { ++otherCalls.n; });
  }
  uint32_t value = 0;
  std::size_t i = 0;
  for (auto _ : state) {
    if (i == 0) ++value;
    if (where == Where::floor) {
      plain.find(allKeys[i])->second = value;
      benchmark::ClobberMemory();
    } else {
      coll.set(allKeys[i], value);
    }
    if (++i == n) i = 0;
  }
  expect(state, calls.n == state.iterations() * static_cast<uint64_t>(ownKeyReactors) && otherCalls.n == 0,
         "unexpected handler calls");
}

// --- registration -----------------------------------------------------------------------------

template <class K>
const char* keyName();
template <>
const char* keyName<IntfId>() {
  return "IntfId";
}
template <>
const char* keyName<std::string>() {
  return "string";
}

template <class K, bool kEntity>
void registerColl() {
  for (Op op : {Op::insert, Op::erase}) {
    const std::string group = std::string(op == Op::insert ? "coll_insert/" : "coll_erase/") + keyName<K>() +
                              (kEntity ? "/entity" : "/value");
    struct Variant {
      const char* name;
      Where where;
      bool reactor;
    };
    for (Variant var : {Variant{"floor", Where::floor, false}, Variant{"detached", Where::detached, false},
                        Variant{"detached+reactor", Where::detached, true},
                        Variant{"mounted", Where::mounted, false}, Variant{"mounted+reactor", Where::mounted, true}}) {
      benchmark::RegisterBenchmark((group + "/" + var.name).c_str(), [=](benchmark::State& s) {
        collInsertErase<K, kEntity>(s, op, var.where, var.reactor);
      });
    }
  }
}

const bool registered = [] {
  const std::string a = "attr_set/";
  benchmark::RegisterBenchmark((a + "floor").c_str(), attrFloor);
  benchmark::RegisterBenchmark((a + "floor+10fn").c_str(), [](benchmark::State& s) { attrFloorFunctions(s, 10); });
  benchmark::RegisterBenchmark((a + "detached").c_str(),
                               [](benchmark::State& s) { attrSet(s, false, 0, 0, false); });
  benchmark::RegisterBenchmark((a + "mounted").c_str(), [](benchmark::State& s) { attrSet(s, true, 0, 0, false); });
  benchmark::RegisterBenchmark((a + "mounted+1reactor").c_str(),
                               [](benchmark::State& s) { attrSet(s, true, 1, 0, false); });
  benchmark::RegisterBenchmark((a + "mounted+10reactors").c_str(),
                               [](benchmark::State& s) { attrSet(s, true, 10, 0, false); });
  benchmark::RegisterBenchmark((a + "mounted+100unrelated").c_str(),
                               [](benchmark::State& s) { attrSet(s, true, 0, 100, false); });
  benchmark::RegisterBenchmark((a + "mounted+1reactor+100unrelated").c_str(),
                               [](benchmark::State& s) { attrSet(s, true, 1, 100, false); });
  benchmark::RegisterBenchmark((a + "equal,mounted+10reactors").c_str(),
                               [](benchmark::State& s) { attrSet(s, true, 10, 0, true); });

  registerColl<IntfId, true>();
  registerColl<IntfId, false>();
  registerColl<std::string, true>();
  registerColl<std::string, false>();

  const std::string c = "coll_new/IntfId/entity/";
  benchmark::RegisterBenchmark((c + "floor").c_str(), [](benchmark::State& s) { collNew(s, Where::floor, false); });
  benchmark::RegisterBenchmark((c + "detached").c_str(),
                               [](benchmark::State& s) { collNew(s, Where::detached, false); });
  benchmark::RegisterBenchmark((c + "mounted+reactor").c_str(),
                               [](benchmark::State& s) { collNew(s, Where::mounted, true); });

  const std::string u = "coll_update/IntfId/value/";
  benchmark::RegisterBenchmark((u + "floor").c_str(), [](benchmark::State& s) { collUpdate(s, Where::floor, 0, 0); });
  benchmark::RegisterBenchmark((u + "mounted").c_str(),
                               [](benchmark::State& s) { collUpdate(s, Where::mounted, 0, 0); });
  benchmark::RegisterBenchmark((u + "mounted+onKey:written").c_str(),
                               [](benchmark::State& s) { collUpdate(s, Where::mounted, 1, 0); });
  for (int others : {10, 100, 500}) {
    benchmark::RegisterBenchmark((u + "mounted+onKey:" + std::to_string(others) + "others").c_str(),
                                 [=](benchmark::State& s) { collUpdate(s, Where::mounted, 0, others); });
  }
  return true;
}();

}  // namespace
