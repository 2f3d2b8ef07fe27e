// PVST+ both ways: the Rapid-PVST+ frame octet for octet, one row per decode rule (valid, each
// reject, tagged and native), a seeded round trip of random records, tshark reading every kind we write,
// the receive path filing each BPDU under its originating VLAN, and no allocation on the hot paths.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <map>

#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

namespace StpTxRx::bpdutest {
namespace {

const Nelk::EthAddr peerMac(0x02, 0x00, 0x00, 0x00, 0x00, 0xaa);

// The record of the Rapid-PVST+ example: a bridge on VLAN 5 that is its own root.
IntxInfo::Ptr exampleRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  info->stpVersionIs({2});
  info->intxInfoTypeIs({2});
  info->neighborAddrIs(peerMac);
  auto e = info->mstiNIs(0);
  e->flagsIs({0x0e});
  e->cistRootBridgeIdIs(Stp::BridgeId{32768, 5, peerMac});
  e->bridgeIdIs(Stp::BridgeId{32768, 5, peerMac});
  e->portIdIs(Stp::PortId(128, 4));
  e->maxAgeIs(Stp::TimerVal::fromWire(0x1400));
  e->helloTimeIs(Stp::TimerVal::fromWire(0x0200));
  e->fwdDelayIs(Stp::TimerVal::fromWire(0x0f00));
  return info;
}

Octets pvst(const IntxInfo::Ptr& info, bool tagged, std::uint16_t vlan, const Nelk::EthAddr& from = peerMac) {
  const BpduEncodeResult r = generatePvstBpduFromIntxInfo(portSm(from), info, tagged, vlan);
  EXPECT_TRUE(r) << bpduEncodeErrorText(r.error);
  return r ? octetsOf(r.pkt) : Octets{};
}

TEST(PvstEncodeTest, TheRapidPvstExampleOctetForOctetAndBack) {
  const Octets frame = pvst(exampleRecord(), false, 5);
  const Octets expected = {
      0x01, 0x00, 0x0c, 0xcc, 0xcc, 0xcd, 0x02, 0x00, 0x00, 0x00, 0x00, 0xaa,  // destination, source
      0x00, 0x32, 0xaa, 0xaa, 0x03, 0x00, 0x00, 0x0c, 0x01, 0x0b,              // length, LLC, SNAP
      0x00, 0x00, 0x02, 0x02, 0x0e,                                            // protocol, version, type, flags
      0x80, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0xaa,                          // root
      0x00, 0x00, 0x00, 0x00,                                                  // root path cost
      0x80, 0x05, 0x02, 0x00, 0x00, 0x00, 0x00, 0xaa,                          // bridge
      0x80, 0x04,                                                              // port
      0x00, 0x00, 0x14, 0x00, 0x02, 0x00, 0x0f, 0x00,                          // timers
      0x00,                                                                    // version 1 length
      0x00, 0x00, 0x00, 0x02, 0x00, 0x05};                                     // originating VLAN TLV
  EXPECT_EQ(frame, expected);

  IntxInfo::Ptr back = IntxInfo::IntxInfoIs(0);
  const BpduDecodeResult r = generateIntxInfoFromPkt(frame.data(), frame.size(), back.get());
  EXPECT_EQ(r.kind, BpduKind::Rst);
  EXPECT_TRUE(r.pvst());
  EXPECT_EQ(r.originatingVlan.value(), 5);
  EXPECT_FALSE(r.tagged);
  EXPECT_EQ(r.destination, pvstAddress);
  EXPECT_TRUE(back->sameContent(*exampleRecord())) << *back;

  // Tagged: the same BPDU behind an 802.1Q tag with priority 7.
  const Octets tagged = pvst(exampleRecord(), true, 5);
  Octets expectedTagged = expected;
  const Octets tag = {0x81, 0x00, 0xe0, 0x05};
  expectedTagged.insert(expectedTagged.begin() + 12, tag.begin(), tag.end());
  EXPECT_EQ(tagged, expectedTagged);

  // A TCN is the 4-octet BPDU alone.
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);
  tcn->intxInfoTypeIs({0x80});
  const Octets tcnFrame = pvst(tcn, false, 5);
  EXPECT_EQ(Octets(tcnFrame.begin() + 12, tcnFrame.end()),
            (Octets{0x00, 0x0c, 0xaa, 0xaa, 0x03, 0x00, 0x00, 0x0c, 0x01, 0x0b, 0x00, 0x00, 0x00, 0x80}));
}

// ---- decoding: one row per rule

