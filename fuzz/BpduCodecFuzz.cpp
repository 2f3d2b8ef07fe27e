// libFuzzer target for the BPDU codec (generateIntxInfoFromPkt, generateBpduFromIntxInfo).
//
// Every input is one Ethernet frame. It is decoded three times: into a reused record (one that already
// holds stale entries and a stale name, which the decode must reuse, overwrite or delete), into a fresh
// record and into no record at all. The three verdicts must agree, a valid decode must fill both records
// alike, a rejected one must leave the reused record as it was, and a TCN must touch nothing but version
// and type.
// A valid record that the encoder accepts is then encoded from a port whose MAC is the frame's source,
// tagged as the frame was, and the encoded frame decoded again: same kind (an RST BPDU read from a
// version 3+ frame comes back as MST), same record.
//
// A broken rule prints what differed (input, records, encoded frame) and traps, so libFuzzer keeps the
// input as a crash artifact.
//
// Every input starts from the same state and leaves it as it found it: its fresh records go when it
// returns, and the reused record is made stale again (the packet pool and the trace handles are warm
// after the first inputs), so nothing an input allocates outlives it and a crash artifact reproduces
// on its own. An input whose allocations outnumber its frees makes libFuzzer look for a leak, a scan of
// the whole heap (sanitizer quarantine included) that grows with the run; a record that kept what the
// inputs before had left did that for about every input and slowed the run down to a third of its rate
// within a minute.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/IntxInfo.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>

namespace {

using namespace StpTxRx;

// Link header sizes: addresses and length, the optional 802.1Q tag, the LLC header.
constexpr std::size_t ethernetHeaderSize = 14;
constexpr std::size_t vlanTagSize = 4;
constexpr std::size_t llcSize = 3;

// Entries the reused record holds before the decode, with stale values: the common instance, a few
// MSTIs a frame may or may not carry, and keys no frame can name (above 4095).
constexpr std::uint16_t staleKeys[] = {0, 1, 2, 64, 4095, 4096, 0x1001};

void fillStale(IntxMstiInfo& e, std::uint16_t key) {
  const Nelk::EthAddr stale(0x0e, 0xee, 0xee, 0xee, static_cast<std::uint8_t>(key >> 8), static_cast<std::uint8_t>(key));
  e.flagsIs(Stp::RstpBpduFlags{0xff});
  e.bridgeIdIs(Stp::BridgeId{0xf000, 0x0abc, stale});
  e.portIdIs(Stp::PortId(0xff, 0x0fff));
  e.cistRootBridgeIdIs(Stp::BridgeId{0x1000, 1, stale});
  e.cistExtRootPathCostIs(0xdeadbeef);
  e.cistRegionalRootBridgeIdIs(Stp::BridgeId{0x2000, 2, stale});
  e.intRootPathCostIs(0xfeedface);
  e.regionalRootBridgeIdIs(Stp::BridgeId{0x3000, 3, stale});
  e.remainingHopsIs(0xee);
  e.messageAgeIs(Stp::TimerVal(0xee, 0x01));
  e.maxAgeIs(Stp::TimerVal(0xee, 0x02));
  e.helloTimeIs(Stp::TimerVal(0xee, 0x03));
  e.fwdDelayIs(Stp::TimerVal(0xee, 0x04));
}

// A record as a decode finds it when the port received something else before: every stale entry and a
// stale name.
IntxInfo::Ptr staleRecord() {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone(7));
  for (std::uint16_t key : staleKeys) fillStale(*info->mstiNIs(Stp::BridgeSystemId(key)), key);
  info->configNameStringIs(Zek::String("stale-region"));
  return info;
}

/// What every input uses: the port the round trip encodes from (its address is set per input), an empty
/// record and a stale one to compare with, and the reused record, stale again when an input returns.
struct State {
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"));
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  IntxInfo::Ptr blank = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  IntxInfo::Ptr stale = staleRecord();
  IntxInfo::Ptr reused = staleRecord();
};

