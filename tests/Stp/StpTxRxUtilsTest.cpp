// BPDU frame construction: frame allocation and link headers, RST encoding (the golden frame; tshark reads
// the sample records' frames in BpduRoundTripTest), allocation failure, assertions, priorities and the decisions.
#include <stptxrx/runtime/Exception.h>

#include "BpduTestFrames.h"
#include "support/TraceCapture.h"

#include <gmock/gmock.h>

#include <limits>

namespace StpTxRx::bpdutest {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

IntxInfo::Ptr goldenRecord() { return rstRecord(goldenCist()); }

// ---------------------------------------------------------------------------------------------------
// Frame allocation and link headers
// ---------------------------------------------------------------------------------------------------

TEST(StpTxRxGetPktTest, FrameIsHeaderThenBodyWithBpduPointingAt17) {
  // 36: an RST body; 0: the header alone; beyond the head room: the packet has to replace its buffer.
  for (std::size_t size : {std::size_t{36}, std::size_t{0}, Nelk::PktManager::defaultHeadRoom + 300}) {
    SCOPED_TRACE(size);
    Stp::CommonBpdu* bpdu = nullptr;
    Nelk::Pkt::Ptr pkt = StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, static_cast<U32>(size), &bpdu);
    ASSERT_TRUE(pkt);
    ASSERT_EQ(pkt->size(), size + 17);
    ASSERT_EQ(reinterpret_cast<std::uint8_t*>(bpdu), pkt->data() + 17);
    std::fill_n(reinterpret_cast<std::uint8_t*>(bpdu), size, 0xee);  // the whole body is writable in place
    Octets expected = hexOctets("0180c2000000 020000000007 0000 424203");  // group address, source, length, LLC
    expected[12] = std::uint8_t((size + 3) >> 8), expected[13] = std::uint8_t(size + 3);  // LLC + body
    EXPECT_EQ(Octets(pkt->data(), pkt->data() + 17), expected);
  }
}

TEST(WriteBpduLinkHeaderTest, TaggedFormCarriesPriority7Dei0AndTheLow12VlanBits) {
  Octets buffer(21 + 2, 0xee);
  Stp::CommonBpdu* body = writeBpduLinkHeader(buffer.data(), portMac, 1000, Bridging::VlanIdOrNone(0xf123));
  EXPECT_EQ(reinterpret_cast<std::uint8_t*>(body), buffer.data() + 21);
  // Tag control: priority 7, DEI 0, VLAN 0x123; length 1000 + 3; LLC; nothing beyond.
  EXPECT_EQ(buffer, hexOctets("0180c2000000 020000000007 8100 e123 03eb 424203 eeee"));
}

// ---------------------------------------------------------------------------------------------------
// Priorities
// ---------------------------------------------------------------------------------------------------

TEST(PriorityTest, BridgePriorityWrapsAt16BitsAndTheFullFormIsRangeChecked) {
  using Case = std::pair<unsigned, unsigned>;  // compressed, full
  for (auto [c, full] : {Case{1, 4096}, Case{15, 61440}, Case{16, 0}, Case{17, 4096}}) {
    EXPECT_EQ(bridgePriority(c).value, full) << c;
  }
  // The full form takes any integer and refuses, never wraps: the last value that fits and the first
  // that does not on both sides, and values that a 16- or 32-bit argument would have cut to fit.
  const std::int64_t fits[] = {0, 4096, 0xF000};
  const std::int64_t refused[] = {-1, 0xF001, 0x10000, 70000, 0x10000 + 4096, std::int64_t{1} << 32,
                                std::numeric_limits<std::int64_t>::min()};
  for (std::int64_t v : fits) EXPECT_EQ(checkedBridgePriority(v).value, v);
  const std::string refusal = "BridgePriority::value < BridgePriority::minBridgePriority or > "
                              "BridgePriority::maxBridgePriority not allowed";
  for (std::int64_t v : refused) {
    EXPECT_THAT([v] { checkedBridgePriority(v); }, ::testing::ThrowsMessage<Zek::RangeException>(refusal)) << v;
  }
  EXPECT_EQ(portPriority(15), 240);
  EXPECT_EQ(portPriority(17), 16) << "8 bits kept";
}

