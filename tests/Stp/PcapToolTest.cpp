// stptxrx-pcap run as a user runs it: captures decode to their kind and rewrite losslessly, the rate
// limit follows the capture's timestamps, records of every kind read back in the line format, a cut file
// or a record the encoder refuses fails with status 1, a value that does not fit or a misused option is
// refused with status 2, and nothing is written on a refusal. (Interfaces: tests/interop/interop.sh.)
#include <stptxrx/Version.h>
#if defined(STPTXRX_HAVE_PCAP)
#include <stptxrx/pcap/Pcap.h>
#endif

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

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
using ::testing::Not;
using ::testing::StartsWith;
using Lines = std::vector<std::string>;

const fs::path vectors = STPTXRX_TEST_DATA_DIR;

class PcapToolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(STPTXRX_BINARY_DIR "/stptxrx-pcap")) GTEST_SKIP() << "stptxrx-pcap is not built";
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string at(const char* name) const { return "'" + (dir_ / name).string() + "'"; }
  // Runs the tool (standard error dropped): its standard output's lines; the exit status in `status_`.
  Lines tool(const std::string& args, bool dropErrors = true) {
    const std::string errors = dropErrors ? " 2>/dev/null" : "";
    FILE* out = popen((STPTXRX_BINARY_DIR "/stptxrx-pcap " + args + errors).c_str(), "r");
    Lines lines(1);
    for (int c; out && (c = std::fgetc(out)) != EOF;) c == '\n' ? lines.emplace_back() : lines.back() += char(c);
    const int status = out ? pclose(out) : -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    lines.pop_back();  // after the last newline: nothing
    return lines;
  }
  // Runs the tool with standard output dropped: the lines of its standard error.
  Lines toolErr(const std::string& args) { return tool(args + " 2>&1 >/dev/null", false); }
  const fs::path dir_ = fs::temp_directory_path() / ("stptxrx-pcaptool-" + std::to_string(::getpid()));
  int status_ = -1;
};

TEST_F(PcapToolTest, CapturesDecodeToTheirKindRewriteReadsBackAndACutFileFails) {
  ASSERT_TRUE(fs::exists(vectors)) << "no captures at " << vectors;
  const struct { const char* file; const char* kind; std::size_t frames; const char* counts; } captures[] = {
      {"802.1D_spanning_tree.pcap", "config", 14, "config=14 tcn=0 rst=0 mst=0"},
      {"802.1w_rapid_STP.pcap", "rst", 30, "config=0 tcn=0 rst=30 mst=0"},
      {"MSTP_Intra-Region_BPDUs.pcap", "mst", 10, "config=0 tcn=0 rst=0 mst=10"}};
  for (const auto& c : captures) {
    SCOPED_TRACE(c.file);
    const Lines lines = tool("--read '" + (vectors / c.file).string() + "' --rewrite " + at("re.pcap"));
    ASSERT_EQ(status_, 0);
    ASSERT_EQ(lines.size(), c.frames + 1);
    for (std::size_t i = 0; i < c.frames; ++i) EXPECT_THAT(lines[i], StartsWith(std::to_string(i + 1) + ' ' + c.kind));
    EXPECT_EQ(lines.back(), "summary: frames=" + std::to_string(c.frames) + " " + c.counts + " rejected=0 rate-limited=0");
    EXPECT_EQ(tool("--read " + at("re.pcap")), lines);
    EXPECT_EQ(status_, 0);

    std::ifstream original(vectors / c.file, std::ios::binary);  // the last frame loses 10 octets
    const std::string octets{std::istreambuf_iterator<char>(original), {}};
    std::ofstream(dir_ / "cut.pcap", std::ios::binary).write(octets.data(), std::streamsize(octets.size() - 10));
    const Lines cut = tool("--read " + at("cut.pcap"));
    ASSERT_FALSE(cut.empty());
    EXPECT_EQ(Lines(cut.begin(), cut.end() - 1), Lines(lines.begin(), lines.end() - 2)) << "frames before the cut";
    EXPECT_EQ(status_, 1);
  }
}

