// TxStatusToTxSyncer costs on one group of N ports, one VLAN record per port, 65 instance entries per record
// (N = 1024: 66,560 entries), each beside a baseline in the same binary:
//  - initial full copy (syncer construction) at 1024 and 2048 ports, beside a direct copy of the same tree
//    (groups, ports, counters and scalars by setters, records by copyIntxInfo); reported per entry;
//  - one entry attribute changed on the source and propagated, over random entries, beside the same
//    source write followed by a direct write of the destination entry; run with repetitions so that the
//    median is reported;
//  - the same propagation with the binary trace on over off, in alternating batches over one tree: the
//    ratio that the rows above, each timed at its own moment, show only as well as the machine holds still;
//  - teardown of the syncer (the destination stays), with every live count of the syncer types checked to
//    be back to 0;
//  - memory per mirrored entry: live heap bytes of the source tree, the destination tree and the syncer
//    objects, counted by the test support's counting operator new (byte counting switched on only there).
// The syncer runs with the binary trace on (its default) and off. Text tracing stays off (unless
// STPTXRX_TRACE switches it on). Times per entry are CPU times.
#include "support/AllocCounter.h"
#include "support/TxTreeBuilder.h"

#include <benchmark/benchmark.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/runtime/BinaryTrace.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <map>
#include <random>
#include <vector>