// The octets of a frame behind the link header of `frame` (tagged or not, SNAP included).
std::size_t bodyOffset(const Octets& frame) { return frame[12] == 0x81 ? 26 : 22; }
template <class View>
View& at(Octets& f, std::size_t offset = 0) {
  return *reinterpret_cast<View*>(f.data() + bodyOffset(f) + offset);
}
// Cuts the BPDU to `size` octets, fixing the length field.
void bpduSizeIs(Octets& f, std::size_t size) {
  f.resize(bodyOffset(f) + size);
  reinterpret_cast<Nelk::LengthField*>(f.data() + bodyOffset(f) - 10)->lengthOrType =
      static_cast<std::uint16_t>(size + 8);
}

IntxInfo::Ptr ofKind(BpduKind kind) {
  std::mt19937 rng(5);
  return randomRecord(rng, kind, peerMac);
}

struct PvstRow {
  const char* name;
  BpduKind record;  // the kind encoded
  bool tagged;
  std::uint16_t vlan;
  std::function<void(Octets&)> change;
  BpduKind kind;                  // the verdict
  BpduReason reject = BpduReason::none;
  std::uint16_t originatingVlan = 0;
  bool pvst = true;               // reported as PVST+
};

const std::vector<PvstRow>& pvstRows() {
  using K = BpduKind;
  using R = BpduReason;
  const auto none = [](Octets&) {};
  static const std::vector<PvstRow> table = {
      {"rst native", K::Rst, false, 5, none, K::Rst, R::none, 5},
      {"rst tagged", K::Rst, true, 10, none, K::Rst, R::none, 10},
      {"config native", K::Config, false, 4094, none, K::Config, R::none, 4094},
      {"config tagged", K::Config, true, 1, none, K::Config, R::none, 1},
      {"tcn native", K::Tcn, false, 5, none, K::Tcn, R::none, 0},
      {"tcn tagged", K::Tcn, true, 12, none, K::Tcn, R::none, 12},
      {"padding after", K::Rst, false, 5, [](Octets& f) { f.resize(f.size() + 20, 0xee); }, K::Rst, R::none, 5},
      {"priority tag", K::Rst, true, 5, [](Octets& f) { f[14] = 0xe0, f[15] = 0x00; }, K::Rst, R::none, 5},
      {"OUI", K::Rst, false, 5, [](Octets& f) { f[19] = 0x0d; }, K::Rejected, R::notPvstSnap, 0, false},
      {"PID", K::Rst, false, 5, [](Octets& f) { f[21] = 0x0c; }, K::Rejected, R::notPvstSnap, 0, false},
      {"SNAP cut", K::Rst, false, 5, [](Octets& f) { f[13] = 7; }, K::Rejected, R::lengthBelowLlc, 0, false},
      {"SNAP alone", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 0); }, K::Rejected, R::bpduTooShort},
      {"version 3", K::Rst, false, 5, [](Octets& f) { at<Stp::CommonBpdu>(f).protocolVersionIdentifier = 3; },
       K::Rejected, R::pvstVersion},
      {"version 255 tagged", K::Rst, true, 9, [](Octets& f) { at<Stp::CommonBpdu>(f).protocolVersionIdentifier = 255; },
       K::Rejected, R::pvstVersion},
      {"rst 36", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 36); }, K::Rejected, R::pvstNoVlanTlv},
      {"config 35", K::Config, false, 5, [](Octets& f) { bpduSizeIs(f, 35); }, K::Rejected, R::pvstNoVlanTlv},
      {"rst 37", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 37); }, K::Rejected, R::pvstTlvTooShort},
      {"rst 41", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 41); }, K::Rejected, R::pvstTlvTooShort},
      {"TLV type 1", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.type = 1; }, K::Rejected,
       R::pvstNoVlanTlv},
      {"TLV length 3", K::Config, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.length = 3; },
       K::Rejected, R::pvstTlvLength},
      {"TLV length 1", K::Rst, true, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.length = 1; },
       K::Rejected, R::pvstTlvLength},
      {"VLAN 0", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 0; }, K::Rejected,
       R::pvstVlanOutOfRange},
      {"VLAN 4095", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 4095; },
       K::Rejected, R::pvstVlanOutOfRange},
      {"VLAN 11 in tag 10", K::Rst, true, 10, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 11; },
       K::Rejected, R::pvstVlanMismatch},
      {"config VLAN 9 in tag 10", K::Config, true, 10,
       [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 9; }, K::Rejected, R::pvstVlanMismatch},
      {"config age = max", K::Config, false, 5,
       [](Octets& f) { at<Stp::ConfigBpdu>(f).messageAge = at<Stp::ConfigBpdu>(f).maxAge; }, K::Rejected,
       R::messageAgeNotBelowMaxAge},
  };
  return table;
}

