// Validation of received frames: one row per rule with the boundaries that must still pass, each
// reject leaving the record untouched, and the receive helper counting every row by kind or reason.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

#include <gtest/gtest.h>

namespace StpTxRx::bpdutest {
namespace {


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
  return [change] {
    Octets f = mst();
    change(f);
    return f;
  };
}
void mstiIdsAre(Octets& f, std::uint16_t first, std::uint16_t second) {
  body<Stp::MstiConfigMessage>(f, 102).regionalRootIdentifier.priorityAndExtension = first;
  body<Stp::MstiConfigMessage>(f, 118).regionalRootIdentifier.priorityAndExtension = second;
}

}  // namespace

const std::vector<Row>& ieeeRows() {
  using R = BpduReason;
  using K = BpduKind;
  static const std::vector<Row> table = {
      {"empty", [] { return Octets{}; }, K::Rejected, R::frameTooShort},
      {"13 octets", [] { return Octets(13, 0); }, K::Rejected, R::frameTooShort},
      {"header alone", mstWith([](Octets& f) { f.resize(14); }), K::Rejected, R::lengthBeyondFrame},
      {"tag cut", [] { return Octets{1, 0x80, 0xc2, 0, 0, 0, 2, 0, 0, 0, 0, 7, 0x81, 0, 0xe0}; }, K::Rejected,
       R::frameTooShort},
      {"EtherType", mstWith([](Octets& f) { lengthIs(f, 0x0800); }), K::Rejected, R::notLengthField},
      {"length 1501", mstWith([](Octets& f) { lengthIs(f, 1501); }), K::Rejected, R::notLengthField},
      {"length 2", mstWith([](Octets& f) { lengthIs(f, 2); }), K::Rejected, R::lengthBelowLlc},
      {"length +1", mstWith([](Octets& f) { lengthIs(f, static_cast<std::uint16_t>(f.size() - 13)); }), K::Rejected,
       R::lengthBeyondFrame},
      {"DSAP", mstWith([](Octets& f) { f[14] = 0x43; }), K::Rejected, R::notStpLlc},
      {"SSAP", mstWith([](Octets& f) { f[15] = 0x43; }), K::Rejected, R::notStpLlc},
      {"control", mstWith([](Octets& f) { f[16] = 0x13; }), K::Rejected, R::notStpLlc},
      {"3-octet BPDU", [] { return withType(0, 0x80, 3); }, K::Rejected, R::bpduTooShort},
      {"protocol 1", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolIdentifier = 1; }), K::Rejected,
       R::protocolIdentifier},
      {"protocol 0x100", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolIdentifier = 0x100; }),
       K::Rejected, R::protocolIdentifier},
      {"config 34", [] { return withType(0, 0, 34); }, K::Rejected, R::configTooShort},
      {"config 35", [] { return withType(0, 0, 35); }, K::Config},
      {"config age = max", [] {
         Octets f = withType(0, 0, 35);
         body<Stp::ConfigBpdu>(f).messageAge = body<Stp::ConfigBpdu>(f).maxAge;
         return f;
       }, K::Rejected, R::messageAgeNotBelowMaxAge},
      {"config age = max - 1", [] {
         Octets f = withType(0, 0, 35);
         body<Stp::ConfigBpdu>(f).messageAge = Stp::TimerVal::fromWire(body<Stp::ConfigBpdu>(f).maxAge.wire() - 1);
         return f;
       }, K::Config},
      {"tcn 4", [] { return withType(0, 0x80, 4); }, K::Tcn},
      {"rst 35", [] { return withType(2, 2, 35); }, K::Rejected, R::rstTooShort},
      {"rst 36", [] { return withType(2, 2, 36); }, K::Rst},
      {"type 1", [] { return withType(2, 1, 36); }, K::Rejected, R::unknownType},
      {"type 2 version 1", [] { return withType(1, 2, 36); }, K::Rejected, R::unknownType},
      {"version 3, 36 octets", [] { return withType(3, 2, 36); }, K::Rst, R::none, R::mstTooShort},
      {"version 3, 101 octets", [] { return withType(3, 2, 101); }, K::Rst, R::none, R::mstTooShort},
      {"version 1 length 1", mstWith([](Octets& f) { body<Stp::RstpBpdu>(f).version1Length = 1; }), K::Rst, R::none,
       R::mstVersion1Length},
      {"version 3 length 63", mstWith([](Octets& f) { body<Stp::MstBpdu>(f).version3Length = 63; }), K::Rst, R::none,
       R::mstVersion3Length},
      {"version 3 length 65", mstWith([](Octets& f) { body<Stp::MstBpdu>(f).version3Length = 65; }), K::Rst, R::none,
       R::mstVersion3Length},
      {"version 3 length 64 + 65 x 16", mstWith([](Octets& f) { body<Stp::MstBpdu>(f).version3Length = 64 + 65 * 16; }),
       K::Rst, R::none, R::mstVersion3Length},
      {"version 3 length beyond", mstWith([](Octets& f) { body<Stp::MstBpdu>(f).version3Length = 64 + 3 * 16; }),
       K::Rst, R::none, R::mstBeyondBpdu},
      {"version 3 length one MSTI", mstWith([](Octets& f) { body<Stp::MstBpdu>(f).version3Length = 64 + 16; }), K::Mst},
      {"version 9", mstWith([](Octets& f) { body<Stp::CommonBpdu>(f).protocolVersionIdentifier = 9; }), K::Mst},
      {"MSTID 0", mstWith([](Octets& f) { mstiIdsAre(f, 0x6000, 0x6005); }), K::Rejected, R::mstiIdZero},
      {"MSTID repeated", mstWith([](Octets& f) { mstiIdsAre(f, 0x6005, 0x7005); }), K::Rejected, R::mstiIdRepeated},
      {"MSTID 4095", mstWith([](Octets& f) { mstiIdsAre(f, 0x6fff, 0x6005); }), K::Mst},
      {"padding and another destination", mstWith([](Octets& f) {
         f[5] = 0x0e;
         f.resize(f.size() + 40, 0xff);
       }), K::Mst},
  };
  return table;
}


namespace {

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
