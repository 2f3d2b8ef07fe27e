// Round trips: random records of every kind through encode and decode, and tshark reading frames of
// every kind as their records say.
#include "BpduTestFrames.h"

// The tool's named samples (its own data, not an installed name).
#include "../../tools/BpduSamples.h"
#include <stptxrx/Stp/BpduRecordText.h>

#include <gtest/gtest.h>

#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

namespace StpTxRx::bpdutest {
namespace {

TEST(BpduRoundTripTest, DecodeOfEncodeGivesEveryRandomRecordBack) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 rng(seed);
  IntxInfo::Ptr reused = IntxInfo::IntxInfoIs(0);  // carries whatever the last frame left
  for (int i = 0; i < 3000; ++i) {
    const auto kind = static_cast<BpduKind>(rng() % 4);
    const Nelk::EthAddr source(0x02, 0, 0, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i));
    IntxInfo::Ptr record = randomRecord(rng, kind, source);
    const bool tagged = rng() % 2;
    const auto vlan = static_cast<std::uint16_t>(rng() % 4095);
    const BpduEncodeResult e = generateBpduFromIntxInfo(portSm(source), record, tagged, vlan);
    ASSERT_TRUE(e) << bpduEncodeErrorText(e.error) << " " << *record;
    ASSERT_EQ(e.kind, kind);
    const std::size_t entriesBefore = reused->mstiNCount();
    const BpduDecodeResult d = generateIntxInfoFromPkt(e.pkt, reused);
    ASSERT_EQ(d.kind, kind) << bpduReasonText(d.reject) << " " << *record;
    EXPECT_TRUE(d.destination == Nelk::EthAddr(1, 0x80, 0xc2, 0, 0, 0) && d.source == source);
    EXPECT_EQ(d.tagged, tagged);
    EXPECT_EQ(d.vlan.value(), tagged ? vlan : 0);
    EXPECT_EQ(d.bpduLength + (tagged ? 21u : 17u), e.pkt->size());
    if (kind == BpduKind::Tcn) {  // version and type alone are written
      EXPECT_TRUE(reused->stpVersion() == record->stpVersion() && reused->intxInfoType() == record->intxInfoType());
      EXPECT_EQ(reused->mstiNCount(), entriesBefore);
    } else {
      ASSERT_TRUE(reused->sameContent(*record)) << "record " << *record << "\ndecoded " << *reused;
    }
  }
}

#if STPTXRX_HAVE_PCAP
// Frames of every kind, tagged and not, as the tool writes them to a capture, and the RST samples through the
// RST encoder: tshark reads each one as its record says (a printable name, which tshark shows as it is).
TEST(BpduRoundTripTest, TsharkReadsFramesOfEveryKindAsTheirRecordsSay) {
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed";
  std::mt19937 rng(7);
  const std::string path = ::testing::TempDir() + "every-kind.pcap";
  std::vector<IntxInfo::Ptr> records;
  pcap::PcapWriter out(path);
  for (int i = 0; i < 16; ++i) {
    const auto kind = static_cast<BpduKind>(i % 4);
    IntxInfo::Ptr r = randomRecord(rng, kind, portMac);
    if (kind == BpduKind::Mst) r->stpVersionIs({3}), r->configNameStringIs("region-" + std::to_string(i));
    ASSERT_TRUE(out.write(*generateBpduFromIntxInfo(portSm(), r, i % 2, 10).pkt));
    records.push_back(r);
  }
  for (const auto& sample : tools::sampleRecords()) {
    records.push_back(rstRecord(sample.values));
    ASSERT_TRUE(out.write(*generatePktFromIntxInfo(portSm(), records.back(), false)));
  }
  ASSERT_TRUE(out.close());
  expectTsharkReads(path, records);
}
#endif


}  // namespace
}  // namespace StpTxRx::bpdutest
