// stptxrx-pcap run as a user runs it: captures decode to their kind and rewrite losslessly, the rate
// limit follows the capture's timestamps, records of every kind read back in the line format, a cut file
// or a record the encoder refuses fails with status 1, a value that does not fit or a misused option is
// refused with status 2, and nothing is written on a refusal. (Interfaces: tests/interop/interop.sh.)
#include <stptxrx/Version.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
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
  static std::string octets(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  const fs::path dir_ = fs::temp_directory_path() / ("stptxrx-pcaptool-" + std::to_string(::getpid()));
  int status_ = -1;
};

// Each frame's kind and octets: BpduCaptureTest; here the tool's counts, --rewrite of the MST capture (with
// tagged frames) and the same capture cut short.
TEST_F(PcapToolTest, ACaptureIsCountedByKindRewriteReadsBackAndACutFileFails) {
  ASSERT_TRUE(fs::exists(vectors)) << "no captures at " << vectors;
  const fs::path capture = vectors / "MSTP_Intra-Region_BPDUs.pcap";
  const Lines lines = tool("--read '" + capture.string() + "' --rewrite " + at("re.pcap"));
  ASSERT_EQ(status_, 0);
  ASSERT_EQ(lines.size(), 11u);
  EXPECT_EQ(lines.back(), "summary: frames=10 config=0 tcn=0 rst=0 mst=10 rejected=0 rate-limited=0");
  EXPECT_EQ(tool("--read " + at("re.pcap")), lines);
  EXPECT_EQ(status_, 0);

  const std::string original = octets(capture);  // the last frame loses 10 octets
  std::ofstream(dir_ / "cut.pcap", std::ios::binary).write(original.data(), std::streamsize(original.size() - 10));
  const Lines cut = tool("--read " + at("cut.pcap"));
  EXPECT_EQ(status_, 1);
  ASSERT_FALSE(cut.empty());
  EXPECT_EQ(Lines(cut.begin(), cut.end() - 1), Lines(lines.begin(), lines.end() - 2)) << "frames before the cut";
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

// What each line holds of a record's fields: BpduTextTest and RecordTextTest; here the records in order,
// --src, their tags and a named reject.
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
  const char* const heads[] = {"1 tcn src", "2 config vlan 9 src", "3 rst src", "4 mst vlan 5 src",
                               "5 reject: protocol identifier not 0 src"};
  for (int i = 0; i < 5; ++i) EXPECT_THAT(lines[i], StartsWith(heads[i] + std::string(" 02:00:00:00:00:0a")));
  EXPECT_THAT(lines[1], HasSubstr(" flags=tc,tca root=32768.1.00:11:22:33:44:55 cost=77 "));
  EXPECT_THAT(lines[3], AllOf(HasSubstr(" hops=7 name=\"r1\" "), HasSubstr("[msti 1 "), HasSubstr("] [msti 2 ")));
  EXPECT_EQ(lines[5], "summary: frames=5 config=1 tcn=1 rst=1 mst=1 rejected=1 rate-limited=0 protocolIdentifier=1");

  // A record the text takes and the encoder refuses (MST as PVST+; each refusal: BpduEncodeTest).
  tool("--sample golden --record version=3,pvst=5 " + at("refused.pcap"));
  EXPECT_EQ(status_, 1);
  EXPECT_FALSE(fs::exists(dir_ / "refused.pcap"));
}

