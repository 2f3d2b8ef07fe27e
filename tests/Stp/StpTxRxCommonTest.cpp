// Whole-record copy: the order and number of writes an observer of the destination sees, entry creation
// and removal, copying onto itself, and observers that change the records in the middle of the copy.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;
using Log = std::vector<std::string>;

/// Every write notifies while it lives (the copy must write even equal values); restores the switch.
class EqualWritesNotify {
 public:
  EqualWritesNotify() : previous_(Zek::notifyEqualWrites_) { Zek::notifyEqualWrites_ = true; }
  ~EqualWritesNotify() { Zek::notifyEqualWrites_ = previous_; }
  EqualWritesNotify(const EqualWritesNotify&) = delete;
  EqualWritesNotify& operator=(const EqualWritesNotify&) = delete;

 private:
  bool previous_;
};

std::string recordAttribute(Zek::AttributeId id) {
  static const std::map<Zek::AttributeId, std::string> names = {
      {258, "neighborAddr"},        {260, "stpVersion"},       {261, "intxInfoType"},
      {262, "configRevisionLevel"}, {263, "configNameString"}, {264, "configDigest"}};
  auto it = names.find(id);
  return it == names.end() ? "record#" + std::to_string(id) : it->second;
}

const std::vector<std::string> entryAttributes = {
    "flags",          "bridgeId",         "portId",   "cistRootBridgeId", "cistExtRootPathCost",
    "cistRegionalRootBridgeId", "intRootPathCost", "regionalRootBridgeId", "remainingHops", "messageAge",
    "maxAge",         "helloTime",        "fwdDelay"};

/// Records, in one sequence, every notification of a record and of all its entries (entries created
/// later included): "configDigest", "3.flags", "mstiNIs(3)", "mstiNDel(7)" ...
class WriteLog {
 public:
  explicit WriteLog(const IntxInfo::Ptr& info) : info_(info) {
    record_ = RecordingReactor::RecordingReactorIs(info);
    record_->actionIs([this](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN) {
        log_.push_back(recordAttribute(id));
        return;
      }
      const Stp::BridgeSystemId k = *static_cast<const Stp::BridgeSystemId*>(key);
      Zek::Ptr<IntxMstiInfo> entry = info_->mstiN(k);
      log_.push_back((entry ? "mstiNIs(" : "mstiNDel(") + std::to_string(k.value()) + ")");
      if (entry) watch(entry);
    });
    for (const auto& [key, entry] : info->mstiN()) watch(info->mstiN(key));
  }

  const Log& log() const { return log_; }
  /// Runs `hook` after each logged notification, with the log's new last line.
  void hookIs(std::function<void(const std::string&)> hook) { hook_ = std::move(hook); }

 private:
  void watch(const Zek::Ptr<IntxMstiInfo>& entry) {
    const std::string prefix = std::to_string(entry->key().value()) + ".";
    auto r = RecordingReactor::RecordingReactorIs(entry);
    r->actionIs([this, prefix](Zek::AttributeId id, const void*) {
      log_.push_back(prefix + entryAttributes.at(id - IntxMstiInfo::idFlags));
      if (hook_) hook_(log_.back());
    });
    entries_.push_back(r);
  }

  IntxInfo::Ptr info_;
  Zek::Ptr<RecordingReactor> record_;
  std::vector<Zek::Ptr<RecordingReactor>> entries_;
  Log log_;
  std::function<void(const std::string&)> hook_;
};

const Log recordWrites = {"neighborAddr", "stpVersion", "intxInfoType", "configRevisionLevel", "configNameString",
                          "configDigest"};

Log entryWrites(std::uint16_t key) {
  Log out;
  for (const std::string& a : entryAttributes) out.push_back(std::to_string(key) + "." + a);
  return out;
}

Log concat(std::initializer_list<Log> parts) {
  Log out;
  for (const Log& p : parts) out.insert(out.end(), p.begin(), p.end());
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

IntxInfo::Ptr record(std::uint16_t vlan, std::initializer_list<std::uint16_t> keys, std::uint8_t seed) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(vlan);
  info->neighborAddrIs(Nelk::EthAddr(0, 0, 0, 0, 0, seed));
  info->stpVersionIs(Stp::StpBpduVersion{static_cast<std::uint8_t>(seed % 4)});
  info->intxInfoTypeIs(Stp::StpBpduType{seed});
  info->configRevisionLevelIs(static_cast<unsigned short>(seed * 3));
  info->configNameStringIs("region-" + std::to_string(seed));
  Stp::MstpConfigDigest digest;
  digest.octets.fill(seed);
  info->configDigestIs(digest);
  for (std::uint16_t k : keys) fillEntry(*info->mstiNIs(k), static_cast<std::uint8_t>(seed + k));
  return info;
}

