// Whole-record copy: the order and number of writes an observer of the destination sees, entry creation
// and removal, and observers that change the records in the middle of the copy.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;
using Log = std::vector<std::string>;
using Keys = std::vector<std::uint16_t>;

/// Every write notifies while it lives (the copy must write even equal values); restores the switch.
struct EqualWritesNotify {
  bool previous = std::exchange(Zek::notifyEqualWrites_, true);
  ~EqualWritesNotify() { Zek::notifyEqualWrites_ = previous; }
};

// Names by attribute id, from idNeighborAddr (258) for the record and from idFlags (259) for an entry.
const Log recordNames = {"neighborAddr", "vlanIdOrZero", "stpVersion", "intxInfoType", "configRevisionLevel",
                         "configNameString", "configDigest"};
const Log entryNames = {"flags", "bridgeId", "portId", "cistRootBridgeId", "cistExtRootPathCost",
                        "cistRegionalRootBridgeId", "intRootPathCost", "regionalRootBridgeId", "remainingHops",
                        "messageAge", "maxAge", "helloTime", "fwdDelay"};

/// Records, in one sequence, every notification of a record and of all its entries (entries created
/// later included): "configDigest", "3.flags", "mstiNIs(3)", "mstiNDel(7)" ...; `hook` runs after each.
class WriteLog {
 public:
  explicit WriteLog(const IntxInfo::Ptr& info) : record_(RecordingReactor::RecordingReactorIs(info)) {
    record_->actionIs([this, info = info.get()](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN) return add(recordNames.at(id - IntxInfo::idNeighborAddr));
      const Stp::BridgeSystemId k = *static_cast<const Stp::BridgeSystemId*>(key);
      const Zek::Ptr<IntxMstiInfo> entry = info->mstiN(k);
      if (entry) watch(entry);
      add((entry ? "mstiNIs(" : "mstiNDel(") + std::to_string(k.value()) + ")");
    });
    for (const auto& entry : info->mstiN()) watch(info->mstiN(entry.first));
  }
  Log log;
  std::function<void(const std::string&)> hook;

 private:
  void add(const std::string& line) {
    log.push_back(line);
    if (hook) hook(line);
  }
  void watch(const Zek::Ptr<IntxMstiInfo>& entry) {
    entries_.emplace_back(RecordingReactor::RecordingReactorIs(entry))
        ->actionIs([this, prefix = std::to_string(entry->key().value()) + "."](Zek::AttributeId id, const void*) {
          add(prefix + entryNames.at(id - IntxMstiInfo::idFlags));
        });
  }
  Zek::Ptr<RecordingReactor> record_;
  std::vector<Zek::Ptr<RecordingReactor>> entries_;
};

/// The expected log: record writes, then per item either a key (its thirteen entry writes) or a line.
Log expectedLog(std::initializer_list<std::variant<int, const char*>> items) {
  Log out(recordNames.begin(), recordNames.end());
  out.erase(out.begin() + 1);  // the key has no setter
  for (const auto& item : items) {
    if (const char* const* line = std::get_if<const char*>(&item)) {
      out.push_back(*line);
      continue;
    }
    for (const std::string& a : entryNames) out.push_back(std::to_string(std::get<int>(item)) + "." + a);
  }
  return out;
}

void fillEntry(IntxMstiInfo& e, std::uint8_t seed) {
  const Nelk::EthAddr addr(seed, 1, 2, 3, 4, 5);
  e.flagsIs(Stp::RstpBpduFlags{seed});
  e.bridgeIdIs(Stp::BridgeId{4096, seed, addr});
  e.portIdIs(Stp::PortId(128, seed));
  e.cistRootBridgeIdIs(Stp::BridgeId{8192, seed, addr});
  e.cistExtRootPathCostIs(1000u + seed);
  e.cistRegionalRootBridgeIdIs(Stp::BridgeId{12288, seed, addr});
  e.intRootPathCostIs(2000u + seed);
  e.regionalRootBridgeIdIs(Stp::BridgeId{16384, seed, addr});
  e.remainingHopsIs(seed);
  e.messageAgeIs(Stp::TimerVal(seed, 1));
  e.maxAgeIs(Stp::TimerVal(seed, 2));
  e.helloTimeIs(Stp::TimerVal(seed, 3));
  e.fwdDelayIs(Stp::TimerVal(seed, 4));
}

IntxInfo::Ptr record(std::uint16_t vlan, Keys keys, std::uint8_t seed) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(vlan);
  info->neighborAddrIs(Nelk::EthAddr(0, 0, 0, 0, 0, seed));
  info->stpVersionIs(Stp::StpBpduVersion{static_cast<std::uint8_t>(seed % 4)});
  info->intxInfoTypeIs(Stp::StpBpduType{seed});
  info->configRevisionLevelIs(static_cast<unsigned short>(seed * 3));
  info->configNameStringIs("region-" + std::to_string(seed));
  info->configDigestIs(Stp::MstpConfigDigest{{seed, 1, seed}});
  for (std::uint16_t k : keys) fillEntry(*info->mstiNIs(k), static_cast<std::uint8_t>(seed + k));
  return info;
}

Keys keysOf(const IntxInfo& info) {
  Keys keys;
  for (const auto& entry : info.mstiN()) keys.push_back(entry.first.value());
  return keys;
}