// Windows of 10 s open at 0, 10.03 and 20.05 s into the capture; each admits two frames.
TEST_F(PcapToolTest, TheRateLimitDropsByTheCapturesOwnTimestamps) {
  ASSERT_TRUE(fs::exists(vectors)) << "no captures at " << vectors;
  const Lines lines = tool("--read '" + (vectors / "802.1D_spanning_tree.pcap").string() + "' --rate-limit 2/10");
  ASSERT_EQ(status_, 0);
  ASSERT_EQ(lines.size(), 15u);
  for (int dropped : {3, 4, 5, 8, 9, 10, 13, 14}) EXPECT_EQ(lines[dropped - 1], std::to_string(dropped) + " rate-limited");
  EXPECT_THAT(lines[10], StartsWith("11 config src "));
  EXPECT_EQ(lines.back(), "summary: frames=14 config=6 tcn=0 rst=0 mst=0 rejected=0 rate-limited=8");
}

TEST_F(PcapToolTest, RecordsOfEveryKindReadBackARejectIsNamedAndARefusedRecordWritesNothing) {
  tool("--record version=0,type=0x80 --record version=0,type=0,vlan=9,cost=77,flags=0x81,age=1,hello=0x180 "
       "--record version=2,flags=0x7e --record version=3,vlan=5,name=r1,hops=7,"
       "msti=2/0x7c/32768/00:11:22:33:44:55/9/4096/128/20,msti=1/0x81/0/02:00:00:00:00:09/1/0/16/3 "
       "--src 02:00:00:00:00:0a --sample golden " + at("r.pcap"));
  ASSERT_EQ(status_, 0);
  // The golden sample (frame 5) gets a protocol identifier other than 0: past the file header, five
  // record headers, frames 1-4 (TCN 21, tagged Config 56, RST 53, tagged MST with two MSTIs 155 octets)
  // and its own link header.
  const std::size_t golden = 24 + 16 * 5 + 21 + 56 + 53 + 155 + 17;
  std::fstream(dir_ / "r.pcap", std::ios::binary | std::ios::in | std::ios::out).seekp(golden).put('\x01');
  const Lines lines = tool("--read " + at("r.pcap"));
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0], "1 tcn src 02:00:00:00:00:0a");
  EXPECT_EQ(lines[1], "2 config vlan 9 src 02:00:00:00:00:0a flags=tc,tca "
                      "root=32768.1.00:11:22:33:44:55 cost=77 bridge=4096.0.00:aa:bb:cc:dd:ee port=128.3 "
                      "age=0.00390625s maxage=20s hello=1.5s fwd=15s");
  EXPECT_THAT(lines[2], StartsWith("3 rst src 02:00:00:00:00:0a flags=proposal,role:designated,learning,forwarding,"
                                   "agreement root="));
  EXPECT_EQ(lines[3], "4 mst vlan 5 src 02:00:00:00:00:0a flags=role:designated,learning,forwarding "
                      "root=32768.1.00:11:22:33:44:55 cost=20000 bridge=4096.0.00:aa:bb:cc:dd:ee port=128.3 age=0s "
                      "maxage=20s hello=2s fwd=15s regroot=28672.7.02:00:00:00:00:77 intcost=777 hops=7 name=\"r1\" "
                      "revision=0 digest=00000000000000000000000000000000 "
                      "[msti 1 flags=tc,role:master,master regroot=0.1.02:00:00:00:00:09 intcost=1 "
                      "bridge=0.1.00:aa:bb:cc:dd:ee port=16.3 hops=3] "
                      "[msti 2 flags=role:designated,learning,forwarding,agreement regroot=32768.2.00:11:22:33:44:55 "
                      "intcost=9 bridge=4096.2.00:aa:bb:cc:dd:ee port=128.3 hops=20]");
  EXPECT_EQ(lines[4], "5 reject: protocol identifier not 0 src 02:00:00:00:00:0a");
  EXPECT_EQ(lines[5], "summary: frames=5 config=1 tcn=1 rst=1 mst=1 rejected=1 rate-limited=0 protocolIdentifier=1");

  // Records the text takes and the encoder refuses: a kind it has not, a name longer than 32 octets, MST
  // as PVST+ (which has no per-VLAN MST). (A name of 32 octets fits: BpduEncodeTest.)
  for (const std::string& record : {std::string("version=5,type=9"), "version=3,name=" + std::string(33, 'n'),
                                    std::string("version=3,pvst=5")}) {
    tool("--sample golden --record " + record + " " + at("refused.pcap"));
    EXPECT_EQ(status_, 1) << record;
    EXPECT_FALSE(fs::exists(dir_ / "refused.pcap")) << record;
  }
}