std::vector<std::uint16_t> keysOf(const IntxInfo& info) {
  std::vector<std::uint16_t> keys;
  for (const auto& entry : info.mstiN()) keys.push_back(entry.first.value());
  return keys;
}

// ---------------------------------------------------------------------------------------------------
// Order and number of writes
// ---------------------------------------------------------------------------------------------------

TEST(CopyIntxInfoOrderTest, EqualKeySetsWriteAllThirteenSettersPerEntryAndDeleteNothing) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {0, 3}, 10);
  IntxInfo::Ptr dst = record(7, {0, 3}, 10);  // already equal: every value is written all the same
  WriteLog writes(dst);

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log(), concat({recordWrites, entryWrites(0), entryWrites(3)}));
  EXPECT_TRUE(dst->sameContent(*src));
  EXPECT_EQ(dst->vlanIdOrZero(), Bridging::VlanIdOrNone(7)) << "the key is not copied";
}

TEST(CopyIntxInfoOrderTest, DifferentValuesAreAllCopied) {
  IntxInfo::Ptr src = record(0, {0, 3, 64}, 10);
  IntxInfo::Ptr dst = record(0, {0, 3, 64}, 90);
  ASSERT_FALSE(dst->sameContent(*src));
  copyIntxInfo(src, dst);
  EXPECT_TRUE(dst->sameContent(*src));
  for (std::uint16_t k : {0, 3, 64}) EXPECT_TRUE(dst->mstiN(k)->sameValues(*src->mstiN(k))) << k;
  EXPECT_EQ(dst->configNameString().c_str(), src->configNameString().c_str()) << "the name is shared, not copied";
}

TEST(CopyIntxInfoOrderTest, SurplusEntriesAreRemovedInKeyOrderAfterTheSourceEntriesAreWritten) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {0}, 10);
  IntxInfo::Ptr dst = record(0, {7, 0, 2}, 20);
  WriteLog writes(dst);

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log(), concat({recordWrites, entryWrites(0), {"mstiNDel(2)", "mstiNDel(7)"}}));
  EXPECT_EQ(keysOf(*dst), (std::vector<std::uint16_t>{0}));
  EXPECT_TRUE(dst->sameContent(*src));
}

TEST(CopyIntxInfoOrderTest, EmptySourceEmptiesTheDestination) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {}, 10);
  IntxInfo::Ptr dst = record(0, {4}, 20);
  WriteLog writes(dst);

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log(), concat({recordWrites, {"mstiNDel(4)"}}));
  EXPECT_EQ(dst->mstiNCount(), 0u);
}

TEST(CopyIntxInfoOrderTest, MissingEntriesAreCreatedThenWrittenInKeyOrder) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {2, 1}, 10);
  IntxInfo::Ptr dst = record(0, {}, 20);
  WriteLog writes(dst);

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log(), concat({recordWrites, {"mstiNIs(1)"}, entryWrites(1), {"mstiNIs(2)"}, entryWrites(2)}));
  EXPECT_TRUE(dst->sameContent(*src));
}

TEST(CopyIntxInfoOrderTest, CopyOntoItselfWritesEverythingAndChangesNothing) {
  EqualWritesNotify on;
  IntxInfo::Ptr info = record(0, {0, 5, 9}, 30);
  IntxInfo::Ptr snapshot = record(0, {0, 5, 9}, 30);
  const Zek::Ptr<IntxMstiInfo> five = info->mstiN(5);
  WriteLog writes(info);

  copyIntxInfo(info, info);

  EXPECT_EQ(writes.log(), concat({recordWrites, entryWrites(0), entryWrites(5), entryWrites(9)}));
  EXPECT_TRUE(info->sameContent(*snapshot));
  EXPECT_EQ(info->mstiN(5), five) << "entries are kept, not replaced";
}

TEST(CopyIntxInfoOrderTest, AnObserverExceptionStopsTheCopyWithEarlierWritesInEffect) {
  IntxInfo::Ptr src = record(0, {0}, 10);
  IntxInfo::Ptr dst = record(0, {0}, 20);
  const Stp::MstpConfigDigest oldDigest = dst->configDigest();
  auto thrower = RecordingReactor::RecordingReactorIs(dst);
  thrower->actionIs([](Zek::AttributeId id, const void*) {
    if (id == IntxInfo::idConfigNameString) throw std::runtime_error("observer failed");
  });

  EXPECT_THROW(copyIntxInfo(src, dst), std::runtime_error);

  EXPECT_EQ(dst->neighborAddr(), src->neighborAddr());
  EXPECT_EQ(dst->configRevisionLevel(), src->configRevisionLevel());
  EXPECT_EQ(dst->configNameString(), src->configNameString());
  EXPECT_EQ(dst->configDigest(), oldDigest);
  EXPECT_FALSE(dst->mstiN(0)->sameValues(*src->mstiN(0)));
}