TEST(PvstDecodeTest, EveryRuleHasItsVerdictAndARejectChangesNothing) {
  for (const PvstRow& row : pvstRows()) {
    SCOPED_TRACE(row.name);
    IntxInfo::Ptr source = ofKind(row.record);
    source->mstiNIs(0)->messageAgeIs(Stp::TimerVal::fromWire(0));  // room for the age rule's row
    Octets frame = pvst(source, row.tagged, row.vlan);
    row.change(frame);
    IntxInfo::Ptr info = mstRecord();
    IntxInfo::Ptr before = IntxInfo::IntxInfoIs(0);
    copyIntxInfo(info, before);
    const BpduDecodeResult r = generateIntxInfoFromPkt(frame.data(), frame.size(), info.get());
    EXPECT_EQ(r.kind, row.kind);
    EXPECT_EQ(r.reject, row.reject) << bpduReasonName(r.reject);
    EXPECT_EQ(r.pvst(), row.pvst);
    EXPECT_EQ(r.originatingVlan.value(), row.originatingVlan);
    EXPECT_EQ(r.tagged, row.tagged);
    EXPECT_EQ(info->sameContent(*before), !r.valid()) << "a reject writes nothing; every valid kind writes";
    if (r.valid() && row.kind != BpduKind::Tcn) {
      EXPECT_TRUE(info->sameContent(*source)) << *info;
    }
  }
  EXPECT_STREQ(bpduReasonText(BpduReason::pvstVlanMismatch), "originating VLAN differs from the tag");
  EXPECT_STREQ(bpduReasonName(BpduReason::notPvstSnap), "notPvstSnap");
}

// ---- round trip and tshark

TEST(PvstRoundTripTest, DecodeOfEncodeGivesEveryRandomRecordBackWithItsVlan) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  IntxInfo::Ptr reused = mstRecord();  // carries whatever the last frame left
  for (int i = 0; i < 2000; ++i) {
    const auto kind = static_cast<BpduKind>(rng() % 3);  // Config, TCN, RST
    const Nelk::EthAddr source(0x02, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i));
    IntxInfo::Ptr record = randomRecord(rng, kind, source);
    const bool tagged = rng() % 2;
    const auto vlan = static_cast<std::uint16_t>(1 + rng() % maxVlanId);
    const BpduEncodeResult e = generatePvstBpduFromIntxInfo(portSm(source), record, tagged, vlan);
    ASSERT_TRUE(e) << bpduEncodeErrorText(e.error) << " " << *record;
    const BpduDecodeResult d = generateIntxInfoFromPkt(e.pkt, reused);
    ASSERT_EQ(d.kind, kind) << bpduReasonText(d.reject) << " " << *record;
    EXPECT_TRUE(d.pvst() && d.destination == pvstAddress && d.source == source);
    EXPECT_EQ(d.tagged, tagged);
    EXPECT_EQ(d.vlan.value(), tagged ? vlan : 0);
    EXPECT_EQ(d.originatingVlan.value(), kind == BpduKind::Tcn && !tagged ? 0 : vlan);
    EXPECT_EQ(d.bpduLength + (tagged ? 26u : 22u), e.pkt->size());
    if (kind == BpduKind::Tcn) {
      EXPECT_TRUE(reused->stpVersion() == record->stpVersion() && reused->intxInfoType() == record->intxInfoType());
    } else {
      ASSERT_TRUE(reused->sameContent(*record)) << "record " << *record << "\ndecoded " << *reused;
    }
  }
}

#if STPTXRX_HAVE_PCAP
// tshark reads every PVST+ frame we write: destination, tag, kind, originating VLAN, the BPDU's fields as
// the record says, and no expert warning.
TEST(PvstRoundTripTest, TsharkReadsEveryPvstKindTaggedAndNative) {
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed";
  std::mt19937 rng(17);
  const std::string path = ::testing::TempDir() + "pvst.pcap";
  pcap::PcapWriter out(path);
  std::vector<IntxInfo::Ptr> records;
  std::string expected;
  for (int i = 0; i < 12; ++i) {
    const auto kind = static_cast<BpduKind>(i % 3);
    const bool tagged = i % 2;
    const auto vlan = static_cast<std::uint16_t>(i < 6 ? 1 + i : 4094 - i);
    records.push_back(randomRecord(rng, kind, portMac));
    if (kind != BpduKind::Rst) records.back()->stpVersionIs({0});  // tshark warns of a version 1 BPDU
    ASSERT_TRUE(out.write(*generatePvstBpduFromIntxInfo(portSm(), records.back(), tagged, vlan).pkt));
    expected += "01:00:0c:cc:cc:cd|" + (tagged ? std::to_string(vlan) : "") + "|" + hex(kind == BpduKind::Tcn ? 0x80 : kind == BpduKind::Rst ? 2 : 0) +
                "|" + (kind == BpduKind::Tcn ? "" : std::to_string(vlan)) + "\n";
  }
  ASSERT_TRUE(out.close());
  EXPECT_EQ(run("tshark -r '" + path + "' -T fields -E separator='|' -e eth.dst -e vlan.id -e stp.type "
                "-e stp.pvst.origvlan 2>/dev/null"),
            expected);
  expectTsharkReads(path, records);
  EXPECT_EQ(run("tshark -r '" + path + "' -T fields -e _ws.expert.message 2>/dev/null | grep -c ."), "0\n");
}
#endif