// Each PVST+ kind, native (untagged) and tagged, written from --record ...,pvst=V[,vlan=V]: read back as
// the line of the same record in the IEEE format with ' pvst V' after the kind (an untagged TCN names no
// VLAN: pvst 0), counted as pvst=P, and rewritten octet for octet. A damaged TLV is a named reject.
TEST_F(PcapToolTest, PvstRecordsOfEveryKindReadBackAsPvstAndRewriteOctetForOctet) {
  const struct { const char* record; unsigned vlan; bool tagged; unsigned shown; } cases[] = {
      {"version=0,type=0,flags=0x81", 1, false, 1},     {"version=0,type=0,flags=0x81", 4094, true, 4094},
      {"version=2,type=2,flags=0x7e", 10, false, 10},   {"version=2,type=2,flags=0x7e", 10, true, 10},
      {"version=0,type=0x80", 9, false, 0},             {"version=0,type=0x80", 9, true, 9}};
  std::string ieee, pvst;
  for (const auto& c : cases) {
    const std::string vlan = std::to_string(c.vlan), tag = c.tagged ? ",vlan=" + vlan : "";
    ieee += " --record " + std::string(c.record) + tag;
    pvst += " --record " + std::string(c.record) + ",pvst=" + vlan + tag;
  }
  tool(ieee + " --src 02:00:00:00:00:42 " + at("ieee.pcap"));
  ASSERT_EQ(status_, 0);
  tool(pvst + " --src 02:00:00:00:00:42 " + at("pvst.pcap"));
  ASSERT_EQ(status_, 0);
  const Lines want = tool("--read " + at("ieee.pcap"));
  const Lines lines = tool("--read " + at("pvst.pcap") + " --rewrite " + at("again.pcap"));
  ASSERT_EQ(status_, 0);
  ASSERT_EQ(lines.size(), std::size(cases) + 1);
  ASSERT_EQ(want.size(), lines.size());
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    std::string expected = want[i];  // "N KIND ..." with " pvst V" after KIND
    expected.insert(expected.find(' ', expected.find(' ') + 1), " pvst " + std::to_string(cases[i].shown));
    EXPECT_EQ(lines[i], expected);
  }
  EXPECT_EQ(lines.back(), "summary: frames=6 config=2 tcn=2 rst=2 mst=0 rejected=0 rate-limited=0 pvst=6");
  auto octets = [this](const char* name) {
    std::ifstream in(dir_ / name, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(in), {}};
  };
  EXPECT_EQ(octets("again.pcap"), octets("pvst.pcap"));

  // Frame 1's TLV length (its low octet: link header 14, LLC and SNAP 8, BPDU offset 39) says 3.
  std::fstream(dir_ / "pvst.pcap", std::ios::binary | std::ios::in | std::ios::out).seekp(24 + 16 + 14 + 8 + 39).put('\x03');
  const Lines damaged = tool("--read " + at("pvst.pcap"));
  ASSERT_EQ(damaged.size(), lines.size());
  EXPECT_EQ(damaged[0], "1 reject: originating-VLAN TLV length not 2 src 02:00:00:00:00:42");
  EXPECT_EQ(Lines(damaged.begin() + 1, damaged.end() - 1), Lines(lines.begin() + 1, lines.end() - 1));
  EXPECT_EQ(damaged.back(), "summary: frames=6 config=1 tcn=2 rst=2 mst=0 rejected=1 rate-limited=0 pvst=5 pvstTlvLength=1");
}

// Every refusal: status 2, one line on standard error, no file. Each value at the first step past what
// fits beside the last value that fits, which writes its file.
TEST_F(PcapToolTest, ValuesThatDoNotFitAndMisusedOptionsAreRefusedInOneLineWritingNothing) {
  const std::string mac = "/00:11:22:33:44:55";
  const struct { std::string refused, fits; const char* says; } cases[] = {
      {"--record bridge=4097/0" + mac, "--record bridge=61440/0" + mac, "bridge priority"},
      {"--record bridge=61440/4096" + mac, "--record bridge=61440/4095" + mac, "system-id extension"},
      {"--record port=129/5000", "--record port=240/4095", "port priority"},
      {"--record port=128/4096", "--record port=128/4095", "port number"},
      {"--record vlan=4095", "--record vlan=4094", "VLAN"},
      {"--record pvst=0", "--record pvst=1", "VLAN"},
      {"--record pvst=7,vlan=8", "--record pvst=8,vlan=8", "vlan differs from pvst"},
      {"--record version=3,msti=4096/0/0" + mac + "/0/0/0/0", "--record version=3,msti=4095/0/0" + mac + "/0/0/0/0",
       "MSTI id"},
      {"--record ''", "--record flags=2", "empty record"},
      {"--record flags=1,flags=2", "--record flags=1,cost=2", "more than once"},
      {"--src ff:ff:ff:ff:ff:ff --sample golden", "--src fe:ff:ff:ff:ff:ff --sample golden", "group address"},
      {"--src 01:80:c2:00:00:00 --sample golden", "--src 00:80:c2:00:00:00 --sample golden", "group address"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.refused);
    const Lines said = toolErr(c.refused + " " + at("no.pcap"));
    EXPECT_EQ(status_, 2);
    ASSERT_EQ(said.size(), 1u);
    EXPECT_THAT(said[0], AllOf(StartsWith("stptxrx-pcap: "), HasSubstr(c.says)));
    EXPECT_FALSE(fs::exists(dir_ / "no.pcap"));
    tool(c.fits + " " + at("yes.pcap"));
    EXPECT_EQ(status_, 0);
    EXPECT_TRUE(fs::remove(dir_ / "yes.pcap"));
  }
  for (const std::string args : {"--list extra", "--version 1", "--help --list"}) {
    SCOPED_TRACE(args);
    EXPECT_EQ(toolErr(args).size(), 1u);
    EXPECT_EQ(status_, 2);
  }
}

