// Validation of received frames: one row per rule with the boundaries that must still pass, each
// reject leaving the record untouched, and the receive helper counting every row by kind or reason.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

namespace StpTxRx::bpdutest {
namespace {

// One row of the validation table: a frame, and the verdict it must get.
struct Row {
  const char* name;
  std::function<Octets()> frame;
  BpduKind kind;
  BpduReason reject = BpduReason::none, fallback = BpduReason::none;
};

void lengthIs(Octets& frame, std::uint16_t length) { reinterpret_cast<BpduLinkHeader*>(frame.data())->length = length; }
// The MST frame as a BPDU of `version` and `type`, cut to `bodySize` octets.
Octets withType(std::uint8_t version, std::uint8_t type, std::size_t bodySize) {
  Octets f = mst();
  body<Stp::CommonBpdu>(f).protocolVersionIdentifier = version;
  body<Stp::CommonBpdu>(f).bpduType = type;
  f.resize(bpduLinkHeaderSize + bodySize);
  lengthIs(f, static_cast<std::uint16_t>(bodySize + 3));
  return f;
}
template <class F>
std::function<Octets()> mstWith(F change) {
  return [change] { Octets f = mst(); change(f); return f; };
}
// A Configuration BPDU whose message age is `below` less than its max age.
std::function<Octets()> configAgedBelowMax(std::uint16_t below) {
  return [below] {
    Octets f = withType(0, 0, 35);
    body<Stp::ConfigBpdu>(f).messageAge = Stp::TimerVal::fromWire(body<Stp::ConfigBpdu>(f).maxAge.wire() - below);
    return f;
  };
}
void mstiIdsAre(Octets& f, std::uint16_t first, std::uint16_t second) {
  body<Stp::MstiConfigMessage>(f, 102).regionalRootIdentifier.priorityAndExtension = first;
  body<Stp::MstiConfigMessage>(f, 118).regionalRootIdentifier.priorityAndExtension = second;
}
void version3LengthIs(Octets& f, std::uint16_t length) { body<Stp::MstBpdu>(f).version3Length = length; }

// The IEEE rules, one row each with the boundaries that must still pass.
const std::vector<Row>& ieeeRows() {
  using enum BpduReason;
  using enum BpduKind;
  static const std::vector<Row> table = {
      {"empty", [] { return Octets{}; }, Rejected, frameTooShort},
      {"13 octets", [] { return Octets(13, 0); }, Rejected, frameTooShort},
      {"header alone", mstWith([](Octets& f) { f.resize(14); }), Rejected, lengthBeyondFrame},
      {"tag cut", [] { return hexOctets("0180c2000000 020000000007 8100e0"); }, Rejected, frameTooShort},
      {"EtherType", mstWith([](Octets& f) { lengthIs(f, 0x0800); }), Rejected, notLengthField},
      {"length 1501", mstWith([](Octets& f) { lengthIs(f, 1501); }), Rejected, notLengthField},
      {"length 2", mstWith([](Octets& f) { lengthIs(f, 2); }), Rejected, lengthBelowLlc},
      {"length +1", mstWith([](Octets& f) { lengthIs(f, std::uint16_t(f.size() - 13)); }), Rejected, lengthBeyondFrame},
      {"DSAP", mstWith([](Octets& f) { f[14] = 0x43; }), Rejected, notStpLlc},
      {"SSAP", mstWith([](Octets& f) { f[15] = 0x43; }), Rejected, notStpLlc},
      {"control", mstWith([](Octets& f) { f[16] = 0x13; }), Rejected, notStpLlc},
      {"3-octet BPDU", [] { return withType(0, 0x80, 3); }, Rejected, bpduTooShort},
      {"protocol 1", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolIdentifier = 1; }), Rejected,
       protocolIdentifier},
      {"protocol 0x100", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolIdentifier = 0x100; }), Rejected,
       protocolIdentifier},
      {"config 34", [] { return withType(0, 0, 34); }, Rejected, configTooShort},
      {"config 35", [] { return withType(0, 0, 35); }, Config},
      {"config age = max", configAgedBelowMax(0), Rejected, messageAgeNotBelowMaxAge},
      {"config age = max - 1", configAgedBelowMax(1), Config},
      {"tcn 4", [] { return withType(0, 0x80, 4); }, Tcn},
      {"rst 35", [] { return withType(2, 2, 35); }, Rejected, rstTooShort},
      {"rst 36", [] { return withType(2, 2, 36); }, Rst},
      {"type 1", [] { return withType(2, 1, 36); }, Rejected, unknownType},
      {"type 2 version 1", [] { return withType(1, 2, 36); }, Rejected, unknownType},
      {"version 3, 36 octets", [] { return withType(3, 2, 36); }, Rst, none, mstTooShort},
      {"version 3, 101 octets", [] { return withType(3, 2, 101); }, Rst, none, mstTooShort},
      {"version 1 length 1", mstWith([](Octets& f) { body<Stp::RstpBpdu>(f).version1Length = 1; }), Rst, none,
       mstVersion1Length},
      {"version 3 length 63", mstWith([](Octets& f) { version3LengthIs(f, 63); }), Rst, none, mstVersion3Length},
      {"version 3 length 65", mstWith([](Octets& f) { version3LengthIs(f, 65); }), Rst, none, mstVersion3Length},
      {"version 3 length 64 + 65 x 16", mstWith([](Octets& f) { version3LengthIs(f, 64 + 65 * 16); }), Rst, none,
       mstVersion3Length},
      {"version 3 length beyond", mstWith([](Octets& f) { version3LengthIs(f, 64 + 3 * 16); }), Rst, none, mstBeyondBpdu},
      {"version 3 length one MSTI", mstWith([](Octets& f) { version3LengthIs(f, 64 + 16); }), Mst},
      {"version 9", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolVersionIdentifier = 9; }), Mst},
      {"MSTID 0", mstWith([](Octets& f) { mstiIdsAre(f, 0x6000, 0x6005); }), Rejected, mstiIdZero},
      {"MSTID repeated", mstWith([](Octets& f) { mstiIdsAre(f, 0x6005, 0x7005); }), Rejected, mstiIdRepeated},
      {"MSTID 4095", mstWith([](Octets& f) { mstiIdsAre(f, 0x6fff, 0x6005); }), Mst},
      {"padding and another destination", mstWith([](Octets& f) { f[5] = 0x0e, f.resize(f.size() + 40, 0xff); }), Mst},
  };
  return table;
}

