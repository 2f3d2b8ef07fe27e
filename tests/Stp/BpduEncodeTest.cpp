// The every-kind encoder: what it refuses (one row per rule at its boundary: the last value that fits
// and the first that does not, nothing sent on a refusal), the frames it writes, allocation failure, and
// no allocation on the hot paths.
#include <stptxrx/Stp/StpTxRxCommon.h>

#include "BpduTestFrames.h"
#include "support/AllocCounter.h"
#include "support/TraceCapture.h"

#include <algorithm>

namespace StpTxRx::bpdutest {
namespace {

// ---- values that do not fit their wire field, each at its boundary

using Edit = std::function<void(IntxInfo&)>;
using E = BpduEncodeError;

// `edit` of a valid record of `kind`, and its encoding's error (none: the last value that fits).
struct FitRow {
  std::string name;
  BpduKind kind;
  Edit edit;
  E error;
  BpduEncapsulation encapsulation = BpduEncapsulation::ieee;
  bool tagged = false;
  std::uint16_t vlan = 0;
};

IntxInfo::Ptr validRecord(BpduKind kind) {
  std::mt19937 rng(11);
  return randomRecord(rng, kind, portMac, 2);
}

// The edits of one identifier attribute (reached by `get` and `set`): `part` of it in entry `key` set to `value`.
template <auto get, auto set>
auto attr(const char* name) {
  return std::pair{name, [](std::uint16_t key, auto part, unsigned value) -> Edit {
    return [=](IntxInfo& info) {
      const auto entry = info.mstiNIs(key);
      auto v = ((*entry).*get)();
      v.*part = static_cast<std::remove_reference_t<decltype(v.*part)>>(value);
      ((*entry).*set)(v);
    };
  }};
}

std::vector<FitRow> fitRows() {
  using B = Stp::BridgeId;
  using P = Stp::PortId;
  using M = IntxMstiInfo;
  const auto root = attr<&M::cistRootBridgeId, &M::cistRootBridgeIdIs>("root");
  const auto bridge = attr<&M::bridgeId, &M::bridgeIdIs>("bridge");
  const auto regional = attr<&M::cistRegionalRootBridgeId, &M::cistRegionalRootBridgeIdIs>("regional root");
  const auto mstiRoot = attr<&M::regionalRootBridgeId, &M::regionalRootBridgeIdIs>("msti root");
  const auto port = attr<&M::portId, &M::portIdIs>("port").second;
  std::vector<FitRow> rows;
  // Every bridge identifier the kind carries in full: priority in steps of 4096, extension up to 4095.
  auto bridgeRows = [&](BpduKind kind, auto a, std::uint16_t key) {
    const std::string n = std::string(bpduKindName(kind)) + " " + a.first + " ";
    rows.push_back({n + "priority 61440", kind, a.second(key, &B::priority, 61440), E::none});
    rows.push_back({n + "priority 61441", kind, a.second(key, &B::priority, 61441), E::bridgePriorityStep});
    rows.push_back({n + "priority 4095", kind, a.second(key, &B::priority, 4095), E::bridgePriorityStep});
    rows.push_back({n + "extension 4095", kind, a.second(key, &B::systemIdExtension, 4095), E::none});
    rows.push_back({n + "extension 4096", kind, a.second(key, &B::systemIdExtension, 4096), E::systemIdExtensionOutOfRange});
  };
  for (BpduKind kind : {BpduKind::Config, BpduKind::Rst, BpduKind::Mst}) {
    bridgeRows(kind, root, 0);
    bridgeRows(kind, bridge, 0);
    const std::string n = std::string(bpduKindName(kind)) + " port ";
    rows.push_back({n + "priority 240", kind, port(0, &P::priority, 240), E::none});
    rows.push_back({n + "priority 241", kind, port(0, &P::priority, 241), E::portPriorityStep});
    rows.push_back({n + "priority 15", kind, port(0, &P::priority, 15), E::portPriorityStep});
    rows.push_back({n + "number 4095", kind, port(0, &P::portNumber, 4095), E::none});
    rows.push_back({n + "number 4096", kind, port(0, &P::portNumber, 4096), E::portNumberOutOfRange});
  }
  bridgeRows(BpduKind::Mst, regional, 0);
  // An MSTI carries only the priorities of its bridge and port identifiers; its regional root's
  // extension is the MSTID whatever the record holds.
  const BpduKind m = BpduKind::Mst;
  std::uint16_t msti = 0;  // the record's last MSTI
  const IntxInfo::Ptr mstRecord = validRecord(m);
  for (const auto& entry : mstRecord->mstiN()) msti = entry.first.value();
  auto mstiRows = [&](auto a) {
    const std::string n = std::string("msti ") + a.first + " ";
    rows.push_back({n + "priority 61440", m, a.second(msti, &B::priority, 61440), E::none});
    rows.push_back({n + "priority 61441", m, a.second(msti, &B::priority, 61441), E::bridgePriorityStep});
    rows.push_back({n + "extension 4096", m, a.second(msti, &B::systemIdExtension, 4096), E::none});
  };
  mstiRows(mstiRoot);
  mstiRows(bridge);
  rows.push_back({"msti port priority 240", m, port(msti, &P::priority, 240), E::none});
  rows.push_back({"msti port priority 241", m, port(msti, &P::priority, 241), E::portPriorityStep});
  rows.push_back({"msti port number 4096", m, port(msti, &P::portNumber, 4096), E::none});
  // The tag: 0 (priority only) to 4094; an untagged frame does not read the VLAN. PVST+: a VLAN of 1 to
  // 4094, tagged or native; no MST form. (Its identifiers pass the checks above.)
  const Edit same = [](IntxInfo&) {};
  const auto ieee = BpduEncapsulation::ieee, pvst = BpduEncapsulation::pvst;
  using Link = std::tuple<BpduEncapsulation, bool, std::uint16_t, E>;
  const Link links[] = {{ieee, true, 4094, E::none}, {ieee, true, 4095, E::tagVlanOutOfRange}, {ieee, true, 0, E::none},
                        {ieee, false, 5000, E::none}, {pvst, false, 1, E::none}, {pvst, true, 1, E::none},
                        {pvst, false, 4094, E::none}, {pvst, true, 4094, E::none}, {pvst, false, 0, E::pvstVlanOutOfRange},
                        {pvst, true, 0, E::pvstVlanOutOfRange}, {pvst, false, 4095, E::pvstVlanOutOfRange},
                        {pvst, true, 4095, E::pvstVlanOutOfRange}};
  for (BpduKind kind : {BpduKind::Config, BpduKind::Tcn, BpduKind::Rst, BpduKind::Mst}) {
    for (const auto& [e, tagged, vlan, error] : links) {
      if (e == pvst && kind == m) continue;
      rows.push_back({std::string(e == pvst ? "pvst " : "") + bpduKindName(kind) + (tagged ? " tag " : " untagged ") +
                          std::to_string(vlan), kind, same, error, e, tagged, vlan});
    }
  }
  rows.push_back({"pvst mst", m, same, E::pvstMst, BpduEncapsulation::pvst, false, 5});
  // What no frame carries: a version and type that name no kind, no CIST entry, a name of 33 octets, 65
  // MSTIs or an MSTID of 4096, beside a name of 32 octets with 64 MSTIs.
  for (auto [version, type] : {std::pair{2, 0}, {1, 2}, {3, 0x81}, {2, 0x80}}) {
    rows.push_back({"version " + std::to_string(version) + " type " + std::to_string(type), m, [=](IntxInfo& i) {
                      i.stpVersionIs({std::uint8_t(version)}), i.intxInfoTypeIs({std::uint8_t(type)});
                    }, E::unsupportedKind});
  }
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
    const BpduEncodeResult starved = generateBpduFromIntxInfo(row.encapsulation, portSm(), record, row.tagged, row.vlan);
    pool.liveLimitIs(limit);
    EXPECT_FALSE(starved.pkt);
    failures += 1 + (row.error != E::none);
    EXPECT_EQ(starved.error, row.error == E::none ? E::allocationFailed : row.error)
        << bpduEncodeErrorName(starved.error);

    const BpduEncodeResult r = generateBpduFromIntxInfo(row.encapsulation, portSm(), record, row.tagged, row.vlan);
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
// record keeps its flags, and a received Configuration BPDU's flags are reported as they came. (tshark
// reads the flags where they are written: BpduRoundTripTest.)
TEST(BpduEncodeTest, AConfigurationBpduCarriesOnlyTopologyChangeAndItsAcknowledgment) {
  for (unsigned flags : {0x00u, 0x01u, 0x80u, 0x7eu, 0xffu}) {
    IntxInfo::Ptr record = validRecord(BpduKind::Config);
    record->mstiNIs(0)->flagsIs({static_cast<std::uint8_t>(flags)});
    for (bool pvst : {false, true}) {
      const Nelk::Pkt::Ptr pkt = pvst ? generatePvstBpduFromIntxInfo(portSm(), record, pvst, 3).pkt
                                      : generateBpduFromIntxInfo(portSm(), record, pvst, 0).pkt;
      ASSERT_TRUE(pkt);
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
}

// (An empty pool: every row of the fit table above; its traces: StpTxRxUtilsTest.)
TEST(BpduEncodeTest, RstAndTcnAreTheDescribedFrames) {
  IntxInfo::Ptr rst = mstRecord();
  rst->stpVersionIs({2});
  EXPECT_EQ(encode(rst), octetsOf(generatePktFromIntxInfo(portSm(), rst, false)));
  IntxInfo::Ptr tcn = IntxInfo::IntxInfoIs(0);  // a new record: version 0
  tcn->intxInfoTypeIs({0x80});
  EXPECT_EQ(encode(tcn), hexOctets("0180c2000000 020000000007 0007 424203 0000 00 80"));
}

// Decode into an existing record, receive into an existing port's status, and every encoder (IEEE, PVST+,
// the RST-only one) on a warm packet pool: 50 rounds of each allocate nothing.
TEST(BpduCodecAllocationTest, DecodeIntoAnExistingRecordAndEncodeFromAWarmPoolAllocateNothing) {
  Zek::test::TraceCapture cap({"StpTxRx/-"});
  const IntxInfo::Ptr record = mstRecord(), rst = validRecord(BpduKind::Rst);
  const IntxInfo::Ptr into[] = {IntxInfo::IntxInfoIs(0), IntxInfo::IntxInfoIs(0)};
  const Stp::MstPortSm::Ptr sm = portSm();
  const RxMstPortStatus::Ptr port = RxStatus::RxStatusIs()->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Et1"));
  const Octets frames[] = {mst(), octetsOf(generatePvstBpduFromIntxInfo(sm, rst, true, 10).pkt)};
  const auto round = [&] {
    bool ok = generateBpduFromIntxInfo(sm, record, true, 1) && generatePvstBpduFromIntxInfo(sm, rst, true, 10) &&
              generatePktFromIntxInfo(sm, rst, false);
    for (int f = 0; f < 2; ++f) {
      ok = ok && generateIntxInfoFromPkt(frames[f].data(), frames[f].size(), into[f].get()).valid() &&
           receiveBpdu(port, 1, frames[f].data(), frames[f].size()).valid();
    }
    return ok;
  };
  ASSERT_TRUE(round());
  Zek::test::AllocScope scope;
  for (int i = 0; i < 50; ++i) EXPECT_TRUE(round());
  EXPECT_EQ(scope.count(), 0u);
}

}  // namespace
}  // namespace StpTxRx::bpdutest
