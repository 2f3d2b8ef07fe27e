// The readable line of a received frame: every kind as it reads back from the encoder, the flags of a
// Configuration BPDU without a role, timers in seconds, rejects with and without their source.
#include "BpduTestFrames.h"

#include <gmock/gmock.h>

namespace StpTxRx::bpdutest {
namespace {

TEST(BpduTextTest, EveryKindReadsBackAsItsLine) {
  const std::string cist =
      " root=32768.1.00:11:22:33:44:55 cost=20000 bridge=4096.0.00:aa:bb:cc:dd:ee port=128.3 age=0s maxage=20s "
      "hello=2s fwd=15s";
  EXPECT_EQ(lineOf("version=0,type=0,flags=0x81"), "config src 02:00:00:00:00:07 flags=tc,tca" + cist);
  EXPECT_EQ(lineOf("version=0,type=0x80,vlan=10"), "tcn vlan 10 src 02:00:00:00:00:07");
  // PVST+: the originating VLAN right after the kind, then the link fields as for IEEE (each kind, tagged
  // and native: PcapToolTest).
  EXPECT_EQ(lineOf("pvst=10,vlan=10"),
            "rst pvst 10 vlan 10 src 02:00:00:00:00:07 flags=role:designated,learning,forwarding" + cist);
  EXPECT_EQ(lineOf("version=0,type=0x80,pvst=7"), "tcn pvst 0 src 02:00:00:00:00:07");  // no VLAN in it
  EXPECT_EQ(lineOf("flags=0x3c"), "rst src 02:00:00:00:00:07 flags=role:designated,learning,forwarding" + cist);
  EXPECT_EQ(lineOf("version=3,name=a\tb,msti=2/0x80/0/00:00:00:00:00:02/0/4096/0/0"),
            "mst src 02:00:00:00:00:07 flags=role:designated,learning,forwarding" + cist +
                " regroot=28672.7.02:00:00:00:00:77 intcost=777 hops=19 name=\"a\\x09b\" revision=0 "
                "digest=00000000000000000000000000000000 [msti 2 flags=role:master,master "
                "regroot=0.2.00:00:00:00:00:02 intcost=0 bridge=4096.2.00:aa:bb:cc:dd:ee port=0.3 hops=0]");
}

// A version 3 BPDU that breaks an MST rule reads as RST and says which rule; a valid result without a
// record (or without entry 0) shows only what the link layer told.
TEST(BpduTextTest, AnRstFallbackNamesItsRuleAndARecordlessResultStopsAtTheLinkFields) {
  Octets frame = mst();
  body<Stp::RstpBpdu>(frame).version1Length = 1;
  const IntxInfo::Ptr back = IntxInfo::IntxInfoIs(0);
  const BpduDecodeResult d = generateIntxInfoFromPkt(frame.data(), frame.size(), back.get());
  ASSERT_EQ(d.kind, BpduKind::Rst);
  const std::string head = std::string("rst src 02:00:00:00:00:07 (read as RST: ") + bpduReasonText(d.rstFallback) + ")";
  EXPECT_THAT(bpduText(d, back.get(), frame.size()), ::testing::StartsWith(head + " flags="));
  EXPECT_EQ(bpduText(d, nullptr, frame.size()), "rst src 02:00:00:00:00:07");
  EXPECT_EQ(bpduText(d, IntxInfo::IntxInfoIs(0).get(), frame.size()), head);
}

TEST(BpduTextTest, FlagsByKindConfigurationShowsNoRole) {
  const struct { std::uint8_t value; BpduKind kind; bool cist; const char* text; } cases[] = {
      {0x00, BpduKind::Config, true, "none"}, {0x3c, BpduKind::Config, true, "other:0x3c"},
      {0xff, BpduKind::Config, true, "tc,tca,other:0x7e"}, {0x00, BpduKind::Rst, true, "role:unknown"},
      {0xff, BpduKind::Rst, true, "tc,proposal,role:designated,learning,forwarding,agreement,tca"},
      {0x04, BpduKind::Mst, true, "role:alternate/backup"}, {0x08, BpduKind::Mst, false, "role:root"},
      {0x80, BpduKind::Mst, false, "role:master,master"}, {0x42, BpduKind::Mst, true, "proposal,role:unknown,agreement"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(bpduFlagsText(Stp::RstpBpduFlags{c.value}, c.kind, c.cist), c.text) << unsigned{c.value};
  }
}

TEST(BpduTextTest, TimersInSecondsWithTheDecimalsTheyNeed) {
  // 0s and 2s: the lines above
  EXPECT_EQ(timerText(Stp::TimerVal::fromWire(0x0080)), "0.5s");
  EXPECT_EQ(timerText(Stp::TimerVal::fromWire(0x0001)), "0.00390625s");
  EXPECT_EQ(timerText(Stp::TimerVal::fromWire(0xffff)), "255.99609375s");
}

TEST(BpduTextTest, RejectsShowTheirSourceOnceTheFrameHoldsIt) {
  Octets frame(20, 0);
  frame[6] = 0x02;
  frame[11] = 0x09;
  BpduDecodeResult r = generateIntxInfoFromPkt(frame.data(), 11, nullptr);
  EXPECT_EQ(bpduText(r, nullptr, 11), std::string("reject: ") + bpduReasonText(r.reject));
  r = generateIntxInfoFromPkt(frame.data(), frame.size(), nullptr);
  EXPECT_EQ(bpduText(r, nullptr, frame.size()),
            std::string("reject: ") + bpduReasonText(r.reject) + " src 02:00:00:00:00:09");
  BpduDecodeResult limited;
  limited.reject = BpduReason::rateLimited;
  EXPECT_EQ(bpduText(limited, nullptr, 60), "rate-limited");
}

}  // namespace
}  // namespace StpTxRx::bpdutest
