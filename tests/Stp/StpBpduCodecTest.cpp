// BPDUs of every kind: one row per validation rule, the captures of real switches (every frame decodes,
// tshark agrees, decode-then-encode gives the octets back), a seeded round trip of random records, the
// encoder's refusals, the receive helper, and no allocation on the hot paths.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/StpTxRxUtils.h>

#include "../../tools/BpduSamples.h"
#include "support/AllocCounter.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#if STPTXRX_HAVE_PCAP
#include "../../tools/Pcap.h"
#endif

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iomanip>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx {
namespace {

using Octets = std::vector<std::uint8_t>;
using Stp::BridgeId;
const Nelk::EthAddr portMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x07);
const std::string vectors = STPTXRX_SOURCE_DIR "/../shared/vectors/";

Stp::MstPortSm::Ptr portSm(const Nelk::EthAddr& mac = portMac) {
  return Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet7"), mac));
}

Octets octetsOf(const Nelk::Pkt::Ptr& pkt) { return Octets(pkt->data(), pkt->data() + pkt->size()); }

// A record of `kind` holding only what the wire carries: the fields a kind does not carry are zero,
// MSTI bridge and port ids repeat the CIST address and port number, extensions are the MSTID; `mstis`
// MSTIs for MST (random when negative).
IntxInfo::Ptr randomRecord(std::mt19937& rng, BpduKind kind, const Nelk::EthAddr& source, int mstis = -1) {
  auto u = [&](unsigned lo, unsigned hi) { return std::uniform_int_distribution<unsigned>(lo, hi)(rng); };
  auto mac = [&] {
    return Nelk::EthAddr(u(0, 255), u(0, 255), u(0, 255), u(0, 255), u(0, 255), u(0, 255));
  };
  auto bridgeId = [&](std::uint16_t ext, Nelk::EthAddr a) {
    return BridgeId{static_cast<std::uint16_t>(u(0, 15) << 12), ext, a};
  };
  auto timer = [&](unsigned lo, unsigned hi) { return Stp::TimerVal::fromWire(static_cast<std::uint16_t>(u(lo, hi))); };
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  const std::uint8_t versions[] = {static_cast<std::uint8_t>(u(0, 1)), static_cast<std::uint8_t>(u(0, 1)), 2,
                                   static_cast<std::uint8_t>(u(3, 255))};
  const std::uint8_t types[] = {0x00, 0x80, 0x02, 0x02};
  info->stpVersionIs({versions[static_cast<int>(kind)]});
  info->intxInfoTypeIs({types[static_cast<int>(kind)]});
  if (kind == BpduKind::Tcn) return info;
  info->neighborAddrIs(source);
  const bool isMst = kind == BpduKind::Mst;
  auto cist = info->mstiNIs(0);
  // A Configuration BPDU carries the Topology Change and Acknowledgment flags only.
  const unsigned flagMask = kind == BpduKind::Config ? 0x81 : 0xff;
  cist->flagsIs({static_cast<std::uint8_t>(u(0, 255) & flagMask)});
  cist->cistRootBridgeIdIs(bridgeId(static_cast<std::uint16_t>(u(0, 4095)), mac()));
  cist->cistExtRootPathCostIs(static_cast<Stp::PathCost>(rng()));
  cist->bridgeIdIs(bridgeId(static_cast<std::uint16_t>(u(0, 4095)), mac()));
  cist->portIdIs(Stp::PortId(static_cast<std::uint8_t>(u(0, 15) << 4), static_cast<std::uint16_t>(u(0, 4095))));
  cist->maxAgeIs(timer(1, 0xffff));
  cist->messageAgeIs(timer(0, cist->maxAge().wire() - 1u));
  cist->helloTimeIs(timer(0, 0xffff));
  cist->fwdDelayIs(timer(0, 0xffff));
  if (!isMst) return info;
  cist->cistRegionalRootBridgeIdIs(bridgeId(static_cast<std::uint16_t>(u(0, 4095)), mac()));
  cist->intRootPathCostIs(static_cast<Stp::PathCost>(rng()));
  cist->remainingHopsIs(static_cast<std::uint8_t>(u(0, 255)));
  std::string name(u(0, 32), 'x');
  for (char& ch : name) ch = static_cast<char>(u(0, 255));
  while (!name.empty() && name.back() == 0) name.pop_back();  // trailing zeros are padding on the wire
  info->configNameStringIs(name);
  info->configRevisionLevelIs(static_cast<unsigned short>(u(0, 0xffff)));
  Stp::MstpConfigDigest digest;
  for (auto& o : digest.octets) o = static_cast<std::uint8_t>(u(0, 255));
  info->configDigestIs(digest);
  for (unsigned n = mstis >= 0 ? unsigned(mstis) : u(0, 1) ? u(0, 4) : u(0, 64); info->mstiNCount() <= n;) {
    const auto k = static_cast<std::uint16_t>(u(1, 4095));
    if (info->mstiN(k)) continue;
    auto e = info->mstiNIs(k);
    e->flagsIs({static_cast<std::uint8_t>(u(0, 255))});
    e->regionalRootBridgeIdIs(bridgeId(k, mac()));
    e->intRootPathCostIs(static_cast<Stp::PathCost>(rng()));
    e->bridgeIdIs(bridgeId(k, cist->bridgeId().address));
    e->portIdIs(Stp::PortId(static_cast<std::uint8_t>(u(0, 15) << 4), cist->portId().portNumber));
    e->remainingHopsIs(static_cast<std::uint8_t>(u(0, 255)));
  }
  return info;
}

// The same MST record with two MSTIs at every call.
IntxInfo::Ptr mstRecord() {
  std::mt19937 rng(3);
  return randomRecord(rng, BpduKind::Mst, portMac, 2);
}

Octets encode(const IntxInfo::Ptr& info, bool tagged = false, std::uint16_t vlan = 0) {
  BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), info, tagged, vlan);
  EXPECT_TRUE(r) << bpduEncodeErrorText(r.error);
  return r ? octetsOf(r.pkt) : Octets{};
}

