// IntxInfoChangeSm: what a randomized run cannot reach (direct re-pointing and removal, unbinding,
// notification switching, a null record, teardown), and a seeded randomized run of record and entry
// writes, entries added and removed, re-pointing, zombies, counter stores and intxInfoDel against a
// counting model.
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/runtime/Exception.h>

#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Zek::test::RecordingReactor;

class IntxInfoChangeSmTest : public ::testing::Test {
 protected:
  ~IntxInfoChangeSmTest() override { Zek::notifyEqualWrites_ = savedEqualWrites_; }

  static IntxInfo::Ptr recordWith(std::initializer_list<std::uint16_t> keys) {
    IntxInfo::Ptr r = IntxInfo::IntxInfoIs(VlanIdOrNone(10));
    for (std::uint16_t k : keys) test::fillEntry(*r->mstiNIs(k), k);
    return r;
  }

  const bool savedEqualWrites_ = Zek::notifyEqualWrites_;  // restored: tests flip this process-wide switch
  Zek::test::LiveCounts before_;
};

TEST_F(IntxInfoChangeSmTest, DirectCallsUnbindingAndTheNotificationSwitchCountAsDocumented) {
  auto none = intxInfoChangeSmFactory(nullptr, VlanIdOrNone(0));  // legal: watches nothing, reports 1
  EXPECT_EQ(none->intxInfoDel(), nullptr);
  EXPECT_EQ(none->updatedFieldCount(), 1u);
  IntxInfo::Ptr record = recordWith({0, 1}), other = recordWith({1});
  auto sm = intxInfoChangeSmFactory(record, VlanIdOrNone(10));
  EXPECT_EQ(sm->updatedFieldCount(), 1u);
  EXPECT_THROW(sm->mstiNIs(nullptr), Zek::MutatorArgNullPointerException);
  sm->mstiNIs(record->mstiN(1));  // watched already: 0
  sm->mstiNIs(other->mstiN(1));   // re-pointed: 13
  EXPECT_EQ(sm->updatedFieldCount(), 14u);
  EXPECT_EQ(sm->mstiNDel(1), other->mstiN(1));  // 1
  EXPECT_EQ(sm->mstiNDel(1), nullptr);          // 0
  EXPECT_EQ(sm->updatedFieldCount(), 15u);
  sm->hasNotificationActiveIs(false);
  record->stpVersionIs(StpBpduVersion{3});
  record->mstiN(0)->flagsIs(RstpBpduFlags{0x3c});
  EXPECT_EQ(sm->updatedFieldCount(), 15u);
  sm->hasNotificationActiveIs(true);
  record->stpVersionIs(StpBpduVersion{4});
  record->mstiN(0)->flagsIs(RstpBpduFlags{0x3d});
  EXPECT_EQ(sm->updatedFieldCount(), 17u);
  sm->zekIntxInfo()->notifierIs(nullptr);  // unbinding: 0
  record->stpVersionIs(StpBpduVersion{5});
  EXPECT_EQ(sm->updatedFieldCount(), 17u);
  EXPECT_EQ(sm->intxInfoDel(), nullptr);
  EXPECT_EQ(Zek::test::LiveCounts::now("StpTxRx::IntxInfoChangeSm::ZekIntxInfo"),
            before_.at("StpTxRx::IntxInfoChangeSm::ZekIntxInfo"));
}

TEST_F(IntxInfoChangeSmTest, ReleaseLeavesTheRecordAndNothingElseBehind) {
  IntxInfo::Ptr record = recordWith({0, 1, 2});
  auto onRecord = RecordingReactor::RecordingReactorIs(record);
  auto sm = intxInfoChangeSmFactory(record, VlanIdOrNone(10));
  Zek::Ptr<IntxInfoChangeSm::ZekMstiN> kept = sm->zekMstiN(1);
  Zek::notifyEqualWrites_ = true;
  sm = nullptr;
  EXPECT_EQ(onRecord->count(), 0u);
  // A reactor held elsewhere is a detached zombie; brought back, it has no machine to count in.
  EXPECT_EQ(kept->owner(), nullptr);
  kept->zekDoZombieReactors(false);
  kept->zek_handleMstiN();
  kept = nullptr;
  onRecord = nullptr;
  record = nullptr;
  EXPECT_TRUE(before_.unchanged());
}

/// The count the machine must report, kept from the outside: the entry each instance reactor watches,
/// the record watched and whether the machine is a zombie. How many notifications a write makes is
/// observed with a recording reactor (equal writes notify only with notifyEqualWrites_).
class ChangeModel {
 public:
  explicit ChangeModel(std::uint32_t seed) : rng_(seed) {}

  void run(int steps) {
    Zek::notifyEqualWrites_ = pick(2) == 0;
    for (auto& r : records_) {
      r = IntxInfo::IntxInfoIs(VlanIdOrNone(1));
      for (int i = pick(4); i > 0; --i) r->mstiNIs(key());
    }
    watched_ = records_[0];
    sm_ = intxInfoChangeSmFactory(watched_, VlanIdOrNone(1));
    for (const auto& [k, e] : watched_->mstiN()) reactors_[k] = e.get();
    for (int step = 0; step < steps; ++step) {
      const char* op = randomOp();
      if (sm_->updatedFieldCount() == expected_ && sm_->zekMstiNCount() == reactors_.size()) continue;
      ADD_FAILURE() << "step " << step << " (" << op << "): count " << sm_->updatedFieldCount() << ", expected "
                    << expected_ << "; reactors " << sm_->zekMstiNCount() << ", expected " << reactors_.size();
      return;
    }
  }

