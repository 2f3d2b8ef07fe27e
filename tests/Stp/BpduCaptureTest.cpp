// The captures of real switches: every frame decodes as its capture's kind, re-encodes to its own
// octets, and tshark reads each as we do.
#include "BpduTestFrames.h"

#if STPTXRX_HAVE_PCAP  // the captures are read through libpcap
#include <stptxrx/pcap/Pcap.h>

#include <filesystem>

namespace StpTxRx::bpdutest {
namespace {

std::vector<pcap::PcapFrame> capture(const std::string& file) {
  pcap::PcapReader in(vectors + file);
  std::vector<pcap::PcapFrame> frames;
  pcap::PcapFrame f;
  while (in.next(f)) frames.push_back(f);
  EXPECT_EQ(in.error(), "");
  return frames;
}

struct Capture { const char* file; std::size_t frames; BpduKind kind; };
const Capture captures[] = {{"802.1D_spanning_tree.pcap", 14, BpduKind::Config},
                            {"802.1w_rapid_STP.pcap", 30, BpduKind::Rst},
                            {"MSTP_Intra-Region_BPDUs.pcap", 10, BpduKind::Mst}};

TEST(BpduCaptureTest, EveryFrameDecodesAndReEncodesToItsOwnOctets) {
  ASSERT_TRUE(std::filesystem::exists(vectors)) << "no captures at " << vectors;
  std::size_t tagged = 0;
  for (const Capture& c : captures) {
    const auto frames = capture(c.file);
    ASSERT_EQ(frames.size(), c.frames) << c.file;
    for (std::size_t i = 0; i < frames.size(); ++i) {
      SCOPED_TRACE(std::string(c.file) + " frame " + std::to_string(i + 1));
      const Octets& octets = frames[i].data;
      IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
      const BpduDecodeResult r = generateIntxInfoFromPkt(octets.data(), octets.size(), info.get());
      ASSERT_EQ(r.kind, c.kind) << bpduReasonText(r.reject);
      tagged += r.tagged;
      {  // the next packet comes with a buffer full of 0xff: every octet must be written
        Nelk::Pkt::Ptr used = Nelk::globalPktManager().newPkt();
        std::fill_n(used->headDataIs(1500), 1500, 0xff);
      }
      const BpduEncodeResult e = generateBpduFromIntxInfo(portSm(r.source), info, r.tagged, r.vlan);
      ASSERT_TRUE(e) << bpduEncodeErrorText(e.error);
      const std::size_t end = (r.tagged ? taggedBpduLinkHeaderSize : bpduLinkHeaderSize) + r.bpduLength;
      EXPECT_EQ(octetsOf(e.pkt), Octets(octets.begin(), octets.begin() + static_cast<std::ptrdiff_t>(end)));
    }
  }
  EXPECT_GT(tagged, 0u) << "the MST capture has tagged frames";
}
TEST(BpduCaptureTest, TsharkReadsEveryFrameAsWeDo) {
  ASSERT_TRUE(std::filesystem::exists(vectors)) << "no captures at " << vectors;
  if (!haveTshark()) GTEST_SKIP() << "tshark is not installed";
  for (const Capture& c : captures) {
    std::vector<IntxInfo::Ptr> decoded;
    for (const auto& frame : capture(c.file)) {
      decoded.push_back(IntxInfo::IntxInfoIs(0));
      ASSERT_TRUE(generateIntxInfoFromPkt(frame.data.data(), frame.data.size(), decoded.back().get()).valid());
    }
    expectTsharkReads(vectors + c.file, decoded);
  }
}

}  // namespace
}  // namespace StpTxRx::bpdutest
#endif  // STPTXRX_HAVE_PCAP