// A view of the BPDU body of an untagged frame.
template <class View>
View& body(Octets& frame, std::size_t offset = 0) {
  return *reinterpret_cast<View*>(frame.data() + bpduLinkHeaderSize + offset);
}

void lengthIs(Octets& frame, std::uint16_t length) {
  reinterpret_cast<BpduLinkHeader*>(frame.data())->length = length;
}

// ---------------------------------------------------------------------------------------------------
// Validation: one row per rule, with the boundaries that must still pass
// ---------------------------------------------------------------------------------------------------

struct Row {
  const char* name;
  std::function<Octets()> frame;
  BpduKind kind;
  BpduReason reject = BpduReason::none;
  BpduReason fallback = BpduReason::none;
};

Octets mst() { return encode(mstRecord()); }
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

const std::vector<Row>& rows() {
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

TEST(BpduDecodeTest, EveryRuleHasItsVerdictAndARejectChangesNothing) {
  for (const Row& row : rows()) {
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

#if STPTXRX_HAVE_PCAP  // the captures are read through libpcap
// ---------------------------------------------------------------------------------------------------
// Captures of real switches
// ---------------------------------------------------------------------------------------------------

std::vector<tools::PcapFrame> capture(const std::string& file) {
  tools::PcapReader in(vectors + file);
  std::vector<tools::PcapFrame> frames;
  tools::PcapFrame f;
  while (in.next(f)) frames.push_back(f);
  EXPECT_EQ(in.error(), "");
  return frames;
}

struct Capture {
  const char* file;
  std::size_t frames;
  BpduKind kind;
};
const Capture captures[] = {{"802.1D_spanning_tree.pcap", 14, BpduKind::Config},
                            {"802.1w_rapid_STP.pcap", 30, BpduKind::Rst},
                            {"MSTP_Intra-Region_BPDUs.pcap", 10, BpduKind::Mst}};

TEST(BpduCaptureTest, EveryFrameDecodesAndReEncodesToItsOwnOctets) {
  if (!std::filesystem::exists(vectors)) GTEST_SKIP() << "no captures at " << vectors;
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

std::string run(const std::string& command) {
  std::string out;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  char buffer[4096];
  while (pipe && std::fgets(buffer, sizeof buffer, pipe.get())) out += buffer;
  return out;
}

// What tshark must show of a record, field by field (timers in whole seconds, one value per MSTI joined
// by commas, nothing but version and type for a TCN, no MST fields for the other kinds).
std::string text(const auto& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}
std::string seconds(Stp::TimerVal t) {
  std::ostringstream os;
  os << std::setprecision(12) << t.wire() / 256.0;
  return os.str();
}
std::string hex(unsigned v, int digits = 2) {
  char b[8];
  std::snprintf(b, sizeof b, "0x%0*x", digits, v);
  return b;
}
using Cist = std::function<std::string(const IntxInfo&, const IntxMstiInfo&)>;
using Msti = std::function<std::string(const IntxMstiInfo&)>;
Cist each(Msti f) {
  return [f](const IntxInfo& info, const IntxMstiInfo&) {
    std::string joined;
    for (const auto& [key, m] : info.mstiN()) {
      if (key.value() != 0) joined += (joined.empty() ? "" : ",") + f(*m);
    }
    return joined;
  };
}
const BridgeId& offset17(const IntxInfo& i, const IntxMstiInfo& e) {
  return i.stpVersion().value >= 3 ? e.cistRegionalRootBridgeId() : e.bridgeId();
}
const std::vector<std::pair<const char*, Cist>> tsharkFields = {
    {"stp.flags", [](auto&, auto& e) { return hex(e.flags().value); }},
    {"stp.root.prio", [](auto&, auto& e) { return text(e.cistRootBridgeId().priority); }},
    {"stp.root.ext", [](auto&, auto& e) { return text(e.cistRootBridgeId().systemIdExtension); }},
    {"stp.root.hw", [](auto&, auto& e) { return text(e.cistRootBridgeId().address); }},
    {"stp.root.cost", [](auto&, auto& e) { return text(e.cistExtRootPathCost()); }},
    {"stp.bridge.prio", [](auto& i, auto& e) { return text(offset17(i, e).priority); }},
    {"stp.bridge.ext", [](auto& i, auto& e) { return text(offset17(i, e).systemIdExtension); }},
    {"stp.bridge.hw", [](auto& i, auto& e) { return text(offset17(i, e).address); }},
    {"stp.port", [](auto&, auto& e) { return hex(Stp::portIdWire(e.portId()).value(), 4); }},
    {"stp.msg_age", [](auto&, auto& e) { return seconds(e.messageAge()); }},
    {"stp.max_age", [](auto&, auto& e) { return seconds(e.maxAge()); }},
    {"stp.hello", [](auto&, auto& e) { return seconds(e.helloTime()); }},
    {"stp.forward", [](auto&, auto& e) { return seconds(e.fwdDelay()); }},
    {"mstp.config_name", [](auto& i, auto&) { return i.configNameString().str(); }},
    {"mstp.config_revision_level", [](auto& i, auto&) { return text(i.configRevisionLevel()); }},
    {"mstp.config_digest", [](auto& i, auto&) { return text(i.configDigest()); }},
    {"mstp.cist_internal_root_path_cost", [](auto&, auto& e) { return text(e.intRootPathCost()); }},
    {"mstp.cist_bridge.prio", [](auto&, auto& e) { return text(e.bridgeId().priority); }},
    {"mstp.cist_bridge.ext", [](auto&, auto& e) { return text(e.bridgeId().systemIdExtension); }},
    {"mstp.cist_bridge.hw", [](auto&, auto& e) { return text(e.bridgeId().address); }},
    {"mstp.cist_remaining_hops", [](auto&, auto& e) { return text(unsigned{e.remainingHops()}); }},
    {"mstp.msti.msti_id", each([](auto& m) { return text(m.key()); })},
    {"mstp.msti.flags", each([](auto& m) { return hex(m.flags().value); })},
    {"mstp.msti.priority", each([](auto& m) { return hex(m.regionalRootBridgeId().priority >> 12); })},
    {"mstp.msti.root.hw", each([](auto& m) { return text(m.regionalRootBridgeId().address); })},
    {"mstp.msti.root_cost", each([](auto& m) { return text(m.intRootPathCost()); })},
    {"mstp.msti.bridge_priority", each([](auto& m) { return text(m.bridgeId().priority >> 12); })},
    {"mstp.msti.port_priority", each([](auto& m) { return text(m.portId().priority >> 4); })},
    {"mstp.msti.remaining_hops", each([](auto& m) { return text(unsigned{m.remainingHops()}); })},
};
constexpr std::size_t firstMstField = 13;

// tshark reads every frame of `path` as `records` say (one per frame), without a malformed packet.
void expectTsharkReads(const std::string& path, const std::vector<IntxInfo::Ptr>& records) {
  std::string command = "tshark -r '" + path + "' -T fields -E separator='|' -e stp.version -e stp.type";
  for (const auto& [field, value] : tsharkFields) command += std::string(" -e ") + field;
  std::istringstream lines(run(command + " 2>/dev/null"));
  for (std::size_t n = 0; n < records.size(); ++n) {
    const IntxInfo& info = *records[n];
    std::string line, expected = text(unsigned{info.stpVersion().value}) + "|" + hex(info.intxInfoType().value);
    ASSERT_TRUE(std::getline(lines, line)) << path;
    for (std::size_t f = 0; f < tsharkFields.size(); ++f) {
      const bool shown = info.mstiN(0) && (f < firstMstField || info.stpVersion().value >= 3);
      expected += "|" + (shown ? tsharkFields[f].second(info, *info.mstiN(0)) : "");
    }
    EXPECT_EQ(line, expected) << path << " frame " << n + 1;
  }
  EXPECT_EQ(run("tshark -r '" + path + "' -V 2>/dev/null | grep -ci malformed"), "0\n");
}

TEST(BpduCaptureTest, TsharkReadsEveryFrameAsWeDo) {
  if (!std::filesystem::exists(vectors)) GTEST_SKIP() << "no captures at " << vectors;
  if (std::system("command -v tshark >/dev/null 2>&1") != 0) GTEST_SKIP() << "tshark is not installed";
  for (const Capture& c : captures) {
    std::vector<IntxInfo::Ptr> decoded;
    for (const auto& frame : capture(c.file)) {
      decoded.push_back(IntxInfo::IntxInfoIs(0));
      ASSERT_TRUE(generateIntxInfoFromPkt(frame.data.data(), frame.data.size(), decoded.back().get()).valid());
    }
    expectTsharkReads(vectors + c.file, decoded);
  }
}

#endif  // STPTXRX_HAVE_PCAP

// ---------------------------------------------------------------------------------------------------
// Round trip of random records of every kind
// ---------------------------------------------------------------------------------------------------

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
  if (std::system("command -v tshark >/dev/null 2>&1") != 0) GTEST_SKIP() << "tshark is not installed";
  std::mt19937 rng(7);
  const std::string path = ::testing::TempDir() + "every-kind.pcap";
  std::vector<IntxInfo::Ptr> records;
  tools::PcapWriter out(path);
  for (int i = 0; i < 16; ++i) {
    const auto kind = static_cast<BpduKind>(i % 4);
    IntxInfo::Ptr r = randomRecord(rng, kind, portMac);
    if (kind == BpduKind::Mst) r->stpVersionIs({3}), r->configNameStringIs("region-" + std::to_string(i));
    ASSERT_TRUE(out.write(*generateBpduFromIntxInfo(portSm(), r, i % 2, 10).pkt));
    records.push_back(r);
  }
  for (const auto& sample : tools::sampleRecords()) {
    records.push_back(tools::rstRecord(sample.values));
    ASSERT_TRUE(out.write(*generatePktFromIntxInfo(portSm(), records.back(), false)));
  }
  ASSERT_TRUE(out.close());
  expectTsharkReads(path, records);
}
#endif


// ---------------------------------------------------------------------------------------------------
// Encoder refusals and allocation failure
// ---------------------------------------------------------------------------------------------------

TEST(BpduEncodeTest, RefusesWhatTheWireCannotCarryWithAClearError) {
  using Change = std::function<void(IntxInfo&)>;
  const std::vector<std::pair<Change, BpduEncodeError>> table = {
      {[](IntxInfo& i) { i.stpVersionIs({2}); i.intxInfoTypeIs({0}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.stpVersionIs({1}); i.intxInfoTypeIs({2}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.intxInfoTypeIs({0x81}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.stpVersionIs({2}); i.intxInfoTypeIs({0x80}); }, BpduEncodeError::unsupportedKind},
      {[](IntxInfo& i) { i.mstiNDel(0); }, BpduEncodeError::noCistEntry},
      {[](IntxInfo& i) { i.stpVersionIs({0}); i.intxInfoTypeIs({0}); i.mstiNDel(0); }, BpduEncodeError::noCistEntry},
      {[](IntxInfo& i) { i.configNameStringIs(std::string(33, 'n')); }, BpduEncodeError::nameTooLong},
      {[](IntxInfo& i) { for (int k = 1; k <= 65; ++k) i.mstiNIs(static_cast<std::uint16_t>(k)); },
       BpduEncodeError::tooManyMstis},
      {[](IntxInfo& i) { i.mstiNIs(4096); }, BpduEncodeError::mstiIdOutOfRange},
      {[](IntxInfo& i) {
         i.configNameStringIs(std::string(32, 'n'));
         for (const auto& entry : i.mstiN()) i.mstiNDel(entry.first.value() ? entry.first : 9999);
         for (int k = 1; k <= 64; ++k) i.mstiNIs(static_cast<std::uint16_t>(k));
       }, BpduEncodeError::none},
  };
  Zek::test::TraceCapture cap({"StpTxRx/2"});
  for (const auto& [change, error] : table) {
    IntxInfo::Ptr info = mstRecord();
    change(*info);
    const BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), info, false, 0);
    EXPECT_EQ(r.error, error) << bpduEncodeErrorText(r.error);
    EXPECT_EQ(static_cast<bool>(r.pkt), error == BpduEncodeError::none);
  }
  EXPECT_EQ(cap.texts(2).size(), table.size() - 1);
  EXPECT_EQ(cap.texts(2).front(), "generateBpduFromIntxInfo: no BPDU kind for this version and type");
  EXPECT_EQ(generateBpduFromIntxInfo(portSm(), nullptr, false, 0).error, BpduEncodeError::missingInput);
  EXPECT_EQ(generateBpduFromIntxInfo(Stp::MstPortSm::MstPortSmIs(nullptr), mstRecord(), false, 0).error,
            BpduEncodeError::missingInput);
}

TEST(BpduEncodeTest, RstAndTcnAreTheDescribedFramesAndAnEmptyPoolGivesTheRstPathTraces) {
  IntxInfo::Ptr rst = mstRecord();
  rst->stpVersionIs({2});
  EXPECT_EQ(encode(rst), octetsOf(generatePktFromIntxInfo(portSm(), rst, false)));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);  // a new record: version 0
  tcn->intxInfoTypeIs({0x80});
  EXPECT_EQ(encode(tcn), (Octets{0x01, 0x80, 0xc2, 0, 0, 0, 0x02, 0, 0, 0, 0, 0x07, 0x00, 0x07, 0x42, 0x42, 0x03,
                                 0x00, 0x00, 0x00, 0x80}));

  Zek::test::TraceCapture cap({"StpTxRx/2-3"});
  Nelk::PktManager& pool = Nelk::globalPktManager();
  const std::size_t limit = pool.liveLimit();
  Nelk::Pkt::Ptr held = pool.newPkt();
  pool.liveLimitIs(pool.liveCount());
  const BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), mstRecord(), true, 1);
  pool.liveLimitIs(limit);
  EXPECT_FALSE(r.pkt);
  EXPECT_EQ(r.error, BpduEncodeError::allocationFailed);
  EXPECT_EQ(cap.texts(), (std::vector<std::string>{"Packet allocation failed", "generateBpdu: failed to allocate pkt "}));
}

// ---------------------------------------------------------------------------------------------------
// Receive helper and the hot paths
// ---------------------------------------------------------------------------------------------------

TEST(ReceiveBpduTest, AValidFrameFillsTheRecordARejectOnlyCountsEveryFrameIsCountedByKindOrReason) {
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Et7"));
  const Octets frame = mst();
  const Octets cut(frame.begin(), frame.end() - 1);
  EXPECT_EQ(receiveBpdu(port, 10, cut.data(), cut.size()).reject, BpduReason::lengthBeyondFrame);
  EXPECT_EQ(receiveBpdu(port, 10, Nelk::Pkt::Ptr()).reject, BpduReason::frameTooShort);
  EXPECT_EQ(port->rxInfo().size(), 0u);
  EXPECT_EQ(port->rxUpdate(10), 0u);
  EXPECT_EQ(receiveBpdu(port, 10, frame.data(), frame.size()).kind, BpduKind::Mst);
  EXPECT_EQ(receiveBpdu(port, 10, generateBpduFromIntxInfo(portSm(), mstRecord(), false, 0).pkt).kind, BpduKind::Mst);
  EXPECT_EQ(port->rxUpdate(10), 2u);
  EXPECT_TRUE(port->rxInfo(10)->sameContent(*mstRecord()));
  PortCounters expected;
  expected.mstRx = 2;
  expected.rejected = 2;
  expected.of(BpduReason::lengthBeyondFrame) = expected.of(BpduReason::frameTooShort) = 1;
  for (const Row& row : rows()) {
    const Octets f = row.frame();
    receiveBpdu(port, 3, f.data(), f.size());
    row.reject == BpduReason::none ? ++expected.of(row.kind) : (++expected.rejected, ++expected.of(row.reject));
  }
  EXPECT_EQ(port->counters(), expected);  // their printed form: the tool's summary line (PcapToolTest)
  EXPECT_EQ(port->bpduCount(), 4 + rows().size());
}

// Rate limit: a script of frame arrival times and changes of the port's settings, the verdict of each
// frame (A went on, D dropped) and the number of counter writes before the final flush.
struct RateRow {
  const char* script;  // "max=N", "interval=S", "off", "on", or an arrival time
  const char* verdicts;
  std::size_t writes;
};

TEST(BpduReceiverTest, WindowsOpenAtTheFirstFrameAfterTheLastEndDropsArePublishedOncePerWindow) {
  const RateRow table[] = {
      {"max=2 0 1 2 9.99 10 11 12 25", "AADDAADA", 5},  // a frame at the end of a window opens the next
      {"max=0 0 1 20", "DDD", 1},                        // the window at 20 publishes the first two drops
      {"off 0 0 0", "AAA", 3},
      {"max=1 0 1 off 2 on 3 4", "ADAAD", 3},            // off closes the window; on opens one at the next frame
      {"max=1 0 1 max=3 2 3 4", "ADAAD", 3},             // a changed count acts within the window
      {"max=1 0 1 interval=1 2", "ADA", 2},              // and so does a changed interval
  };
  Zek::notifyEqualWrites_ = true;
  const Octets frame = mst();
  for (const RateRow& row : table) {
    SCOPED_TRACE(row.script);
    RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("g")->rxMstPortStatusIs(Nelk::IntfId("Et1"));
    port->rateLimitEnabledIs(true);
    port->rateLimitIntervalIs(10);
    BpduReceiver receiver(port);
    auto writes = Zek::test::RecordingReactor::RecordingReactorIs(port);
    std::istringstream script(row.script);
    std::string verdicts, step;
    while (script >> step) {
      if (step == "off" || step == "on") {
        port->rateLimitEnabledIs(step == "on");
      } else if (step.rfind("max=", 0) == 0) {
        port->rateLimitMaxCountIs(static_cast<std::uint32_t>(std::stoul(step.substr(4))));
      } else if (step.rfind("interval=", 0) == 0) {
        port->rateLimitIntervalIs(std::stod(step.substr(9)));
      } else {
        const BpduDecodeResult r = receiver.frameIs(1, frame.data(), frame.size(), std::stod(step));
        verdicts += r.reject == BpduReason::rateLimited ? 'D' : (r.valid() ? 'A' : '?');
      }
    }
    EXPECT_EQ(verdicts, row.verdicts);
    EXPECT_EQ(writes->count(RxMstPortStatus::idCounters), row.writes);
    const auto dropped = static_cast<std::uint32_t>(std::count(verdicts.begin(), verdicts.end(), 'D'));
    EXPECT_EQ(port->counters().rateLimited + receiver.pendingDropped(), dropped);
    const std::size_t flushWrites = receiver.pendingDropped() > 0 ? 1 : 0;
    receiver.flush();
    receiver.flush();
    EXPECT_EQ(writes->count(RxMstPortStatus::idCounters), row.writes + flushWrites) << "a second flush writes nothing";
    EXPECT_EQ(port->counters().rateLimited, dropped);
    EXPECT_EQ(port->counters().mstRx, verdicts.size() - dropped);
    EXPECT_EQ(port->bpduCount(), verdicts.size());
  }
  Zek::notifyEqualWrites_ = false;
}

TEST(BpduCodecAllocationTest, DecodeIntoAnExistingRecordAndEncodeFromAWarmPoolAllocateNothing) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  const Octets frame = mst();
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(0);
  RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Et1"));
  IntxInfo::Ptr record = mstRecord();
  Stp::MstPortSm::Ptr sm = portSm();
  generateIntxInfoFromPkt(frame.data(), frame.size(), info.get());
  receiveBpdu(port, 1, frame.data(), frame.size());
  generateBpduFromIntxInfo(sm, record, true, 1);
  Zek::test::AllocScope scope;
  for (int i = 0; i < 50; ++i) {
    ASSERT_TRUE(generateIntxInfoFromPkt(frame.data(), frame.size(), info.get()).valid());
    ASSERT_TRUE(receiveBpdu(port, 1, frame.data(), frame.size()).valid());
    ASSERT_TRUE(generateBpduFromIntxInfo(sm, record, true, 1));
  }
  EXPECT_EQ(scope.count(), 0u);
}

}  // namespace
}  // namespace StpTxRx
