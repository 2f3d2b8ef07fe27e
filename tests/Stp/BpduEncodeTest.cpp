// The every-kind encoder: what it refuses (one row per rule at its boundary: the last value that fits
// and the first that does not, nothing sent on a refusal), the frames it writes, allocation failure, and
// no allocation on the hot paths.
#include "BpduTestFrames.h"

#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace StpTxRx::bpdutest {
namespace {

TEST(BpduEncodeTest, RefusesWhatTheWireCannotCarryWithAClearError) {
  using Change = std::function<void(IntxInfo&)>;
  const std::vector<std::pair<Change, BpduEncodeError>> table = {
      {[](IntxInfo& i) { i.stpVersionIs({2}); i.intxInfoTypeIs({0}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.stpVersionIs({1}); i.intxInfoTypeIs({2}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.intxInfoTypeIs({0x81}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.stpVersionIs({2}); i.intxInfoTypeIs({0x80}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.mstiNDel(0); }, BpduEncodeError::noCistEntry},
      {[](IntxInfo& i) { i.stpVersionIs({0}); i.intxInfoTypeIs({0}); i.mstiNDel(0); }, BpduEncodeError::noCistEntry},
      {[](IntxInfo& i) { i.configNameStringIs(std::string(33, 'n')); }, BpduEncodeError::nameTooLong},
      {[](IntxInfo& i) { for (int k = 1; k <= 65; ++k) i.mstiNIs(static_cast<std::uint16_t>(k)); },
       BpduEncodeError::tooManyMstis},
      {[](IntxInfo& i) { i.mstiNIs(4096); }, BpduEncodeError::mstiIdOutOfRange},
      {[](IntxInfo& i) {
         i.configNameStringIs(std::string(32, 'n'));
         for (const auto& entry : i.mstiN()) i.mstiNDel(entry.first.value() ? entry.first : 9999);
         for (int k = 1; k <= 64; ++k) i.mstiNIs(static_cast<std::uint16_t>(k));
       }, BpduEncodeError::none},
  };
  Zek::test::TraceCapture cap({"StpTxRx/2"});
  for (const auto& [change, error] : table) {
    IntxInfo::Ptr info = mstRecord();
    change(*info);
    const BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), info, false, 0);
    EXPECT_EQ(r.error, error) << bpduEncodeErrorText(r.error);
    EXPECT_EQ(static_cast<bool>(r.pkt), error == BpduEncodeError::none);
  }
  EXPECT_EQ(cap.texts(2).size(), table.size() - 1);
  EXPECT_EQ(cap.texts(2).front(), "generateBpduFromIntxInfo: no BPDU kind for this version and type");
  EXPECT_EQ(generateBpduFromIntxInfo(portSm(), nullptr, false, 0).error, BpduEncodeError::missingInput);
  EXPECT_EQ(generateBpduFromIntxInfo(Stp::MstPortSm::MstPortSmIs(nullptr), mstRecord(), false, 0).error,
            BpduEncodeError::missingInput);
}

TEST(BpduEncodeTest, RstAndTcnAreTheDescribedFramesAndAnEmptyPoolGivesTheRstPathTraces) {
  IntxInfo::Ptr rst = mstRecord();
  rst->stpVersionIs({2});
  EXPECT_EQ(encode(rst), octetsOf(generatePktFromIntxInfo(portSm(), rst, false)));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);  // a new record: version 0
  tcn->intxInfoTypeIs({0x80});
  EXPECT_EQ(encode(tcn), (Octets{0x01, 0x80, 0xc2, 0, 0, 0, 0x02, 0, 0, 0, 0, 0x07, 0x00, 0x07, 0x42, 0x42, 0x03,
                                 0x00, 0x00, 0x00, 0x80}));

  Zek::test::TraceCapture cap({"StpTxRx/2-3"});
  Nelk::PktManager& pool = Nelk::globalPktManager();
  const std::size_t limit = pool.liveLimit();
  Nelk::Pkt::Ptr held = pool.newPkt();
  pool.liveLimitIs(pool.liveCount());
  const BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), mstRecord(), true, 1);
  pool.liveLimitIs(limit);
  EXPECT_FALSE(r.pkt);
  EXPECT_EQ(r.error, BpduEncodeError::allocationFailed);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"Packet allocation failed", "generateBpdu: failed to allocate pkt "}));
}

TEST(BpduCodecAllocationTest, DecodeIntoAnExistingRecordAndEncodeFromAWarmPoolAllocateNothing) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  const Octets frame = mst();
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Et1"));
  IntxInfo::Ptr record = mstRecord();
  Stp::MstPortSm::Ptr sm = portSm();
  generateIntxInfoFromPkt(frame.data(), frame.size(), info.get());
  receiveBpdu(port, 1, frame.data(), frame.size());
  generateBpduFromIntxInfo(sm, record, true, 1);
  Zek::test::AllocScope scope;
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(generateIntxInfoFromPkt(frame.data(), frame.size(), info.get()).valid());
    ASSERT_TRUE(receiveBpdu(port, 1, frame.data(), frame.size()).valid());
    ASSERT_TRUE(generateBpduFromIntxInfo(sm, record, true, 1));
  }
  EXPECT_EQ(scope.count(), 0u);
}

}  // namespace
}  // namespace StpTxRx::bpdutest