TEST_F(PcapToolTest, VersionListAndAMissingFileNamedOnce) {
  EXPECT_EQ(tool("--version"), Lines{std::string("stptxrx-pcap ") + StpTxRx::versionText()});
  EXPECT_EQ(status_, 0);
  EXPECT_THAT(tool("--list"), ::testing::Contains(StartsWith("golden\t")));
  const std::string missing = (dir_ / "missing.pcap").string();
  const Lines said = toolErr("--read '" + missing + "'");
  EXPECT_EQ(status_, 1);
  ASSERT_EQ(said.size(), 1u);
  EXPECT_EQ(said[0].find(missing), said[0].rfind(missing)) << said[0];
  EXPECT_NE(said[0].find(missing), std::string::npos) << said[0];
}

// A trace setting naming a handle that nothing used warns, as a malformed one does; a used one does not.
TEST_F(PcapToolTest, ATraceSettingNoHandleTookWarnsAtTheEnd) {
  ::setenv("STPTXRX_TRACE", "StpTxRx/1,bogus", 1);
  const Lines said = toolErr("--sample golden " + at("t.pcap"));
  ::unsetenv("STPTXRX_TRACE");
  EXPECT_EQ(status_, 0);
  EXPECT_THAT(said, ::testing::Contains("STPTXRX_TRACE: no trace handle \"bogus\" was used; its setting did nothing"));
  EXPECT_THAT(said, ::testing::Not(::testing::Contains(HasSubstr("\"StpTxRx\""))));
}

#if defined(STPTXRX_HAVE_PCAP)
// A capture whose snap length kept 30 of a frame's octets: the line says so, whatever the decoder made of
// the 30 (here a length field beyond them); the whole frame beside it reads as usual.
TEST_F(PcapToolTest, AFrameCutByTheSnapLengthSaysHowMuchWasCaptured) {
  tool("--sample golden " + at("whole.pcap"));
  ASSERT_EQ(status_, 0);
  StpTxRx::pcap::PcapReader in((dir_ / "whole.pcap").string());
  StpTxRx::pcap::PcapFrame frame;
  ASSERT_TRUE(in.next(frame));
  {
    StpTxRx::pcap::PcapWriter out((dir_ / "cut.pcap").string());
    ASSERT_TRUE(out.write(frame.data.data(), frame.data.size(), 1, 0));
    ASSERT_TRUE(out.write(frame.data.data(), 30, 2, 0));
    ASSERT_TRUE(out.close());
  }
  // The second record claims the 53 octets the frame had on the wire: its header's len field.
  std::fstream f(dir_ / "cut.pcap", std::ios::binary | std::ios::in | std::ios::out);
  const std::size_t secondHeader = 24 + 16 + frame.data.size();
  const std::uint32_t wire = static_cast<std::uint32_t>(frame.data.size());
  f.seekp(std::streamoff(secondHeader + 12));
  f.write(reinterpret_cast<const char*>(&wire), 4);
  f.close();
  const Lines lines = tool("--read " + at("cut.pcap"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines[0], AllOf(StartsWith("1 rst src "), Not(HasSubstr("captured"))));
  EXPECT_THAT(lines[1], AllOf(StartsWith("2 reject: length field beyond the frame src "),
                              ::testing::EndsWith(" (captured 30 of 53 octets)")));
}
#endif

}  // namespace
