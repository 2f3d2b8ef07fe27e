// The captures of real switches: every frame decodes as its capture's kind, re-encodes to its own
// octets, and tshark reads each as we do.
#include "BpduTestFrames.h"

#if STPTXRX_HAVE_PCAP  // the captures are read through libpcap
#include <stptxrx/pcap/Pcap.h>

#include <filesystem>

namespace StpTxRx::bpdutest {
namespace {

struct Capture { const char* file; std::size_t frames; BpduKind kind; };
const Capture captures[] = {{"802.1D_spanning_tree.pcap", 14, BpduKind::Config},
                            {"802.1w_rapid_STP.pcap", 30, BpduKind::Rst},
                            {"MSTP_Intra-Region_BPDUs.pcap", 10, BpduKind::Mst}};

TEST(BpduCaptureTest, EveryFrameDecodesReEncodesToItsOwnOctetsAndReadsInTsharkAsWeDo) {
  ASSERT_TRUE(std::filesystem::exists(vectors)) << "no captures at " << vectors;
  const bool tshark = haveTshark();
  std::size_t tagged = 0;
  for (const Capture& c : captures) {
    pcap::PcapReader in(vectors + c.file);
    std::vector<IntxInfo::Ptr> decoded;
    for (pcap::PcapFrame frame; in.next(frame);) {
      SCOPED_TRACE(std::string(c.file) + " frame " + std::to_string(decoded.size() + 1));
      const Octets& octets = frame.data;
      const IntxInfo::Ptr info = decoded.emplace_back(IntxInfo::IntxInfoIs(0));
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
    EXPECT_EQ(in.error(), "");
    ASSERT_EQ(decoded.size(), c.frames) << c.file;
    if (tshark) expectTsharkReads(vectors + c.file, decoded);
  }
  EXPECT_GT(tagged, 0u) << "the MST capture has tagged frames";
}

}  // namespace
}  // namespace StpTxRx::bpdutest
#endif  // STPTXRX_HAVE_PCAP