State& state() {
  static State s;  // lives for the whole run; libFuzzer calls from one thread
  return s;
}

std::string hex(const std::uint8_t* p, std::size_t n) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string s;
  s.reserve(2 * n);
  for (std::size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 0xf];
  }
  return s;
}

std::string describe(const BpduDecodeResult& r) {
  std::ostringstream os;
  os << bpduKindName(r.kind) << " reject=" << bpduReasonName(r.reject) << " rstFallback=" << bpduReasonName(r.rstFallback)
     << " tagged=" << r.tagged << " vlan=" << r.vlan << " dst=" << r.destination << " src=" << r.source
     << " bpduLength=" << r.bpduLength << " mstiCount=" << unsigned{r.mstiCount};
  return os.str();
}

std::string describe(const IntxInfo* info) {
  if (!info) return "(none)";
  std::ostringstream os;
  os << *info;
  for (const auto& entry : info->mstiN()) os << "\n      " << *entry.second;
  return os.str();
}

bool sameResult(const BpduDecodeResult& a, const BpduDecodeResult& b) {
  return a.kind == b.kind && a.reject == b.reject && a.rstFallback == b.rstFallback && a.tagged == b.tagged &&
         a.vlan == b.vlan && a.destination == b.destination && a.source == b.source && a.bpduLength == b.bpduLength &&
         a.mstiCount == b.mstiCount;
}

/// Everything a failure report shows; filled as the checks go.
struct Report {
  Report(const std::uint8_t* in, std::size_t n) : input(in), size(n) {}

  const std::uint8_t* input;
  std::size_t size;
  const IntxInfo* before = nullptr;
  const IntxInfo* kept = nullptr;
  const IntxInfo* fresh = nullptr;
  const IntxInfo* again = nullptr;
  const BpduDecodeResult* result = nullptr;
  const BpduDecodeResult* againResult = nullptr;
  const Nelk::Pkt* encoded = nullptr;

  [[noreturn]] void fail(const std::string& what) const {
    std::fprintf(stderr, "\n==== BpduCodecFuzz: %s\n  input (%zu octets): %s\n", what.c_str(), size,
                 hex(input, size).c_str());
    if (result) std::fprintf(stderr, "  decoded: %s\n", describe(*result).c_str());
    std::fprintf(stderr, "  reused record before: %s\n", describe(before).c_str());
    std::fprintf(stderr, "  reused record after:  %s\n", describe(kept).c_str());
    std::fprintf(stderr, "  fresh record:       %s\n", describe(fresh).c_str());
    if (encoded) {
      std::fprintf(stderr, "  encoded (%zu octets): %s\n", encoded->size(), hex(encoded->data(), encoded->size()).c_str());
    }
    if (againResult) std::fprintf(stderr, "  decoded again: %s\n", describe(*againResult).c_str());
    if (again) std::fprintf(stderr, "  record again:       %s\n", describe(again).c_str());
    std::fflush(stderr);
    __builtin_trap();
  }
  void require(bool ok, const char* what) const {
    if (!ok) fail(what);
  }
};

// Body size the encoder writes for a kind (Config 35, TCN 4, RST 36, MST 102 + 16 per MSTI).
std::size_t encodedBodySize(BpduKind kind, std::size_t mstiCount) {
  switch (kind) {
    case BpduKind::Config: return Stp::ConfigBpdu::wireSize;
    case BpduKind::Tcn: return Stp::CommonBpdu::wireSize;
    case BpduKind::Rst: return Stp::RstpBpdu::wireSize;
    default: return Stp::MstBpdu::wireSize + mstiCount * Stp::MstiConfigMessage::wireSize;
  }
}

