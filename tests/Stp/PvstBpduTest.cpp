// PVST+ both ways: the Rapid-PVST+ frame octet for octet, one row per decode rule (valid, each
// reject; valid frames of every kind: the round trip), and the receive path filing each BPDU under its
// originating VLAN (round trip and tshark: BpduRoundTripTest; allocation: BpduEncodeTest).
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

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
  // Destination, source; length, LLC, SNAP; protocol, version, type, flags; root, root path cost; bridge;
  // port; timers; version 1 length; originating VLAN TLV.
  const Octets expected = hexOctets("01000ccccccd 0200000000aa 0032 aaaa03 00000c010b 0000 02 02 0e 8005 0200000000aa "
                                    "00000000 8005 0200000000aa 8004 0000 1400 0200 0f00 00 0000 0002 0005");
  EXPECT_EQ(frame, expected);

  IntxInfo::Ptr back = IntxInfo::IntxInfoIs(0);
  EXPECT_EQ(generateIntxInfoFromPkt(frame.data(), frame.size(), back.get()).originatingVlan.value(), 5);
  EXPECT_TRUE(back->sameContent(*exampleRecord())) << *back;  // kind, tag and destination: BpduRoundTripTest

  // Tagged: the same BPDU behind an 802.1Q tag with priority 7.
  Octets expectedTagged = expected;
  expectedTagged.insert(expectedTagged.begin() + 12, {0x81, 0x00, 0xe0, 0x05});
  EXPECT_EQ(pvst(exampleRecord(), true, 5), expectedTagged);

  // A TCN is the 4-octet BPDU alone.
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);
  tcn->intxInfoTypeIs({0x80});
  const Octets tcnFrame = pvst(tcn, false, 5);
  EXPECT_EQ(Octets(tcnFrame.begin() + 12, tcnFrame.end()), hexOctets("000c aaaa03 00000c010b 0000 00 80"));
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

// A frame of kind `record` for `vlan` as `change` leaves it, and its verdict: that kind and VLAN, or the
// reject (`pvst`: reported as PVST+).
struct PvstRow {
  const char* name;
  BpduKind record;
  bool tagged;
  std::uint16_t vlan;
  std::function<void(Octets&)> change;
  BpduReason reject;
  bool pvst = true;
};
auto& tlv(Octets& f) { return at<Stp::PvstBpdu>(f).originatingVlan; }

const std::vector<PvstRow>& pvstRows() {
  using enum BpduKind;
  using enum BpduReason;
  static const std::vector<PvstRow> table = {
      {"padding after", Rst, false, 5, [](Octets& f) { f.resize(f.size() + 20, 0xee); }, none},
      {"priority tag", Rst, true, 5, [](Octets& f) { f[14] = 0xe0, f[15] = 0x00; }, none},
      {"OUI", Rst, false, 5, [](Octets& f) { f[19] = 0x0d; }, notPvstSnap, false},
      {"PID", Rst, false, 5, [](Octets& f) { f[21] = 0x0c; }, notPvstSnap, false},
      {"SNAP cut", Rst, false, 5, [](Octets& f) { f[13] = 7; }, lengthBelowLlc, false},
      {"SNAP alone", Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 0); }, bpduTooShort},
      {"version 3", Rst, false, 5, [](Octets& f) { at<Stp::CommonBpdu>(f).protocolVersionIdentifier = 3; }, pvstVersion},
      {"rst 36", Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 36); }, pvstNoVlanTlv},
      {"config 35", Config, false, 5, [](Octets& f) { bpduSizeIs(f, 35); }, pvstNoVlanTlv},
      {"rst 37", Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 37); }, pvstTlvTooShort},
      {"rst 41", Rst, false, 5, [](Octets& f) { bpduSizeIs(f, 41); }, pvstTlvTooShort},
      {"TLV type 1", Rst, false, 5, [](Octets& f) { tlv(f).type = 1; }, pvstNoVlanTlv},
      {"TLV length 3", Config, false, 5, [](Octets& f) { tlv(f).length = 3; }, pvstTlvLength},
      {"VLAN 0", Rst, false, 5, [](Octets& f) { tlv(f).vlan = 0; }, pvstVlanOutOfRange},
      {"VLAN 4095", Rst, false, 5, [](Octets& f) { tlv(f).vlan = 4095; }, pvstVlanOutOfRange},
      {"VLAN 11 in tag 10", Rst, true, 10, [](Octets& f) { tlv(f).vlan = 11; }, pvstVlanMismatch},
      {"config age = max", Config, false, 5,
       [](Octets& f) { at<Stp::ConfigBpdu>(f).messageAge = at<Stp::ConfigBpdu>(f).maxAge; }, messageAgeNotBelowMaxAge},
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
    const bool valid = row.reject == BpduReason::none;
    EXPECT_EQ(r.kind, valid ? row.record : BpduKind::Rejected);
    EXPECT_EQ(r.reject, row.reject) << bpduReasonName(r.reject);
    EXPECT_EQ(r.pvst(), row.pvst);
    EXPECT_EQ(r.originatingVlan.value(), valid ? row.vlan : 0);
    EXPECT_EQ(r.tagged, row.tagged);
    EXPECT_EQ(info->sameContent(*before), !r.valid()) << "a reject writes nothing; every valid kind writes";
    EXPECT_TRUE(!r.valid() || info->sameContent(*source)) << *info;
  }
  EXPECT_STREQ(bpduReasonText(BpduReason::pvstVlanMismatch), "originating VLAN differs from the tag");
  EXPECT_STREQ(bpduReasonName(BpduReason::notPvstSnap), "notPvstSnap");
}

// ---- receive

TEST(PvstReceiveTest, EachBpduIsFiledUnderItsOriginatingVlanAndCountedAlsoAsPvst) {
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("pvst")->rxMstPortStatusIs(Nelk::IntfId("Et3"));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);
  tcn->intxInfoTypeIs({0x80});
  struct Step { Octets frame; BpduKind kind; std::uint16_t filedUnder; };  // filedUnder 0: nothing filed
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
