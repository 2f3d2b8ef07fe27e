// PVST+ both ways: the Rapid-PVST+ frame octet for octet, one row per decode rule (valid, each
// reject; valid frames of every kind: the round trip), and the receive path filing each BPDU under its
// originating VLAN (round trip and tshark: BpduRoundTripTest; allocation: BpduEncodeTest).
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

#include <gtest/gtest.h>

#include <map>

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
      {"tcn native", K::Tcn, false, 5, none, K::Tcn, R::none, 0},
      {"padding after", K::Rst, false, 5, [](Octets& f) { f.resize(f.size() + 20, 0xee); }, K::Rst, R::none, 5},
      {"priority tag", K::Rst, true, 5, [](Octets& f) { f[14] = 0xe0, f[15] = 0x00; }, K::Rst, R::none, 5},
      {"OUI", K::Rst, false, 5, [](Octets& f) { f[19] = 0x0d; }, K::Rejected, R::notPvstSnap, 0, false},
      {"PID", K::Rst, false, 5, [](Octets& f) { f[21] = 0x0c; }, K::Rejected, R::notPvstSnap, 0, false},
      {"SNAP cut", K::Rst, false, 5, [](Octets& f) { f[13] = 7; }, K::Rejected, R::lengthBelowLlc, 0, false},
      {"SNAP alone", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 0); }, K::Rejected, R::bpduTooShort},
      {"version 3", K::Rst, false, 5, [](Octets& f) { at<Stp::CommonBpdu>(f).protocolVersionIdentifier = 3; },
       K::Rejected, R::pvstVersion},
      {"rst 36", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 36); }, K::Rejected, R::pvstNoVlanTlv},
      {"config 35", K::Config, false, 5, [](Octets& f) { bpduSizeIs(f, 35); }, K::Rejected, R::pvstNoVlanTlv},
      {"rst 37", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 37); }, K::Rejected, R::pvstTlvTooShort},
      {"rst 41", K::Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 41); }, K::Rejected, R::pvstTlvTooShort},
      {"TLV type 1", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.type = 1; }, K::Rejected,
       R::pvstNoVlanTlv},
      {"TLV length 3", K::Config, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.length = 3; },
       K::Rejected, R::pvstTlvLength},
      {"VLAN 0", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 0; }, K::Rejected,
       R::pvstVlanOutOfRange},
      {"VLAN 4095", K::Rst, false, 5, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 4095; },
       K::Rejected, R::pvstVlanOutOfRange},
      {"VLAN 11 in tag 10", K::Rst, true, 10, [](Octets& f) { at<Stp::PvstBpdu>(f).originatingVlan.vlan = 11; },
       K::Rejected, R::pvstVlanMismatch},
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

}

}  // namespace
}  // namespace StpTxRx::bpdutest
