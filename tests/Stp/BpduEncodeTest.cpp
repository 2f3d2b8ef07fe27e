// The every-kind encoder: what it refuses (one row per rule at its boundary: the last value that fits
// and the first that does not, nothing sent on a refusal), the frames it writes, allocation failure, and
// no allocation on the hot paths.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"

#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

namespace StpTxRx::bpdutest {
namespace {

// ---- values that do not fit their wire field, each at its boundary

using Edit = std::function<void(IntxInfo&)>;
using E = BpduEncodeError;

struct FitRow {
  std::string name;
  BpduKind kind;  // of the record edited
  Edit edit;
  E error;        // none: the last value that fits
  BpduEncapsulation encapsulation = BpduEncapsulation::ieee;
  bool tagged = false;
  std::uint16_t vlan = 0;
};

IntxInfo::Ptr validRecord(BpduKind kind) {
  std::mt19937 rng(11);
  return randomRecord(rng, kind, portMac, 2);
}

// An identifier attribute of an entry, as a getter/setter pair.
template <class V>
struct Attr {
  const char* name;
  std::function<V(const IntxMstiInfo&)> get;
  std::function<void(IntxMstiInfo&, const V&)> set;
};
template <class V, class Get, class Set>
Attr<V> attr(const char* name, Get get, Set set) {
  return {name, [get](const IntxMstiInfo& e) { return (e.*get)(); }, [set](IntxMstiInfo& e, const V& v) { (e.*set)(v); }};
}

// Sets one part of an identifier attribute of entry `key`.
template <class V, class Part>
Edit partIs(Attr<V> a, std::uint16_t key, Part V::*part, unsigned value) {
  return [a, key, part, value](IntxInfo& info) {
    const auto entry = info.mstiNIs(key);
    V v = a.get(*entry);
    v.*part = static_cast<Part>(value);
    a.set(*entry, v);
  };
}

std::vector<FitRow> fitRows() {
  using B = Stp::BridgeId;
  using P = Stp::PortId;
  const auto root = attr<B>("root", &IntxMstiInfo::cistRootBridgeId, &IntxMstiInfo::cistRootBridgeIdIs);
  const auto bridge = attr<B>("bridge", &IntxMstiInfo::bridgeId, &IntxMstiInfo::bridgeIdIs);
  const auto regional =
      attr<B>("regional root", &IntxMstiInfo::cistRegionalRootBridgeId, &IntxMstiInfo::cistRegionalRootBridgeIdIs);
  const auto mstiRoot = attr<B>("msti root", &IntxMstiInfo::regionalRootBridgeId, &IntxMstiInfo::regionalRootBridgeIdIs);
  const auto port = attr<P>("port", &IntxMstiInfo::portId, &IntxMstiInfo::portIdIs);
  std::vector<FitRow> rows;
  // Every bridge identifier the kind carries in full: priority in steps of 4096, extension up to 4095.
  auto bridgeRows = [&](BpduKind kind, Attr<B> a, std::uint16_t key) {
    const std::string n = std::string(bpduKindName(kind)) + " " + a.name + " ";
    rows.push_back({n + "priority 61440", kind, partIs(a, key, &B::priority, 61440), E::none});
    rows.push_back({n + "priority 61441", kind, partIs(a, key, &B::priority, 61441), E::bridgePriorityStep});
    rows.push_back({n + "priority 4095", kind, partIs(a, key, &B::priority, 4095), E::bridgePriorityStep});
    rows.push_back({n + "extension 4095", kind, partIs(a, key, &B::systemIdExtension, 4095), E::none});
    rows.push_back({n + "extension 4096", kind, partIs(a, key, &B::systemIdExtension, 4096),
                    E::systemIdExtensionOutOfRange});
  };
  auto portRows = [&](BpduKind kind, std::uint16_t key) {
    const std::string n = std::string(bpduKindName(kind)) + " port ";
    rows.push_back({n + "priority 240", kind, partIs(port, key, &P::priority, 240), E::none});
    rows.push_back({n + "priority 241", kind, partIs(port, key, &P::priority, 241), E::portPriorityStep});
    rows.push_back({n + "priority 15", kind, partIs(port, key, &P::priority, 15), E::portPriorityStep});
    rows.push_back({n + "number 4095", kind, partIs(port, key, &P::portNumber, 4095), E::none});
    rows.push_back({n + "number 4096", kind, partIs(port, key, &P::portNumber, 4096), E::portNumberOutOfRange});
  };
  for (BpduKind kind : {BpduKind::Config, BpduKind::Rst, BpduKind::Mst}) {
    bridgeRows(kind, root, 0);
    bridgeRows(kind, bridge, 0);
    portRows(kind, 0);
  }
  bridgeRows(BpduKind::Mst, regional, 0);
  // An MSTI carries only the priorities of its bridge and port identifiers; its regional root's
  // extension is the MSTID whatever the record holds.
  std::uint16_t msti = 0;
  const IntxInfo::Ptr mstRecord = validRecord(BpduKind::Mst);
  for (const auto& entry : mstRecord->mstiN()) msti = std::max(msti, entry.first.value());
  for (Attr<B> a : {mstiRoot, bridge}) {
    const std::string n = std::string("msti ") + a.name + " ";
    rows.push_back({n + "priority 61440", BpduKind::Mst, partIs(a, msti, &B::priority, 61440), E::none});
    rows.push_back({n + "priority 61441", BpduKind::Mst, partIs(a, msti, &B::priority, 61441), E::bridgePriorityStep});
    rows.push_back({n + "extension 4096", BpduKind::Mst, partIs(a, msti, &B::systemIdExtension, 4096), E::none});
  }
  rows.push_back({"msti port priority 240", BpduKind::Mst, partIs(port, msti, &P::priority, 240), E::none});
  rows.push_back({"msti port priority 241", BpduKind::Mst, partIs(port, msti, &P::priority, 241), E::portPriorityStep});
  rows.push_back({"msti port number 4096", BpduKind::Mst, partIs(port, msti, &P::portNumber, 4096), E::none});
  // The tag: 0 (priority only) to 4094; an untagged frame does not read the VLAN.
  const Edit same = [](IntxInfo&) {};
  for (BpduKind kind : {BpduKind::Config, BpduKind::Tcn, BpduKind::Rst, BpduKind::Mst}) {
    const std::string n = bpduKindName(kind);
    rows.push_back({n + " tag 4094", kind, same, E::none, BpduEncapsulation::ieee, true, 4094});
    rows.push_back({n + " tag 4095", kind, same, E::tagVlanOutOfRange, BpduEncapsulation::ieee, true, 4095});
    rows.push_back({n + " tag 0", kind, same, E::none, BpduEncapsulation::ieee, true, 0});
    rows.push_back({n + " untagged 5000", kind, same, E::none, BpduEncapsulation::ieee, false, 5000});
  }
  // PVST+: a VLAN of 1 to 4094, tagged or native; no MST form; the identifier rules as above.
  for (BpduKind kind : {BpduKind::Config, BpduKind::Tcn, BpduKind::Rst}) {
    const std::string n = std::string("pvst ") + bpduKindName(kind);
    for (bool tagged : {false, true}) {
      const std::string t = tagged ? " tagged" : " native";
      rows.push_back({n + t + " vlan 1", kind, same, E::none, BpduEncapsulation::pvst, tagged, 1});
      rows.push_back({n + t + " vlan 4094", kind, same, E::none, BpduEncapsulation::pvst, tagged, 4094});
      rows.push_back({n + t + " vlan 0", kind, same, E::pvstVlanOutOfRange, BpduEncapsulation::pvst, tagged, 0});
      rows.push_back({n + t + " vlan 4095", kind, same, E::pvstVlanOutOfRange, BpduEncapsulation::pvst, tagged, 4095});
    }
  }
  rows.push_back({"pvst rst port number 4096", BpduKind::Rst, partIs(port, 0, &P::portNumber, 4096),
                  E::portNumberOutOfRange, BpduEncapsulation::pvst, false, 5});
  rows.push_back({"pvst config root priority 4097", BpduKind::Config, partIs(root, 0, &B::priority, 4097),
                  E::bridgePriorityStep, BpduEncapsulation::pvst, true, 5});
  rows.push_back({"pvst mst", BpduKind::Mst, same, E::pvstMst, BpduEncapsulation::pvst, false, 5});
  // What no frame carries: a version and type that name no kind, no CIST entry, a name of 33 octets, 65
  // MSTIs or an MSTID of 4096, beside a name of 32 octets with 64 MSTIs.
  const BpduKind m = BpduKind::Mst;
  rows.push_back({"version 2 type 0", m, [](IntxInfo& i) { i.stpVersionIs({2}), i.intxInfoTypeIs({0}); },
                  E::unsupportedKind});
  rows.push_back({"version 1 type 2", m, [](IntxInfo& i) { i.stpVersionIs({1}), i.intxInfoTypeIs({2}); },
                  E::unsupportedKind});
  rows.push_back({"type 0x81", m, [](IntxInfo& i) { i.intxInfoTypeIs({0x81}); }, E::unsupportedKind});
  rows.push_back({"version 2 type 0x80", m, [](IntxInfo& i) { i.stpVersionIs({2}), i.intxInfoTypeIs({0x80}); },
                  E::unsupportedKind});
  rows.push_back({"no CIST", m, [](IntxInfo& i) { i.mstiNDel(0); }, E::noCistEntry});
  rows.push_back({"config without CIST", BpduKind::Config, [](IntxInfo& i) { i.mstiNDel(0); }, E::noCistEntry});
  rows.push_back({"name 33", m, [](IntxInfo& i) { i.configNameStringIs(std::string(33, 'n')); }, E::nameTooLong});
  rows.push_back({"65 MSTIs", m, [](IntxInfo& i) { for (int k = 1; k <= 65; ++k) i.mstiNIs(std::uint16_t(k)); },
                  E::tooManyMstis});
  rows.push_back({"MSTID 4096", m, [](IntxInfo& i) { i.mstiNIs(4096); }, E::mstiIdOutOfRange});
  rows.push_back({"name 32, 64 MSTIs", m, [](IntxInfo& i) {
                    i.configNameStringIs(std::string(32, 'n'));
                    for (const auto& entry : i.mstiN()) i.mstiNDel(entry.first.value() ? entry.first : 9999);
                    for (int k = 1; k <= 64; ++k) i.mstiNIs(static_cast<std::uint16_t>(k));
                  }, E::none});
  return rows;
}

BpduEncodeResult encodeRow(const FitRow& row, const IntxInfo::Ptr& record) {
  return row.encapsulation == BpduEncapsulation::pvst
             ? generatePvstBpduFromIntxInfo(portSm(), record, row.tagged, row.vlan)
             : generateBpduFromIntxInfo(portSm(), record, row.tagged, row.vlan);
}

// Each row twice: with the packet pool exhausted, a refusal is its rule's error and not allocationFailed,
// so it was decided before any packet was asked for (nothing written, nothing sent); with the pool open,
// a row that fits gives a frame whose tag is the one asked for. Every failure is traced once at level 2.
TEST(BpduEncodeTest, EveryValueThatDoesNotFitItsFieldIsRefusedBeforeAPacketIsTaken) {
  Zek::test::TraceCapture cap({"StpTxRx/2"});
  std::size_t failures = 0;
  Nelk::PktManager& pool = Nelk::globalPktManager();
  const std::size_t limit = pool.liveLimit();
  for (const FitRow& row : fitRows()) {
    SCOPED_TRACE(row.name);
    IntxInfo::Ptr record = validRecord(row.kind);
    row.edit(*record);
    IntxInfo::Ptr before = IntxInfo::IntxInfoIs(0);
    copyIntxInfo(record, before);

    Nelk::Pkt::Ptr held = pool.newPkt();
    pool.liveLimitIs(pool.liveCount());
    const BpduEncodeResult starved = encodeRow(row, record);
    pool.liveLimitIs(limit);
    EXPECT_FALSE(starved.pkt);
    failures += 1 + (row.error != E::none);
    EXPECT_EQ(starved.error, row.error == E::none ? E::allocationFailed : row.error)
        << bpduEncodeErrorName(starved.error);

    const BpduEncodeResult r = encodeRow(row, record);
    EXPECT_EQ(r.error, row.error) << bpduEncodeErrorText(r.error);
    EXPECT_EQ(static_cast<bool>(r.pkt), row.error == E::none);
    EXPECT_TRUE(record->sameContent(*before)) << "the record is never changed";
    if (!r.pkt) continue;
    const BpduDecodeResult d = generateIntxInfoFromPkt(r.pkt, nullptr);
    EXPECT_EQ(d.kind, row.kind);
    EXPECT_EQ(d.tagged, row.tagged);
    EXPECT_EQ(d.vlan.value(), row.tagged ? row.vlan : 0);
  }
  const std::vector<std::string> traced = cap.texts(2);
  EXPECT_EQ(traced.size(), failures);
  EXPECT_EQ(std::count(traced.begin(), traced.end(), "generateBpduFromIntxInfo: no BPDU kind for this version and type"), 8);
  EXPECT_EQ(generateBpduFromIntxInfo(portSm(), nullptr, false, 0).error, E::missingInput);
  EXPECT_EQ(generateBpduFromIntxInfo(Stp::MstPortSm::MstPortSmIs(nullptr), mstRecord(), false, 0).error, E::missingInput);
  EXPECT_STREQ(bpduEncodeErrorText(E::tagVlanOutOfRange), "tag VLAN above 4094");
  EXPECT_STREQ(bpduEncodeErrorName(E::portPriorityStep), "portPriorityStep");
}

// A Configuration BPDU carries TC (bit 1) and TCA (bit 8) only, whatever the record's flags hold; the
// record keeps its flags, and a received Configuration BPDU's flags are reported as they came. tshark
// reads the frames of the all-flags record, IEEE and PVST+, as TC and TCA only.
TEST(BpduEncodeTest, AConfigurationBpduCarriesOnlyTopologyChangeAndItsAcknowledgment) {
  const std::string path = ::testing::TempDir() + "config-flags-" + std::to_string(::getpid()) + ".pcap";
  std::vector<Nelk::Pkt::Ptr> allFlags;
  for (unsigned flags : {0x00u, 0x01u, 0x80u, 0x7eu, 0xffu}) {
    IntxInfo::Ptr record = validRecord(BpduKind::Config);
    record->mstiNIs(0)->flagsIs({static_cast<std::uint8_t>(flags)});
    for (bool pvst : {false, true}) {
      const Nelk::Pkt::Ptr pkt = pvst ? generatePvstBpduFromIntxInfo(portSm(), record, pvst, 3).pkt
                                      : generateBpduFromIntxInfo(portSm(), record, pvst, 0).pkt;
      ASSERT_TRUE(pkt);
      if (flags == 0xff) allFlags.push_back(pkt);
      Octets frame = octetsOf(pkt);
      const std::size_t header = pvst ? taggedBpduLinkHeaderSize + sizeof(Nelk::SnapHeader) : bpduLinkHeaderSize;
      auto& config = *reinterpret_cast<Stp::ConfigBpdu*>(frame.data() + header);
      EXPECT_EQ(config.flags, flags & 0x81u) << std::hex << flags;
      EXPECT_EQ(record->mstiN(0)->flags().value, flags);
      config.flags = static_cast<std::uint8_t>(flags);  // as another bridge might send it
      IntxInfo::Ptr received = IntxInfo::IntxInfoIs(0);
      ASSERT_EQ(generateIntxInfoFromPkt(frame.data(), frame.size(), received.get()).kind, BpduKind::Config);
      EXPECT_EQ(received->mstiN(0)->flags().value, flags);
    }
  }
#if STPTXRX_HAVE_PCAP
  if (!haveTshark()) return;
  pcap::PcapWriter out(path);
  for (const auto& pkt : allFlags) ASSERT_TRUE(out.write(*pkt));
  ASSERT_TRUE(out.close());
  EXPECT_EQ(run("tshark -r '" + path + "' -T fields -E separator='|' -e stp.type -e stp.flags -e stp.flags.tc "
                "-e stp.flags.tcack 2>/dev/null"),
            "0x00|0x81|1|1\n0x00|0x81|1|1\n");
#endif
}

// (An empty pool: every row of the fit table above; its traces: StpTxRxUtilsTest.)
TEST(BpduEncodeTest, RstAndTcnAreTheDescribedFrames) {
  IntxInfo::Ptr rst = mstRecord();
  rst->stpVersionIs({2});
  EXPECT_EQ(encode(rst), octetsOf(generatePktFromIntxInfo(portSm(), rst, false)));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);  // a new record: version 0
  tcn->intxInfoTypeIs({0x80});
  EXPECT_EQ(encode(tcn), (Octets{0x01, 0x80, 0xc2, 0, 0, 0, 0x02, 0, 0, 0, 0, 0x07, 0x00, 0x07, 0x42, 0x42, 0x03,
                                 0x00, 0x00, 0x00, 0x80}));

}

// Decode, receive and every encoder (IEEE, PVST+, the RST-only one) on a warm pool allocate nothing.
TEST(BpduCodecAllocationTest, DecodeIntoAnExistingRecordAndEncodeFromAWarmPoolAllocateNothing) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  const IntxInfo::Ptr record = mstRecord(), rst = validRecord(BpduKind::Rst);
  const Stp::MstPortSm::Ptr sm = portSm();
  EXPECT_EQ(warmCodecAllocations(mst(), [&] { return bool(generateBpduFromIntxInfo(sm, record, true, 1)); }), 0u);
  EXPECT_EQ(warmCodecAllocations(octetsOf(generatePvstBpduFromIntxInfo(sm, rst, true, 10).pkt), [&] {
              return generatePvstBpduFromIntxInfo(sm, rst, true, 10) && generatePktFromIntxInfo(sm, rst, false);
            }),
            0u);
}

}  // namespace
}  // namespace StpTxRx::bpdutest