namespace {

using namespace StpTxRx;

constexpr unsigned instances = 65;

/// One group "g0" of `ports` ports ("Ethernet1", ...), each with the record of VLAN 1 holding `instances`
/// entries (keys 0, 1, ...): every attribute written, its txUpdate counter, txNewInfo and txHelloWhenOn set.
void buildTree(TxStatus& status, unsigned ports) {
  status.heartbeatTimeoutIs(2.5);
  Zek::Ptr<TxMstStatus> group = status.txMstStatusIs(Zek::Name("g0"));
  for (unsigned p = 0; p < ports; ++p) {
    Zek::Ptr<TxMstPortStatus> port = group->txMstPortStatusIs(IntfId(Zek::String("Ethernet" + std::to_string(p + 1))));
    port->txNewInfoIs(1 + p);
    port->txHelloWhenOnIs(TimerVal(2, static_cast<std::uint8_t>(p)));
    Zek::Ptr<IntxInfo> record = port->txInfoIs(1);
    test::fillRecord(*record, 1 + p);
    for (unsigned i = 0; i < instances; ++i) test::fillEntry(*record->mstiNIs(static_cast<std::uint16_t>(i)), 1 + p + i);
    port->txUpdateIs(1, 2);
  }
}

const char* const syncerTypes[] = {"StpTxRx::TxStatusToTxSyncer",
                                   "StpTxRx::TxStatusToTxSyncer::ZekSource",
                                   "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm",
                                   "StpTxRx::TxStatusToTxSyncer::ZekTxMstStatusSm::ZekTxMstPortStatusSm",
                                   "StpTxRx::IntxInfoSyncer",
                                   "StpTxRx::IntxInfoSyncer::ZekSource",
                                   "StpTxRx::IntxInfoSyncer::ZekMstiNSm"};

std::int64_t liveSyncerObjects() {
  std::int64_t n = 0;
  for (const char* t : syncerTypes) {
    if (const Zek::TypeNode* node = Zek::typeNode(t)) n += node->liveCount();
  }
  return n;
}

TxStatus::Ptr sourceTree(unsigned ports) {
  TxStatus::Ptr src = TxStatus::TxStatusIs();
  buildTree(*src, ports);
  return src;
}

/// The baseline copy: the same destination tree built by direct setter calls and copyIntxInfo.
void directCopy(const TxStatus& src, TxStatus& dst) {
  dst.heartbeatTimeoutIs(src.heartbeatTimeout());
  for (const auto& [name, sg] : src.txMstStatus()) {
    Zek::Ptr<TxMstStatus> dg = dst.txMstStatusIs(name);
    for (const auto& [intf, sp] : sg->txMstPortStatus()) {
      Zek::Ptr<TxMstPortStatus> dp = dg->txMstPortStatusIs(intf);
      for (const auto& [vlan, record] : sp->txInfo()) copyIntxInfo(record, dp->txInfoIs(vlan));
      for (const auto& [vlan, value] : sp->txUpdate()) {
        if (value != 0) dp->txUpdateIs(vlan, value);
      }
      dp->txHelloWhenOnIs(sp->txHelloWhenOn());
      dp->txNewInfoIs(sp->txNewInfo());
    }
  }
}

void setEntryCounters(benchmark::State& state, double entries) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * entries));
  state.counters["entries"] = entries;
  state.counters["time/entry"] =
      benchmark::Counter(entries, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// ---- initial full copy

void BM_FullCopy_Syncer(benchmark::State& state) {
  const unsigned ports = static_cast<unsigned>(state.range(0));
  Zek::BinaryTrace::enabledIs(state.range(1) != 0);
  TxStatus::Ptr src = sourceTree(ports);
  for (auto _ : state) {
    state.PauseTiming();
    TxStatus::Ptr dst = TxStatus::TxStatusIs();
    state.ResumeTiming();
    TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(src, dst);
    benchmark::DoNotOptimize(syncer.get());
    state.PauseTiming();
    syncer = nullptr;
    dst = nullptr;
    state.ResumeTiming();
  }
  Zek::BinaryTrace::enabledIs(true);
  setEntryCounters(state, double(ports) * instances);
}
BENCHMARK(BM_FullCopy_Syncer)
    ->ArgsProduct({{1024, 2048}, {1, 0}})
    ->ArgNames({"ports", "binaryTrace"})
    ->Unit(benchmark::kMillisecond);

void BM_FullCopy_DirectBaseline(benchmark::State& state) {
  const unsigned ports = static_cast<unsigned>(state.range(0));
  TxStatus::Ptr src = sourceTree(ports);
  for (auto _ : state) {
    state.PauseTiming();
    TxStatus::Ptr dst = TxStatus::TxStatusIs();
    state.ResumeTiming();
    directCopy(*src, *dst);
    benchmark::DoNotOptimize(dst.get());
    state.PauseTiming();
    dst = nullptr;
    state.ResumeTiming();
  }
  setEntryCounters(state, double(ports) * instances);
}
BENCHMARK(BM_FullCopy_DirectBaseline)->ArgName("ports")->Arg(1024)->Arg(2048)->Unit(benchmark::kMillisecond);

// ---- one attribute propagated

/// Source and destination entries in a random order (the same order for syncer and baseline).
struct EntryPairs {
  std::vector<IntxMstiInfo::Ptr> src;
  std::vector<IntxMstiInfo::Ptr> dst;
};

EntryPairs entryPairs(TxStatus& src, TxStatus& dst) {
  EntryPairs pairs;
  for (const auto& [name, sg] : src.txMstStatus()) {
    for (const auto& [intf, sp] : sg->txMstPortStatus()) {
      for (const auto& [vlan, record] : sp->txInfo()) {
        for (const auto& [key, entry] : record->mstiN()) {
          pairs.src.push_back(src.txMstStatus(name)->txMstPortStatus(intf)->txInfo(vlan)->mstiN(key));
          pairs.dst.push_back(dst.txMstStatus(name)->txMstPortStatus(intf)->txInfo(vlan)->mstiN(key));
        }
      }
    }
  }
  std::mt19937 rng(7);
  for (std::size_t i = pairs.src.size(); i > 1; --i) {
    const std::size_t j = std::uniform_int_distribution<std::size_t>(0, i - 1)(rng);
    std::swap(pairs.src[i - 1], pairs.src[j]);
    std::swap(pairs.dst[i - 1], pairs.dst[j]);
  }
  return pairs;
}

/// The trees of the syncer rows, built once per port count and shared by the trace-on and trace-off rows:
/// a cold propagation's cost depends on where the allocator put 33 MB of tree, and two separately built
/// trees differ by more than the trace does.
struct PropagationTrees {
  TxStatus::Ptr src;
  TxStatus::Ptr dst;
  TxStatusToTxSyncer::Ptr syncer;
  EntryPairs pairs;
  std::size_t next = 0;        // the next pair to update
  PathCost cost = 1000000000;  // above every value the tree was built with; only grows

  /// One source write, which the syncer passes on; the next one goes to the next pair.
  void update() {
    pairs.src[next]->cistExtRootPathCostIs(++cost);
    if (++next == pairs.src.size()) next = 0;
  }
  /// Whether the last value written reached its destination entry.
  bool lastArrived() const {
    const std::size_t n = pairs.dst.size();
    return pairs.dst[(next + n - 1) % n]->cistExtRootPathCost() == cost;
  }
};

std::map<unsigned, PropagationTrees>& sharedTrees() {
  static std::map<unsigned, PropagationTrees> trees;
  return trees;
}

PropagationTrees& propagationTrees(unsigned ports) {
  auto [it, added] = sharedTrees().try_emplace(ports);
  PropagationTrees& t = it->second;
  if (added) {
    t.src = sourceTree(ports);
    t.dst = TxStatus::TxStatusIs();
    t.syncer = txStatusToTxSyncerFactory(t.src, t.dst);
    t.pairs = entryPairs(*t.src, *t.dst);
  }
  return t;
}

/// Drops the shared trees: the rows that count live syncer objects or heap bytes must not see them.
void releasePropagationTrees() { sharedTrees().clear(); }

void BM_OneAttribute_Syncer(benchmark::State& state) {
  PropagationTrees& trees = propagationTrees(static_cast<unsigned>(state.range(0)));
  Zek::BinaryTrace::enabledIs(state.range(1) != 0);
  for (auto _ : state) trees.update();
  if (!trees.lastArrived()) state.SkipWithError("not propagated");
  Zek::BinaryTrace::enabledIs(true);
}
// 1024 ports: the tree (about 33 MB with the syncer) does not stay in cache; 16 ports (1,040 entries) does.
BENCHMARK(BM_OneAttribute_Syncer)
    ->ArgsProduct({{1024, 16}, {1, 0}})
    ->ArgNames({"ports", "binaryTrace"})
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

// Trace on over trace off, measured in alternating batches of updates over the same tree, so that drift in
// the machine (a neighbour's memory traffic, say) falls on both alike. Reports each mode's wall time per
// update and their ratio.
void BM_OneAttribute_TraceOnOverOff(benchmark::State& state) {
  PropagationTrees& trees = propagationTrees(static_cast<unsigned>(state.range(0)));
  constexpr int batch = 4096;
  double seconds[2] = {0, 0};  // [trace off, trace on]
  for (auto _ : state) {
    for (int on : {1, 0}) {
      Zek::BinaryTrace::enabledIs(on != 0);
      const auto start = std::chrono::steady_clock::now();
      for (int k = 0; k < batch; ++k) trees.update();
      seconds[on] += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
  }
  Zek::BinaryTrace::enabledIs(true);
  if (!trees.lastArrived()) state.SkipWithError("not propagated");
  const double updates = double(state.iterations()) * batch;
  state.counters["on_ns"] = seconds[1] / updates * 1e9;
  state.counters["off_ns"] = seconds[0] / updates * 1e9;
  state.counters["on/off"] = seconds[1] / seconds[0];
}
BENCHMARK(BM_OneAttribute_TraceOnOverOff)
    ->ArgName("ports")
    ->Arg(1024)
    ->Arg(16)
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

void BM_OneAttribute_DirectBaseline(benchmark::State& state) {
  TxStatus::Ptr src = sourceTree(static_cast<unsigned>(state.range(0)));
  TxStatus::Ptr dst = TxStatus::TxStatusIs();
  directCopy(*src, *dst);
  EntryPairs pairs = entryPairs(*src, *dst);
  const std::size_t n = pairs.src.size();
  std::size_t i = 0;
  PathCost cost = 1;
  for (auto _ : state) {
    IntxMstiInfo& s = *pairs.src[i];
    s.cistExtRootPathCostIs(++cost);
    pairs.dst[i]->cistExtRootPathCostIs(s.cistExtRootPathCost());
    if (++i == n) i = 0;
  }
  benchmark::DoNotOptimize(pairs.dst[0].get());
}
BENCHMARK(BM_OneAttribute_DirectBaseline)
    ->ArgName("ports")
    ->Arg(1024)
    ->Arg(16)
    ->Repetitions(9)
    ->ReportAggregatesOnly(true);

// What one dependent cache miss costs on this machine: a pointer chase through randomly linked cache
// lines spread over a buffer as large as the mirrored tree. A propagation through the syncer follows at
// least one such dependent link (source entry -> its reactor -> the destination entry) that the direct
// baseline does not have, so this figure bounds from below what a cold propagation can cost here.
void BM_OneAttribute_DependentMissBaseline(benchmark::State& state) {
  struct alignas(64) Line {
    Line* next;
  };
  const std::size_t lines = static_cast<std::size_t>(state.range(0)) / sizeof(Line);
  std::vector<Line> buffer(lines);
  std::vector<std::size_t> order(lines);
  for (std::size_t i = 0; i < lines; ++i) order[i] = i;
  std::mt19937_64 rng(7);
  std::shuffle(order.begin(), order.end(), rng);
  for (std::size_t i = 0; i < lines; ++i) buffer[order[i]].next = &buffer[order[(i + 1) % lines]];
  Line* p = &buffer[order[0]];
  for (auto _ : state) {
    p = p->next;
    benchmark::DoNotOptimize(p);
  }
}
BENCHMARK(BM_OneAttribute_DependentMissBaseline)->ArgName("bytes")->Arg(32 << 20)->Repetitions(9)->ReportAggregatesOnly(true);

// ---- teardown

void BM_Teardown_Syncer(benchmark::State& state) {
  releasePropagationTrees();
  TxStatus::Ptr src = sourceTree(1024);
  TxStatus::Ptr dst = TxStatus::TxStatusIs();
  for (auto _ : state) {
    state.PauseTiming();
    TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(src, dst);
    state.ResumeTiming();
    syncer = nullptr;
    state.PauseTiming();
    if (liveSyncerObjects() != 0) {
      state.SkipWithError("syncer objects left after teardown");
      break;
    }
    state.ResumeTiming();
  }
  state.counters["live_after"] = static_cast<double>(liveSyncerObjects());
  setEntryCounters(state, 1024.0 * instances);
}
BENCHMARK(BM_Teardown_Syncer)->Unit(benchmark::kMillisecond);

// ---- memory

void BM_Memory_PerEntry(benchmark::State& state) {
  releasePropagationTrees();
  const unsigned ports = 1024;
  const double entries = double(ports) * instances;
  for (auto _ : state) {
    Zek::test::countBytesIs(true);
    const std::int64_t start = Zek::test::liveBytes();
    const auto liveBytes = [start] { return Zek::test::liveBytes() - start; };
    TxStatus::Ptr src = sourceTree(ports);
    const std::int64_t srcBytes = liveBytes();
    TxStatus::Ptr dst = TxStatus::TxStatusIs();
    TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(src, dst);
    const std::int64_t allBytes = liveBytes();
    syncer = nullptr;
    const std::int64_t syncerBytes = allBytes - liveBytes();
    const std::int64_t withDest = liveBytes();
    dst = nullptr;
    const std::int64_t destBytes = withDest - liveBytes();
    // What stays: the source's notifiee lists keep the capacity they grew when the syncer's reactors
    // registered (one slot per watched entity).
    const std::int64_t slotBytes = liveBytes() - srcBytes;
    state.counters["source_B/entry"] = double(srcBytes) / entries;
    state.counters["dest_B/entry"] = double(destBytes) / entries;
    state.counters["syncer_B/entry"] = double(syncerBytes) / entries;
    state.counters["sourceSlots_B/entry"] = double(slotBytes) / entries;
    state.counters["total_B/entry"] = double(allBytes) / entries;
    // Baseline: the destination built by the direct copy.
    const std::int64_t before = liveBytes();
    TxStatus::Ptr direct = TxStatus::TxStatusIs();
    directCopy(*src, *direct);
    state.counters["directDest_B/entry"] = double(liveBytes() - before) / entries;
    Zek::test::countBytesIs(false);
    direct = nullptr;
    src = nullptr;
  }
}
BENCHMARK(BM_Memory_PerEntry)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