TEST(BpduDecodeTest, EveryRuleHasItsVerdictAndARejectChangesNothing) {
  for (const Row& row : ieeeRows()) {
    SCOPED_TRACE(row.name);
    const Octets frame = row.frame();
    IntxInfo::Ptr info = mstRecord();
    info->configNameStringIs("before");
    IntxInfo::Ptr before = IntxInfo::IntxInfoIs(0);
    copyIntxInfo(info, before);
    const BpduDecodeResult r = generateIntxInfoFromPkt(frame.data(), frame.size(), info.get());
    EXPECT_EQ(r.kind, row.kind);
    EXPECT_EQ(r.reject, row.reject) << bpduReasonText(r.reject);
    EXPECT_EQ(r.rstFallback, row.fallback) << bpduReasonText(r.rstFallback);
    EXPECT_EQ(r.valid(), row.reject == BpduReason::none);
    if (r.valid()) {
      EXPECT_EQ(r.destination, Nelk::EthAddr(frame[0], frame[1], frame[2], frame[3], frame[4], frame[5]));
    }
    EXPECT_EQ(info->sameContent(*before), !r.valid()) << "a reject writes nothing; every valid kind writes";
    EXPECT_EQ(generateIntxInfoFromPkt(frame.data(), frame.size(), nullptr).reject, row.reject);
  }
  EXPECT_STREQ(bpduReasonText(BpduReason::lengthBeyondFrame), "length field beyond the frame");
  EXPECT_STREQ(bpduReasonName(BpduReason::mstiIdRepeated), "mstiIdRepeated");
}

TEST(ReceiveBpduTest, AValidFrameFillsTheRecordARejectOnlyCountsEveryFrameIsCountedByKindOrReason) {
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Et7"));
  const Octets frame = mst();
  EXPECT_EQ(receiveBpdu(port, 10, Nelk::Pkt::Ptr()).reject, BpduReason::frameTooShort);
  EXPECT_EQ(port->rxInfo().size(), 0u);
  EXPECT_EQ(port->rxUpdate(10), 0u);
  EXPECT_EQ(receiveBpdu(port, 10, frame.data(), frame.size()).kind, BpduKind::Mst);
  EXPECT_EQ(receiveBpdu(port, 10, generateBpduFromIntxInfo(portSm(), mstRecord(), false, 0).pkt).kind, BpduKind::Mst);
  EXPECT_EQ(port->rxUpdate(10), 2u);
  EXPECT_TRUE(port->rxInfo(10)->sameContent(*mstRecord()));
  PortCounters expected;
  expected.mstRx = 2;
  expected.rejected = expected.of(BpduReason::frameTooShort) = 1;
  for (const Row& row : ieeeRows()) {
    const Octets f = row.frame();
    receiveBpdu(port, 3, f.data(), f.size());
    row.reject == BpduReason::none ? ++expected.of(row.kind) : (++expected.rejected, ++expected.of(row.reject));
  }
  EXPECT_EQ(port->counters(), expected);  // their printed form: the tool's summary line (PcapToolTest)
  EXPECT_EQ(port->bpduCount(), 3 + ieeeRows().size());
}

}  // namespace
}  // namespace StpTxRx::bpdutest