// Each PVST+ kind, native and tagged, from --record ...,pvst=V[,vlan=V]: read back with ' pvst V' after the
// kind (an untagged TCN names no VLAN: pvst 0) and the record filed under that VLAN, counted as pvst, and
// rewritten octet for octet. A damaged TLV is a named reject.
TEST_F(PcapToolTest, PvstRecordsOfEveryKindReadBackAsPvstAndRewriteOctetForOctet) {
  const struct { const char* record; unsigned vlan; bool tagged; const char* kind; unsigned shown; } cases[] = {
      {"version=0,type=0,flags=0x81", 1, false, "config", 1}, {"version=0,type=0,flags=0x81", 4094, true, "config", 4094},
      {"version=2,type=2,flags=0x7e", 10, false, "rst", 10},  {"version=2,type=2,flags=0x7e", 10, true, "rst", 10},
      {"version=0,type=0x80", 9, false, "tcn", 0},            {"version=0,type=0x80", 9, true, "tcn", 9}};
  std::string records;
  for (const auto& c : cases) {
    const std::string vlan = std::to_string(c.vlan);
    records += " --record " + std::string(c.record) + ",pvst=" + vlan + (c.tagged ? ",vlan=" + vlan : "");
  }
  tool(records + " --src 02:00:00:00:00:42 " + at("pvst.pcap"));
  ASSERT_EQ(status_, 0);
  const Lines lines = tool("--read " + at("pvst.pcap") + " --rewrite " + at("again.pcap"));
  ASSERT_EQ(status_, 0);
  ASSERT_EQ(lines.size(), std::size(cases) + 1);
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    const auto& c = cases[i];
    EXPECT_EQ(lines[i].substr(0, lines[i].find(" flags=")),
              std::to_string(i + 1) + " " + c.kind + " pvst " + std::to_string(c.shown) +
                  (c.tagged ? " vlan " + std::to_string(c.vlan) : "") + " src 02:00:00:00:00:42");
    EXPECT_EQ(lines[i].find(" flags=") != std::string::npos, std::string(c.kind) != "tcn");
  }
  EXPECT_EQ(lines.back(), "summary: frames=6 config=2 tcn=2 rst=2 mst=0 rejected=0 rate-limited=0 pvst=6");
  EXPECT_EQ(octets(dir_ / "again.pcap"), octets(dir_ / "pvst.pcap"));

  // Frame 1's TLV length (its low octet: link header 14, LLC and SNAP 8, BPDU offset 39) says 3.
  std::fstream(dir_ / "pvst.pcap", std::ios::binary | std::ios::in | std::ios::out).seekp(24 + 16 + 14 + 8 + 39).put('\x03');
  const Lines damaged = tool("--read " + at("pvst.pcap"));
  ASSERT_EQ(damaged.size(), lines.size());
  EXPECT_EQ(damaged[0], "1 reject: originating-VLAN TLV length not 2 src 02:00:00:00:00:42");
  EXPECT_EQ(damaged.back(), "summary: frames=6 config=1 tcn=2 rst=2 mst=0 rejected=1 rate-limited=0 pvst=5 pvstTlvLength=1");
}

// A refusal: status 2, one line on standard error, no file; beside it the value that fits writes its file.
// (Each field's boundaries: RecordTextTest; group addresses: NetTypesTest.)
TEST_F(PcapToolTest, ValuesThatDoNotFitAndMisusedOptionsAreRefusedInOneLineWritingNothing) {
  const struct { std::string refused, fits; const char* says; } cases[] = {
      {"--record port=128/4096", "--record port=128/4095", "--record: 'port=128/4096': port number"},
      {"--src ff:ff:ff:ff:ff:ff --sample golden", "--src fe:ff:ff:ff:ff:ff --sample golden", "group address"},
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

// A capture whose snap length kept 30 of a frame's octets: the line says so, whatever the decoder made of
// the 30 (here a length field beyond them); the whole frame beside it reads as usual.
TEST_F(PcapToolTest, AFrameCutByTheSnapLengthSaysHowMuchWasCaptured) {
  tool("--sample golden " + at("whole.pcap"));
  ASSERT_EQ(status_, 0);
  // The file header, the frame's record, then the same record with a captured length (octets 8-11) of 30.
  const std::string whole = octets(dir_ / "whole.pcap");
  std::string cut = whole.substr(24, 16 + 30);
  const std::uint32_t captured = 30;
  cut.replace(8, 4, reinterpret_cast<const char*>(&captured), 4);
  std::ofstream(dir_ / "cut.pcap", std::ios::binary) << whole << cut;
  const Lines lines = tool("--read " + at("cut.pcap"));
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_THAT(lines[0], AllOf(StartsWith("1 rst src "), Not(HasSubstr("captured"))));
  EXPECT_THAT(lines[1], AllOf(StartsWith("2 reject: length field beyond the frame src "),
                              ::testing::EndsWith(" (captured 30 of 53 octets)")));
}

}  // namespace