// ---------------------------------------------------------------------------------------------------
// RST encoding
// ---------------------------------------------------------------------------------------------------

TEST(GeneratePktTest, GoldenRecordGivesTheReferenceFrame) {
  IntxInfo::Ptr info = goldenRecord();
  // Fields the encoder does not read, set to values that would show in the frame if it did.
  info->configDigestIs(Stp::MstpConfigDigest{{0xde, 0xad}});
  info->neighborAddrIs(Nelk::EthAddr(0x0e, 0x0e, 0x0e, 0x0e, 0x0e, 0x0e));
  info->mstiNIs(1)->flagsIs(Stp::RstpBpduFlags{0xff});
  info->mstiNIs(1)->bridgeIdIs(Stp::BridgeId{0xF000, 0xfff, Nelk::EthAddr(9, 9, 9, 9, 9, 9)});
  Nelk::Pkt::Ptr pkt = generatePktFromIntxInfo(portSm(), info, false);
  ASSERT_TRUE(pkt);
  // Group address, the port's; length 3 + 36, LLC; protocol, version RSTP, type RST, flags; root
  // 32768/1/00:11:22:33:44:55, cost 20000; bridge 4096/0/00:aa:bb:cc:dd:ee; port 128/3; message age 0,
  // max age 20 s, hello 2 s, forward delay 15 s; version 1 length.
  EXPECT_EQ(octetsOf(pkt), hexOctets("0180c2000000 020000000007 0027 424203 0000 02 02 3c 8001001122334455 00004e20 "
                                     "100000aabbccddee 8003 0000 1400 0200 0f00 00"));
}

// Each call traces what it does at level 8; an exhausted pool gives no packet, leaves the body pointer alone
// and traces the failure (3) and the encoder's giving up (2). The PVST form is never built.
TEST(GeneratePktTest, TracesTheRecordTheAllocationAndEachFailure) {
  Zek::test::TraceCapture cap({"StpTxRx/0-9"});
  IntxInfo::Ptr info = goldenRecord();
  std::ostringstream record;
  record << IntxInfo::PtrConst(info);
  const std::string called = "generatePktFromIntxInfo: Called for " + record.str() + " tagged: 0",
                    getPkt = "StpTxRxGetPkt: called for vlan 0 src mac: 02:00:00:00:00:07 size: 36";
  generatePktFromIntxInfo(portSm(), info, false);
  EXPECT_EQ(cap.brief(), called + "|" + getPkt);
  EXPECT_EQ(cap.lines()[0].function + " " + cap.lines()[1].function, "generatePktFromIntxInfo StpTxRxGetPkt");
  for (const auto& line : cap.lines()) EXPECT_EQ(line.handle + " " + line.file, "StpTxRx Stp/StpTxRxUtils");
  Stp::CommonBpdu sentinel{};
  Stp::CommonBpdu* bpdu = &sentinel;
  Nelk::PktManager& pool = Nelk::globalPktManager();
  const std::size_t liveBefore = pool.liveCount(), limitBefore = pool.liveLimit();
  {
    Nelk::Pkt::Ptr held = pool.newPkt();  // with this one out and the limit at the live count, none is left
    pool.liveLimitIs(pool.liveCount());
    cap.clear();
    EXPECT_FALSE(StpTxRxGetPkt(Bridging::VlanIdOrNone(), portMac, 36, &bpdu));
    EXPECT_FALSE(generatePktFromIntxInfo(portSm(), info, false));
    EXPECT_FALSE(StpTxRxGetPvstPkt(portSm().get(), 36, &bpdu, Bridging::VlanIdOrNone(10)));
    pool.liveLimitIs(limitBefore);
  }
  EXPECT_EQ(bpdu, &sentinel);
  EXPECT_EQ(pool.liveCount(), liveBefore) << "no packet kept";
  EXPECT_EQ(cap.brief(), getPkt + "|3 Packet allocation failed|" + called + "|" + getPkt + "|3 Packet allocation failed|"
                         "2 generateBpdu: failed to allocate pkt |Nelk::Pkt::Ptr StpTxRx::StpTxRxGetPvstPkt(Stp::MstPortSm*, "
                         "U32, Stp::CommonBpdu**, Bridging::VlanIdOrNone)");
}

