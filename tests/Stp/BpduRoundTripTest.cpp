// Round trips: random records of every kind, IEEE and PVST+, through encode and decode, and tshark
// reading frames of every kind as their records say.
#include "BpduTestFrames.h"

// The tool's named samples (its own data, not an installed name).
#include "../../tools/BpduSamples.h"

#include <unistd.h>

#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

namespace StpTxRx::bpdutest {
namespace {

// IEEE (every kind, any tag) and PVST+ (all but MST, VLAN 1-4094 tagged or native) into one reused record.
TEST(BpduRoundTripTest, DecodeOfEncodeGivesEveryRandomRecordBackWithItsTagAndVlan) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  IntxInfo::Ptr reused = mstRecord();  // carries whatever the last frame left
  for (int i = 0; i < 5000; ++i) {
    const auto kind = static_cast<BpduKind>(rng() % 4);
    const bool pvst = kind != BpduKind::Mst && rng() % 2;
    const Nelk::EthAddr source(0x02, 0, 0, pvst, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i));
    IntxInfo::Ptr record = randomRecord(rng, kind, source);
    const bool tagged = rng() % 2;
    const auto vlan = static_cast<std::uint16_t>(pvst ? 1 + rng() % maxVlanId : rng() % 4095);
    const BpduEncodeResult e = pvst ? generatePvstBpduFromIntxInfo(portSm(source), record, tagged, vlan)
                                    : generateBpduFromIntxInfo(portSm(source), record, tagged, vlan);
    ASSERT_TRUE(e) << bpduEncodeErrorText(e.error) << " " << *record;
    ASSERT_EQ(e.kind, kind);
    const std::size_t entriesBefore = reused->mstiNCount();
    const BpduDecodeResult d = generateIntxInfoFromPkt(e.pkt, reused);
    ASSERT_EQ(d.kind, kind) << bpduReasonText(d.reject) << " " << *record;
    EXPECT_EQ(d.destination, pvst ? pvstAddress : Nelk::EthAddr(1, 0x80, 0xc2, 0, 0, 0));
    EXPECT_TRUE(d.source == source && d.pvst() == pvst && d.tagged == tagged);
    EXPECT_EQ(d.vlan.value(), tagged ? vlan : 0);
    EXPECT_EQ(d.originatingVlan.value(), pvst && (tagged || kind != BpduKind::Tcn) ? vlan : 0);
    EXPECT_EQ(d.bpduLength + (tagged ? 21u : 17u) + (pvst ? 5u : 0u), e.pkt->size());
    if (kind == BpduKind::Tcn) {  // version and type alone are written
      EXPECT_TRUE(reused->stpVersion() == record->stpVersion() && reused->intxInfoType() == record->intxInfoType());
      EXPECT_EQ(reused->mstiNCount(), entriesBefore);
    } else {
      ASSERT_TRUE(reused->sameContent(*record)) << "record " << *record << "\ndecoded " << *reused;
    }
  }
}

#if STPTXRX_HAVE_PCAP
// Frames of every kind, tagged and not, as the tool writes them to a capture, PVST+ frames of each kind
// tagged and native (with their tag, originating VLAN and no expert warning), and the RST samples through the
// RST encoder: tshark reads each one as its record says (a printable name, which tshark shows as it is).
TEST(BpduRoundTripTest, TsharkReadsFramesOfEveryKindAsTheirRecordsSay) {
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed";
  std::mt19937 rng(7);
  const std::string path = ::testing::TempDir() + "every-kind-" + std::to_string(::getpid()) + ".pcap";
  std::vector<IntxInfo::Ptr> records;
  pcap::PcapWriter out(path);
  std::string pvst;  // tshark's tag, type and originating VLAN of each PVST+ frame
  for (int i = 0; i < 28; ++i) {
    const int p = i - 16;  // IEEE frames first, then PVST+ ones
    const auto kind = static_cast<BpduKind>(p < 0 ? i % 4 : p % 3);
    const bool tagged = i % 2;
    const auto vlan = static_cast<std::uint16_t>(p < 0 ? 10 : p < 6 ? 1 + p : 4094 - p);
    IntxInfo::Ptr r = randomRecord(rng, kind, portMac);
    if (kind == BpduKind::Mst) r->stpVersionIs({3}), r->configNameStringIs("region-" + std::to_string(i));
    if (p >= 0 && kind != BpduKind::Rst) r->stpVersionIs({0});  // tshark warns of a version 1 BPDU
    const auto e = p < 0 ? BpduEncapsulation::ieee : BpduEncapsulation::pvst;
    ASSERT_TRUE(out.write(*generateBpduFromIntxInfo(e, portSm(), r, tagged, vlan).pkt));
    records.push_back(r);
    if (p < 0) continue;
    pvst += (tagged ? std::to_string(vlan) : "") + "|" + hex(kind == BpduKind::Tcn ? 0x80 : kind == BpduKind::Rst ? 2 : 0) +
            "|" + (kind == BpduKind::Tcn ? "" : std::to_string(vlan)) + "\n";
  }
  for (const auto& sample : tools::sampleRecords()) {
    records.push_back(rstRecord(sample.values));
    ASSERT_TRUE(out.write(*generatePktFromIntxInfo(portSm(), records.back(), false)));
  }
  ASSERT_TRUE(out.close());
  expectTsharkReads(path, records);
  const std::string pvstFrames = "tshark -r '" + path + "' -Y 'eth.dst == 01:00:0c:cc:cc:cd' -T fields ";
  EXPECT_EQ(run(pvstFrames + "-E separator='|' -e vlan.id -e stp.type -e stp.pvst.origvlan 2>/dev/null"), pvst);
  EXPECT_EQ(run(pvstFrames + "-e _ws.expert.message 2>/dev/null | grep -c ."), "0\n");
}
#endif


}  // namespace
}  // namespace StpTxRx::bpdutest