 private:
  int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
  BridgeSystemId key() { return static_cast<std::uint16_t>(pick(6)); }

  template <class T, class Write>
  unsigned notifications(const Zek::Ptr<T>& target, Write&& write) {
    auto rec = RecordingReactor::RecordingReactorIs(target);
    write();
    return static_cast<unsigned>(rec->count());
  }

  const char* randomOp() {
    const IntxInfo::Ptr r = records_[pick(2)];
    const bool seen = r == watched_ && !zombie_;  // a zombie's notifications are off
    const BridgeSystemId k = key();
    switch (pick(16)) {
      case 0:
      case 1:
        if (!r->mstiN(k) && seen) return added(k, r->mstiNIs(k).get()), "add entry";
        return r->mstiNIs(k), "add existing entry";
      case 2:
        if (r->mstiNDel(k) && seen && reactors_.erase(k)) ++expected_;
        return "remove entry";
      case 3:
      case 4: {
        const unsigned n = notifications(r, [&] { test::fillRecord(*r, static_cast<std::uint32_t>(pick(3))); });
        if (seen) expected_ += n;
        return "record attributes";
      }
      case 5:
        return rareOp();
      default: {
        std::vector<IntxMstiInfo::Ptr> entries;
        for (const auto& [ek, e] : r->mstiN()) entries.push_back(r->mstiN(ek));
        if (entries.empty()) return "nothing";
        const IntxMstiInfo::Ptr e = entries[static_cast<std::size_t>(pick(static_cast<int>(entries.size())))];
        const unsigned n = notifications(e, [&] { test::fillEntry(*e, static_cast<std::uint32_t>(pick(3))); });
        const auto it = reactors_.find(e->key());
        if (!zombie_ && it != reactors_.end() && it->second == e.get()) expected_ += n;
        return "entry attributes";
      }
    }
  }

  const char* rareOp() {
    if (pick(20) == 0) {  // each reactor counts entering and leaving the zombie state
      sm_->zekDoZombieReactors(!zombie_);
      zombie_ = !zombie_;
      expected_ += static_cast<unsigned>(reactors_.size());
      return "zombie switch";
    }
    if (pick(10) == 0) {
      expected_ = pick(2) ? 4294967295u - static_cast<unsigned>(pick(3)) : 0u;  // the next counts wrap
      sm_->updatedFieldCountIs(expected_);
      return "counter store";
    }
    if (watched_ && pick(5) == 0) {  // at the other record, or (a no-op) at the same
      const IntxInfo::Ptr to = pick(4) == 0 ? watched_ : records_[watched_ == records_[0] ? 1 : 0];
      sm_->zekIntxInfo()->notifierIs(to);
      if (to == watched_) return "re-point at the same record";
      watched_ = to;
      const auto removed = std::erase_if(reactors_, [&](const auto& kv) { return !to->mstiN(kv.first); });
      if (!zombie_) expected_ += 1u + static_cast<unsigned>(removed);
      for (const auto& [k, e] : to->mstiN()) added(k, e.get());
      return "re-point";
    }
    if (watched_ && pick(40) == 0) {  // entries keep counting; the record and its collection are not seen
      sm_->intxInfoDel();
      watched_ = nullptr;
      return "intxInfoDel";
    }
    return "nothing";
  }

  // A reactor for entry `e`: re-pointing an existing one at another entry counts 13 unless the machine is a
  // zombie; a new one counts nothing, or 1 when it is made a zombie at once.
  void added(BridgeSystemId k, const IntxMstiInfo* e) {
    auto [it, isNew] = reactors_.try_emplace(k, e);
    if (isNew ? zombie_ : it->second != e && !zombie_) expected_ += isNew ? 1u : 13u;
    it->second = e;
  }

  std::mt19937 rng_;
  IntxInfo::Ptr records_[2];
  IntxInfo::Ptr watched_;
  Zek::Ptr<IntxInfoChangeSm> sm_;
  std::map<BridgeSystemId, const IntxMstiInfo*> reactors_;
  bool zombie_ = false;
  unsigned expected_ = 1;  // a new machine reports one update
};

TEST_F(IntxInfoChangeSmTest, RandomizedUpdatesMatchTheCountingModel) {
  const char* env = std::getenv("STPTXRX_SEED");  // replays one run
  for (std::uint32_t i = 1; i <= (env ? 1u : 10u) && !HasFailure(); ++i) {
    const std::uint32_t seed = env ? static_cast<std::uint32_t>(std::strtoul(env, nullptr, 0)) : i * 104729u;
    SCOPED_TRACE("seed " + std::to_string(seed) + " (STPTXRX_SEED=" + std::to_string(seed) + " replays it)");
    ChangeModel(seed).run(4000);
  }
  EXPECT_TRUE(before_.unchanged());
  for (const char* type : {"StpTxRx::IntxInfoChangeSm", "StpTxRx::IntxInfoChangeSm::ZekIntxInfo",
                           "StpTxRx::IntxInfoChangeSm::ZekMstiN"}) {
    EXPECT_EQ(Zek::test::LiveCounts::now(type), 0) << type;
  }
}

}  // namespace
}  // namespace StpTxRx