TEST(GeneratePktDeathTest, PreconditionsAbortWithTheirAssertionTexts) {
  const std::string function =
      "Nelk::Pkt::Ptr StpTxRx::generatePktFromIntxInfo(Stp::MstPortSm::Ptr, StpTxRx::IntxInfo::Ptr, bool)";
  IntxInfo::Ptr version3 = goldenRecord();
  version3->stpVersionIs(Stp::StpBpduVersion{3});
  EXPECT_DEATH(generatePktFromIntxInfo(portSm(), version3, false),
               AllOf(HasSubstr("Assertion `0' failed"), HasSubstr(function), HasSubstr("StpTxRxUtils")));
  IntxInfo::Ptr vlan5 = IntxInfo::IntxInfoIs(5);
  vlan5->stpVersionIs(Stp::StpBpduVersion{2});
  vlan5->mstiNIs(0);
  EXPECT_DEATH(generatePktFromIntxInfo(portSm(), vlan5, false),
               AllOf(HasSubstr("Assertion `vlan == 0' failed"), HasSubstr(function)));
  EXPECT_DEATH(generatePktFromIntxInfo(portSm(), goldenRecord(), true),
               AllOf(HasSubstr("Assertion `!tagged' failed"), HasSubstr(function)));
  Stp::CommonBpdu* bpdu = nullptr;
  EXPECT_DEATH(StpTxRxGetPkt(Bridging::VlanIdOrNone(1), portMac, 36, &bpdu), HasSubstr("Assertion `!vlan' failed"));
}


// ---------------------------------------------------------------------------------------------------
// Decisions
// ---------------------------------------------------------------------------------------------------

// Every combination of mode, port default allowed, port status (none, default not operational,
// operational) and global default, with the outcome written out: mode 1 (enabled) filters always, mode 0
// (follow default) only in the last cell, every other mode never.
TEST(MstBpdufilterPktTest, EnabledFiltersFollowDefaultNeedsAllThreeAndOtherModesNever) {
  // One character per (allowed, status, global) in loop order: allowed 0/1, status none/off/on, global 0/1.
  struct Case { std::uint8_t mode; const char* filtered; };
  const Case table[] = {{0, "000000" "000001"}, {1, "111111" "111111"}, {2, "000000" "000000"},
                        {3, "000000" "000000"}, {255, "000000" "000000"}};
  for (const Case& c : table) {
    for (int cell = 0; cell < 12; ++cell) {
      const bool allowed = cell / 6, global = cell % 2;
      const int status = cell / 2 % 3 - 1;
      const bool filtered = mstBpdufilterPkt(
          Stp::PortConfig::PortConfigIs(Stp::BpdufilterMode{c.mode}, allowed),
          status < 0 ? nullptr : Stp::StpiPortStatus::StpiPortStatusIs(status == 1), Stp::Config::ConfigIs(global));
      EXPECT_EQ(filtered, c.filtered[cell] == '1')
          << "mode " << unsigned{c.mode} << " allowed " << allowed << " status " << status << " global " << global;
    }
  }
}

TEST(LogSpanTreeIntfTest, TruthTable) {
  // Rows: first 0 (on), 1 (off), 2 (useDefault), 3 (unnamed); columns: second, the same and 5 (unnamed).
  const int seconds[5] = {0, 1, 2, 3, 5};
  const char* const expected[4] = {"10100", "10000", "10000", "10000"};
  for (int first = 0; first < 4; ++first) {
    for (int c = 0; c < 5; ++c) {
      const bool logged = logSpanTreeIntf(Stp::IntfLoggingMode(first), Stp::IntfLoggingMode(seconds[c]));
      EXPECT_EQ(logged, expected[first][c] == '1') << first << ", " << seconds[c];
    }
  }
  EXPECT_TRUE(logSpanTreeIntf(Stp::IntfLoggingMode(5), Stp::IntfLoggingMode::on));
}

}  // namespace
}  // namespace StpTxRx::bpdutest