// ---------------------------------------------------------------------------------------------------
// Observers that change the records during the copy
// ---------------------------------------------------------------------------------------------------

TEST(CopyIntxInfoReentrancyTest, DestinationObserverAddingAndRemovingEntriesStillEndsEqualToTheSource) {
  Zek::test::LiveCounts before;
  {
    IntxInfo::Ptr src = record(0, {0, 3, 6}, 10);
    IntxInfo::Ptr dst = record(0, {0, 5, 8}, 20);
    auto observer = RecordingReactor::RecordingReactorIs(dst, RecordingReactor::keyAs<Stp::BridgeSystemId>());
    observer->actionIs([&dst](Zek::AttributeId id, const void* key) {
      if (id != IntxInfo::idMstiN) return;
      const auto k = static_cast<const Stp::BridgeSystemId*>(key)->value();
      if (k == 3 && dst->mstiN(3)) {  // while entry 3 is being created
        dst->mstiNDel(5);              // a surplus entry goes early
        fillEntry(*dst->mstiNIs(9), 99);  // a surplus entry ahead of the walks appears
        fillEntry(*dst->mstiNIs(1), 98);  // and one behind them
      }
      if (k == 8 && !dst->mstiN(8)) dst->mstiNDel(9);  // removal pass: the next entry goes from under it
    });

    copyIntxInfo(src, dst);

    EXPECT_EQ(keysOf(*dst), (std::vector<std::uint16_t>{0, 3, 6}));
    EXPECT_TRUE(dst->sameContent(*src));
    // Created 3 (the observer: removed 5, created 9 and 1), created 6; removal pass: removed 1, removed 8
    // (the observer: removed 9).
    std::vector<std::string> entryKeys;
    for (const auto& n : observer->notifications()) {
      if (n.hasKey) entryKeys.push_back(n.key);
    }
    EXPECT_EQ(entryKeys, (std::vector<std::string>{"3", "5", "9", "1", "6", "1", "8", "9"}));
  }
  EXPECT_TRUE(before.unchanged());
}

TEST(CopyIntxInfoReentrancyTest, SourceChangedMidCopyIsFollowedFromTheNextGreaterKey) {
  EqualWritesNotify on;
  IntxInfo::Ptr src = record(0, {0, 2, 5}, 10);
  IntxInfo::Ptr dst = record(0, {}, 20);
  WriteLog writes(dst);
  writes.hookIs([&src](const std::string& last) {
    if (last != "2.fwdDelay") return;
    src->mstiNDel(2);                        // the entry being copied
    src->mstiNDel(5);                        // the next one
    fillEntry(*src->mstiNIs(8), 40);         // a new one further on
  });

  copyIntxInfo(src, dst);

  EXPECT_EQ(writes.log(), concat({recordWrites, {"mstiNIs(0)"}, entryWrites(0), {"mstiNIs(2)"}, entryWrites(2),
                                  {"mstiNIs(8)"}, entryWrites(8), {"mstiNDel(2)"}}));
  EXPECT_EQ(keysOf(*dst), (std::vector<std::uint16_t>{0, 8}));
  EXPECT_TRUE(dst->mstiN(8)->sameValues(*src->mstiN(8)));
}

TEST(CopyIntxInfoReentrancyTest, EqualCountsSkipTheRemovalPassEvenWhenAnObserverMadeTheKeySetsDiffer) {
  // The removal pass trusts the counts: with as many destination entries as source entries it does not
  // look at the keys. An observer that adds a source entry behind the walk and removes the current one
  // leaves both records with three entries but different keys, and the copy does not repair that.
  IntxInfo::Ptr src = record(0, {0, 2, 5}, 10);
  IntxInfo::Ptr dst = record(0, {}, 20);
  WriteLog writes(dst);
  writes.hookIs([&src](const std::string& last) {
    if (last != "2.fwdDelay") return;
    src->mstiNDel(2);
    src->mstiNDel(5);
    fillEntry(*src->mstiNIs(8), 40);
    fillEntry(*src->mstiNIs(1), 41);  // behind the walk: never visited
  });

  copyIntxInfo(src, dst);

  EXPECT_EQ(keysOf(*src), (std::vector<std::uint16_t>{0, 1, 8}));
  EXPECT_EQ(keysOf(*dst), (std::vector<std::uint16_t>{0, 2, 8}));
  EXPECT_EQ(writes.log().back(), "8.fwdDelay") << "no removal after the last entry write";
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
    EXPECT_EQ(keysOf(*dst), (std::vector<std::uint16_t>{0, 5}));
    EXPECT_TRUE(dst->mstiN(5)->sameValues(*src->mstiN(5)));
  }
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace StpTxRx
