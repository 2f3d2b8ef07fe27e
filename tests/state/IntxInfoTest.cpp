// The transmit record's comparison, which the syncer tests trust as their oracle (every copied value of the
// record and of each entry counts, and so does the set of entry keys; the record's own key does not), and
// its printed form.
#include <stptxrx/state/IntxInfo.h>

#include "support/TxTreeBuilder.h"

#include <gtest/gtest.h>

namespace StpTxRx {
namespace {

IntxInfo::Ptr record(std::uint16_t vlan, std::initializer_list<std::uint16_t> keys) { return test::recordOf(1, keys, vlan); }

TEST(IntxInfoTest, SameContentSeesEveryValueAndEveryEntryButNotTheKey) {
  const IntxInfo::Ptr a = record(0, {3, 5});
  EXPECT_TRUE(a->sameContent(*record(9, {3, 5})));
  for (unsigned bit = 0; bit < 6; ++bit) {
    IntxInfo::Ptr b = record(0, {3, 5});
    test::fillRecord(*b, 2, 1u << bit);
    EXPECT_FALSE(a->sameContent(*b) || b->sameContent(*a)) << "record attribute " << bit;
  }
  for (unsigned bit = 0; bit < 13; ++bit) {
    IntxInfo::Ptr b = record(0, {3, 5});
    test::fillEntry(*b->mstiN(5), 7, 1u << bit);
    EXPECT_FALSE(a->sameContent(*b) || b->mstiN(5)->sameValues(*a->mstiN(5))) << "entry attribute " << bit;
  }
  EXPECT_FALSE(a->sameContent(*record(0, {3})) || a->sameContent(*record(0, {3, 5, 6})));
  IntxInfo::Ptr moved = record(0, {3, 6});
  moved->mstiN(6)->valuesIs(a->mstiN(5).get());
  EXPECT_FALSE(a->sameContent(*moved)) << "same values under another key";
}

// A record prints its entries' content in key order, so two records that differ only inside an entry print apart.
TEST(IntxInfoPrintTest, EntriesPrintWithTheirContentInKeyOrder) {
  std::string texts[2];
  for (std::uint8_t flags : {0x3c, 0x3d}) {
    const IntxInfo::Ptr info = IntxInfo::IntxInfoIs(VlanIdOrNone(5));
    info->mstiNIs(BridgeSystemId(2))->flagsIs(RstpBpduFlags{flags});
    info->mstiNIs(BridgeSystemId(0))->portIdIs(PortId(128, 7));
    texts[flags & 1] = ::testing::PrintToString(*info);
  }
  EXPECT_NE(texts[0], texts[1]);
  const auto first = texts[0].find("IntxMstiInfo(0 "), second = texts[0].find("IntxMstiInfo(2 flags=0x3c");
  EXPECT_TRUE(first < second && second != std::string::npos && texts[0].find("port=128.7") != std::string::npos)
      << texts[0];
}

}  // namespace
}  // namespace StpTxRx