void checkVerdict(const Report& rep, const BpduDecodeResult& r, std::size_t size) {
  rep.require(r.valid() == (r.kind != BpduKind::Rejected), "kind and reject reason disagree");
  if (!r.valid()) {
    rep.require(r.rstFallback == BpduReason::none && r.mstiCount == 0, "a rejected frame reports a fallback or MSTIs");
    return;
  }
  const std::size_t header = ethernetHeaderSize + (r.tagged ? vlanTagSize : 0) + llcSize;
  rep.require(header + r.bpduLength <= size, "valid BPDU longer than the input");
  rep.require(r.rstFallback == BpduReason::none || r.kind == BpduKind::Rst, "fallback reported for a kind other than RST");
  rep.require(r.kind == BpduKind::Mst || r.mstiCount == 0, "MSTIs reported for a kind other than MST");
  rep.require(r.mstiCount <= Stp::MstBpdu::maxMstiCount, "more than 64 MSTIs");
  rep.require(r.bpduLength >= encodedBodySize(r.kind, r.mstiCount), "valid BPDU shorter than its kind");
  rep.require(r.vlan.value() <= 0x0fff && (r.tagged || r.vlan.isNone()), "VLAN id beyond 12 bits or without a tag");
}

// The fresh record of a valid decode against the frame's verdict.
void checkFresh(const Report& rep, const BpduDecodeResult& r, const IntxInfo& fresh) {
  if (r.kind == BpduKind::Tcn) {
    rep.require(fresh.mstiNCount() == 0 && fresh.neighborAddr() == Nelk::EthAddr(),
                "TCN wrote more than version and type into a fresh record");
    return;
  }
  rep.require(fresh.neighborAddr() == r.source, "neighbour address is not the frame's source");
  rep.require(static_cast<bool>(fresh.mstiN(Stp::BridgeSystemId(0))), "no common-instance entry");
  rep.require(fresh.mstiNCount() == std::size_t{1} + r.mstiCount, "entry count is not 1 + MSTI count");
  if (r.kind != BpduKind::Mst) {
    rep.require(fresh.configNameString().empty() && fresh.configRevisionLevel() == 0 &&
                    fresh.configDigest() == Stp::MstpConfigDigest{},
                "configuration identifier set by a BPDU that carries none");
  }
}

