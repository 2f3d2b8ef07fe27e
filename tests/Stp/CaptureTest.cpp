// The companion library's capture files: timestamps written and read back to the microsecond (held at
// the ends of the range a reader takes back, never wrapped), frames cut by a snap length reported as such, and
// errors that do not repeat the path the caller names.
#if defined(STPTXRX_HAVE_PCAP)
#include <stptxrx/pcap/Pcap.h>

#include "BpduTestFrames.h"

#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace StpTxRx::bpdutest {
namespace {

namespace fs = std::filesystem;

class CaptureTest : public ::testing::Test {
 protected:
  void SetUp() override { fs::create_directories(dir_); }
  void TearDown() override { fs::remove_all(dir_); }
  std::string path(const char* name) const { return (dir_ / name).string(); }
  const fs::path dir_ = fs::temp_directory_path() / ("stptxrx-capture-" + std::to_string(::getpid()));
};

TEST_F(CaptureTest, TimestampsComeBackToTheMicrosecondAndOutOfRangeTimesAreHeldAtTheEnds) {
  const BpduEncodeResult e = generateBpduFromIntxInfo(portSm(), mstRecord(), false, {});
  ASSERT_TRUE(e);
  const struct { double written, read; } times[] = {
      {0.0, 0.0},         {1.000001, 1.000001},         {1.9999996, 2.0},          {1700000000.123456, 1700000000.123456},
      {-5.0, 0.0},        {2147483647.0, 2147483647.0}, {2147483646.9999996, 2147483647.0}, {2147483647.5, 2147483647.0},
      {2147483648.0, 2147483647.0},                     {1e12, 2147483647.0}};
  {
    pcap::PcapWriter out(path("t.pcap"));
    ASSERT_TRUE(out.ok()) << out.error();
    for (const auto& t : times) ASSERT_TRUE(out.write(*e.pkt, t.written));
    ASSERT_TRUE(out.write(e.pkt->data(), e.pkt->size(), 7, 0));  // frame n of write(pkt) is n seconds
    ASSERT_TRUE(out.close());
    EXPECT_EQ(out.frames(), std::size(times) + 1);
  }
  pcap::PcapReader in(path("t.pcap"));
  pcap::PcapFrame f;
  for (const auto& t : times) {
    ASSERT_TRUE(in.next(f)) << in.error();
    EXPECT_NEAR(f.time, t.read, 5e-7) << t.written;
    EXPECT_EQ(f.origLen, e.pkt->size());
    EXPECT_EQ(f.data, octetsOf(e.pkt));
  }
  ASSERT_TRUE(in.next(f));
  EXPECT_EQ(f.time, 7.0);
  EXPECT_FALSE(in.next(f));
  EXPECT_EQ(in.error(), "");
  EXPECT_EQ(in.frames(), std::size(times) + 1);
}

TEST_F(CaptureTest, ErrorsSayWhyWithoutRepeatingThePath) {
  pcap::PcapFrame f;  // a missing file: PcapToolTest names it once
  std::ofstream(path("junk.pcap")) << "not a capture at all, just text\n";
  pcap::PcapReader junk(path("junk.pcap"));
  EXPECT_FALSE(junk.next(f));
  EXPECT_FALSE(junk.error().empty());
  EXPECT_EQ(junk.error().find(path("junk.pcap")), std::string::npos) << junk.error();

  const std::string unwritable = path("no-such-dir/out.pcap");
  pcap::PcapWriter out(unwritable);
  EXPECT_FALSE(out.ok());
  EXPECT_FALSE(out.write(f.data.data(), 0, 0, 0));
  EXPECT_FALSE(out.error().empty());
  EXPECT_EQ(out.error().find(unwritable), std::string::npos) << out.error();
}

}  // namespace
}  // namespace StpTxRx::bpdutest
#endif