TEST(CopyIntxInfoTest, WritesEveryValueThenEachSourceEntryCreatingMissingOnesThenRemovesSurplusInKeyOrder) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {5, 0}, 10);
  IntxInfo::Ptr dst = record(7, {7, 0, 1}, 10);  // equal record values and entry 0: written all the same
  const Zek::Ptr<IntxMstiInfo> zero = dst->mstiN(0);
  WriteLog writes(dst);

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log, expectedLog({0, "mstiNIs(5)", 5, "mstiNDel(1)", "mstiNDel(7)"}));
  EXPECT_EQ(keysOf(*dst), (Keys{0, 5}));
  EXPECT_EQ(dst->mstiN(0), zero) << "entries are kept, not replaced";
  EXPECT_TRUE(dst->sameContent(*src));
  EXPECT_EQ(dst->vlanIdOrZero(), Bridging::VlanIdOrNone(7)) << "the key is not copied";
}

TEST(CopyIntxInfoReentrancyTest, DestinationObserverAddingAndRemovingEntriesStillEndsEqualToTheSource) {
  Zek::test::LiveCounts before;
  {
    IntxInfo::Ptr src = record(0, {0, 3, 6}, 10);
    IntxInfo::Ptr dst = record(0, {0, 5, 8}, 20);
    auto observer = RecordingReactor::RecordingReactorIs(dst, RecordingReactor::keyAs<Stp::BridgeSystemId>());
    observer->actionIs([&dst](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN) return;
      const auto k = static_cast<const Stp::BridgeSystemId*>(key)->value();
      if (k == 3 && dst->mstiN(3)) {      // while entry 3 is being created
        dst->mstiNDel(5);                 // a surplus entry goes early
        fillEntry(*dst->mstiNIs(9), 99);  // a surplus entry ahead of the walks appears
        fillEntry(*dst->mstiNIs(1), 98);  // and one behind them
      }
      if (k == 8 && !dst->mstiN(8)) dst->mstiNDel(9);  // removal pass: the next entry goes from under it
    });

    copyIntxInfo(src, dst);

    EXPECT_EQ(keysOf(*dst), (Keys{0, 3, 6}));
    EXPECT_TRUE(dst->sameContent(*src));
    EXPECT_EQ(dst->configNameString().c_str(), src->configNameString().c_str()) << "the name is shared, not copied";
    // Created 3 (the observer: removed 5, created 9 and 1), created 6; removal pass: removed 1, removed 8
    // (the observer: removed 9).
    Log entryKeys;
    for (const auto& n : observer->notifications()) {
      if (n.hasKey) entryKeys.push_back(n.key);
    }
    EXPECT_EQ(entryKeys, (Log{"3", "5", "9", "1", "6", "1", "8", "9"}));
  }
  EXPECT_TRUE(before.unchanged());
}

TEST(CopyIntxInfoReentrancyTest, SourceChangedMidCopyIsFollowedFromTheNextKeyAndEqualCountsSkipRemoval) {
  // The removal pass trusts the counts: with as many destination entries as source entries it does not
  // look at the keys. Removing the entry about to be copied and the next one, and adding one ahead of
  // the walk and one behind it, leaves both records with three entries but different keys.
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {0, 2, 5}, 10);
  IntxInfo::Ptr dst = record(0, {}, 20);
  WriteLog writes(dst);
  writes.hook = [&src](const std::string& last) {
    if (last != "mstiNIs(2)") return;
    src->mstiNDel(2);
    src->mstiNDel(5);
    fillEntry(*src->mstiNIs(8), 40);
    fillEntry(*src->mstiNIs(1), 41);
  };

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log, expectedLog({"mstiNIs(0)", 0, "mstiNIs(2)", 2, "mstiNIs(8)", 8}));
  EXPECT_EQ(keysOf(*src), (Keys{0, 1, 8}));
  EXPECT_EQ(keysOf(*dst), (Keys{0, 2, 8}));
  EXPECT_TRUE(dst->mstiN(8)->sameValues(*src->mstiN(8)));
}

TEST(CopyIntxInfoReentrancyTest, AnEntryRemovedAndReleasedDuringItsFirstWriteTakesTheRemainingWrites) {
  // After its first write, only the copy holds entry 3: a copy that did not hold it would write the
  // twelve remaining attributes into freed memory, which the sanitizer build reports.
  Zek::test::LiveCounts before;
  {
    IntxInfo::Ptr src = record(0, {0, 3, 5}, 10);
    IntxInfo::Ptr dst = record(0, {0}, 20);
    Zek::Ptr<RecordingReactor> watcher;
    auto observer = RecordingReactor::RecordingReactorIs(dst);
    observer->actionIs([&](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN || static_cast<const Stp::BridgeSystemId*>(key)->value() != 3 || watcher) return;
      watcher = RecordingReactor::RecordingReactorIs(dst->mstiN(3));
      watcher->actionIs([&](Zek::AttributeId, const void*) {
        watcher->notifierIs(nullptr);  // let go of the entry ...
        dst->mstiNDel(3);              // ... and take it out of dst
      });
    });

    copyIntxInfo(src, dst);

    ASSERT_TRUE(watcher);
    EXPECT_EQ(watcher->ids(), (std::vector<Zek::AttributeId>{IntxMstiInfo::idFlags}));
    EXPECT_EQ(keysOf(*dst), (Keys{0, 5}));
    EXPECT_TRUE(dst->mstiN(5)->sameValues(*src->mstiN(5)));
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
