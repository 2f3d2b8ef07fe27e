// stptxrx-pcap run as a user runs it: captures decode to their kind and rewrite losslessly, records of
// every kind read back, a cut file or a record the encoder refuses fails with status 1.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Lines = std::vector<std::string>;

const fs::path vectors = STPTXRX_SOURCE_DIR "/../shared/vectors";

class PcapToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(STPTXRX_BINARY_DIR "/stptxrx-pcap")) GTEST_SKIP() << "stptxrx-pcap is not built";
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string at(const char* name) const { return "'" + (dir_ / name).string() + "'"; }
  // Runs the tool (standard error dropped): its standard output's lines; the exit status in `status_`.
  Lines tool(const std::string& args) {
    FILE* out = popen((STPTXRX_BINARY_DIR "/stptxrx-pcap " + args + " 2>/dev/null").c_str(), "r");
    Lines lines(1);
    for (int c; out && (c = std::fgetc(out)) != EOF;) c == '\n' ? lines.emplace_back() : lines.back() += char(c);
    const int status = out ? pclose(out) : -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    lines.pop_back();  // after the last newline: nothing
    return lines;
  }
  const fs::path dir_ = fs::temp_directory_path() / ("stptxrx-pcaptool-" + std::to_string(::getpid()));
  int status_ = -1;
};

TEST_F(PcapToolTest, CapturesDecodeToTheirKindRewriteReadsBackAndACutFileFails) {
  if (!fs::exists(vectors)) GTEST_SKIP() << "no captures at " << vectors;
  const struct { const char* file; const char* kind; std::size_t frames; } captures[] = {
      {"802.1D_spanning_tree.pcap", "config", 14}, {"802.1w_rapid_STP.pcap", "rst", 30},
      {"MSTP_Intra-Region_BPDUs.pcap", "mst", 10}};
  for (const auto& c : captures) {
    SCOPED_TRACE(c.file);
    const Lines lines = tool("--read '" + (vectors / c.file).string() + "' --rewrite " + at("re.pcap"));
    ASSERT_EQ(status_, 0);
    ASSERT_EQ(lines.size(), c.frames);
    for (std::size_t i = 0; i < c.frames; ++i) EXPECT_THAT(lines[i], StartsWith(std::to_string(i + 1) + ' ' + c.kind));
    EXPECT_EQ(tool("--read " + at("re.pcap")), lines);
    EXPECT_EQ(status_, 0);

    std::ifstream original(vectors / c.file, std::ios::binary);  // the last frame loses 10 octets
    const std::string octets{std::istreambuf_iterator<char>(original), {}};
    std::ofstream(dir_ / "cut.pcap", std::ios::binary).write(octets.data(), std::streamsize(octets.size() - 10));
    EXPECT_EQ(tool("--read " + at("cut.pcap")), Lines(lines.begin(), lines.end() - 1));
    EXPECT_EQ(status_, 1);
  }
}

TEST_F(PcapToolTest, RecordsOfEveryKindReadBackAndARefusedRecordWritesNothing) {
  tool("--record version=0,type=0x80 --record version=0,type=0,vlan=9,cost=77 --record version=3,vlan=5,name=r1,hops=7,"
       "msti=2/0x7c/32768/00:11:22:33:44:55/9/4096/128/20,msti=1/1/0/02:00:00:00:00:09/1/0/16/3 " + at("r.pcap"));
  ASSERT_EQ(status_, 0);
  const Lines lines = tool("--read " + at("r.pcap"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines[0], StartsWith("1 tcn IntxInfo("));
  EXPECT_THAT(lines[1], AllOf(StartsWith("2 config vlan 9 IntxInfo("), HasSubstr(" extCost=77 ")));
  EXPECT_THAT(lines[2], AllOf(StartsWith("3 mst vlan 5 "), HasSubstr("name=\"r1\""), HasSubstr("msti=[0,1,2]"),
                              HasSubstr(" hops=7 "), HasSubstr("IntxMstiInfo(1 flags=0x01 bridge=0.1."),
                              HasSubstr("intCost=9 mstiRegionalRoot=32768.2.00:11:22:33:44:55 hops=20")));

  tool("--record version=3,name=" + std::string(33, 'n') + " " + at("long.pcap"));
  EXPECT_EQ(status_, 1);
  EXPECT_FALSE(fs::exists(dir_ / "long.pcap"));
}

}  // namespace