// ---- receive

TEST(PvstReceiveTest, EachBpduIsFiledUnderItsOriginatingVlanAndCountedAlsoAsPvst) {
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("pvst")->rxMstPortStatusIs(Nelk::IntfId("Et3"));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);
  tcn->intxInfoTypeIs({0x80});
  struct Step {
    Octets frame;
    BpduKind kind;
    std::uint16_t filedUnder;  // 0: nothing filed
  };
  Octets mismatch = pvst(exampleRecord(), true, 10);
  at<Stp::PvstBpdu>(mismatch).originatingVlan.vlan = 11;
  const Step steps[] = {
      {pvst(exampleRecord(), false, 5), BpduKind::Rst, 5},      // native: the TLV's VLAN, not the caller's
      {pvst(exampleRecord(), true, 10), BpduKind::Rst, 10},
      {pvst(ofKind(BpduKind::Config), true, 20), BpduKind::Config, 20},
      {pvst(tcn, false, 30), BpduKind::Tcn, 1},                 // untagged TCN: the port's native VLAN
      {pvst(tcn, true, 40), BpduKind::Tcn, 40},
      {mismatch, BpduKind::Rejected, 0},
      {mst(), BpduKind::Mst, 1},                                // IEEE: the caller's record as before
  };
  std::map<std::uint16_t, std::uint32_t> updates;
  for (const Step& s : steps) {
    const BpduDecodeResult r = receiveBpdu(port, 1, s.frame.data(), s.frame.size());
    EXPECT_EQ(r.kind, s.kind);
    if (s.filedUnder) ++updates[s.filedUnder];
  }
  for (const auto& [vlan, count] : updates) EXPECT_EQ(port->rxUpdate(vlan), count) << vlan;
  EXPECT_EQ(port->rxUpdate().size(), updates.size());
  EXPECT_TRUE(port->rxInfo(10)->sameContent(*exampleRecord()));
  EXPECT_EQ(port->rxInfo(40)->intxInfoType().value, 0x80);
  EXPECT_EQ(port->bpduCount(), std::size(steps));
  std::ostringstream printed;
  printed << port->counters();
  EXPECT_EQ(printed.str(), "config=1 tcn=2 rst=2 mst=1 rejected=1 rate-limited=0 pvst=5 pvstVlanMismatch=1");
  std::ostringstream ieeeOnly;
  ieeeOnly << PortCounters{};
  EXPECT_EQ(ieeeOnly.str(), "config=0 tcn=0 rst=0 mst=0 rejected=0 rate-limited=0") << "no pvst= while it is 0";

  // Behind the rate limit: the same filing for the frames that go on, none for the one dropped.
  RxMstPortStatus::Ptr limited = RxStatus::RxStatusIs()->rxMstStatusIs("g")->rxMstPortStatusIs(Nelk::IntfId("Et4"));
  limited->rateLimitEnabledIs(true);
  limited->rateLimitMaxCountIs(1);
  limited->rateLimitIntervalIs(10);
  BpduReceiver receiver(limited);
  EXPECT_EQ(receiver.frameIs(1, steps[1].frame.data(), steps[1].frame.size(), 0).originatingVlan.value(), 10);
  EXPECT_EQ(receiver.frameIs(1, steps[2].frame.data(), steps[2].frame.size(), 1).reject, BpduReason::rateLimited);
  EXPECT_EQ(receiver.frameIs(1, steps[2].frame.data(), steps[2].frame.size(), 10).kind, BpduKind::Config);
  EXPECT_EQ(limited->rxUpdate(10), 1u);
  EXPECT_EQ(limited->rxUpdate(20), 1u);
  EXPECT_EQ(limited->counters().pvstRx, 2u);
  EXPECT_EQ(limited->counters().rateLimited, 1u);
}

TEST(PvstAllocationTest, DecodeAndReceiveIntoExistingRecordsAndEncodeFromAWarmPoolAllocateNothing) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  IntxInfo::Ptr record = exampleRecord();
  Stp::MstPortSm::Ptr sm = portSm();
  EXPECT_EQ(warmCodecAllocations(pvst(record, true, 10),
                                 [&] { return bool(generatePvstBpduFromIntxInfo(sm, record, true, 10)); }),
            0u);
}

}  // namespace
}  // namespace StpTxRx::bpdutest