void roundTrip(Report& rep, const BpduDecodeResult& r, const IntxInfo::Ptr& fresh) {
  State& s = state();
  s.port->portAddrIs(r.source);
  // A PVST+ BPDU goes back as PVST+ for its originating VLAN (an untagged TCN names none: any will do);
  // a priority tag (VLAN 0) goes back untagged, as it names no VLAN.
  const bool pvst = r.pvst();
  const bool tagged = pvst ? r.tagged && !r.vlan.isNone() : r.tagged;
  const Bridging::VlanIdOrNone vlan = pvst ? (r.originatingVlan ? r.originatingVlan : Bridging::VlanIdOrNone(1)) : r.vlan;
  const BpduEncodeResult enc = pvst ? generatePvstBpduFromIntxInfo(s.portSm, fresh, tagged, vlan)
                                    : generateBpduFromIntxInfo(s.portSm, fresh, tagged, vlan);
  // The encoder checks the VLAN before the kind: a reserved VLAN is the refusal even of a record of no kind.
  if (vlan.value() > maxVlanId && (tagged || pvst)) {  // 4095 is reserved: refused, never sent
    rep.require(!enc && enc.error == (pvst ? BpduEncodeError::pvstVlanOutOfRange : BpduEncodeError::tagVlanOutOfRange),
                "reserved VLAN 4095 encoded");
    return;
  }
  const bool encodable = bpduKindOf(fresh->stpVersion(), fresh->intxInfoType()) != BpduKind::Rejected;
  if (!encodable) {
    // Config and TCN BPDUs are accepted with any version; the encoder writes versions 0 and 1 only.
    rep.require((r.kind == BpduKind::Config || r.kind == BpduKind::Tcn) && fresh->stpVersion().value > 1,
                "a decoded RST or MST record names no kind");
    rep.require(!enc && enc.error == BpduEncodeError::unsupportedKind, "record of no kind was encoded");
    return;
  }
  if (!enc) rep.fail(std::string("decoded record not encodable: ") + bpduEncodeErrorText(enc.error));
  rep.encoded = enc.pkt.get();

  const BpduKind expected = r.rstFallback != BpduReason::none ? BpduKind::Mst : r.kind;
  rep.require(enc.kind == expected, "encoder names another kind");
  IntxInfo::Ptr again = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  const BpduDecodeResult back = generateIntxInfoFromPkt(enc.pkt->data(), enc.pkt->size(), again.get());
  rep.again = again.get();
  rep.againResult = &back;
  rep.require(back.valid(), "encoded frame rejected");
  rep.require(back.kind == expected && back.rstFallback == BpduReason::none, "encoded frame decodes as another kind");
  rep.require(back.tagged == tagged && back.vlan == (tagged ? vlan : Bridging::VlanIdOrNone()),
              "encoded frame tagged otherwise");
  rep.require(back.source == r.source && back.destination == (pvst ? pvstAddress : bridgeGroupAddress),
              "encoded frame addressed otherwise");
  rep.require(back.pvst() == pvst && back.originatingVlan == r.originatingVlan, "encoded frame of another VLAN");
  rep.require(back.mstiCount == r.mstiCount, "encoded frame carries another MSTI count");
  const std::size_t size = pvst && expected != BpduKind::Tcn ? Stp::PvstBpdu::wireSize
                                                             : encodedBodySize(expected, r.mstiCount);
  rep.require(back.bpduLength == size, "encoded BPDU length is not its kind's size");
  // A Configuration BPDU carries TC and TCA only.
  if (expected == BpduKind::Config) {
    const IntxMstiInfo::Ptr cist = fresh->mstiNIs(Stp::BridgeSystemId(0));
    cist->flagsIs({static_cast<std::uint8_t>(cist->flags().value & 0x81)});
  }
  rep.require(again->sameContent(*fresh), "encoded frame decodes to another record");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  State& s = state();
  const IntxInfo::Ptr& kept = s.reused;

  Report rep(data, size);
  rep.before = s.stale.get();
  rep.kept = kept.get();

  const BpduDecodeResult r = generateIntxInfoFromPkt(data, size, kept.get());
  rep.result = &r;
  IntxInfo::Ptr fresh = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  const BpduDecodeResult rFresh = generateIntxInfoFromPkt(data, size, fresh.get());
  rep.fresh = fresh.get();
  const BpduDecodeResult rNone = generateIntxInfoFromPkt(data, size, nullptr);

  rep.require(sameResult(r, rFresh) && sameResult(r, rNone), "verdict depends on the record decoded into");
  checkVerdict(rep, r, size);

  if (!r.valid()) {
    rep.require(kept->sameContent(*s.stale), "rejected frame changed the record");
    rep.require(fresh->sameContent(*s.blank), "rejected frame changed a fresh record");
    return 0;
  }
  checkFresh(rep, r, *fresh);
  if (r.kind == BpduKind::Tcn) {
    // Only version and type change; every other attribute and entry stays.
    const IntxInfo::Ptr before = staleRecord();
    before->stpVersionIs(fresh->stpVersion());
    before->intxInfoTypeIs(fresh->intxInfoType());
    rep.require(kept->sameContent(*before), "TCN changed more than version and type of the reused record");
  } else {
    rep.require(kept->sameContent(*fresh), "reused and fresh record differ after a valid decode");
  }
  // Stale again for the next input: entries the decode deleted come back, those it added go, so this
  // input frees as much as it allocates.
  copyIntxInfo(s.stale, kept);
  rep.require(kept->sameContent(*s.stale), "the reused record is not stale again after the copy");
  rep.kept = nullptr;
  roundTrip(rep, r, fresh);
  return 0;
}

// An input frees a few kilobytes, so a 16 MB quarantine still holds what this input and the few thousand
// before it freed (a use after free of it is caught) and keeps the run's memory flat, where the default
// 256 MB of freed records only makes it grow. ASAN_OPTIONS can still set another size.
extern "C" __attribute__((used, visibility("default"))) const char* __asan_default_options() {
  return "quarantine_size_mb=16";
}
