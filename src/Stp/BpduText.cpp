// The readable line of a received frame.
#include <stptxrx/Stp/BpduText.h>

#include <cstdio>
#include <ostream>
#include <sstream>
#include <string_view>

namespace StpTxRx {

namespace {

// `text` with its control characters as \xNN.
void writePrintable(std::ostream& os, std::string_view text) {
  for (char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u >= 0x20 && u != 0x7f) {
      os << c;
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      os << hex;
    }
  }
}

// The fields a Configuration BPDU and the CIST part of an RST or MST BPDU have in common.
void writeCist(std::ostream& os, const IntxMstiInfo& cist, BpduKind kind) {
  os << " flags=" << bpduFlagsText(cist.flags(), kind, true) << " root=" << cist.cistRootBridgeId()
     << " cost=" << cist.cistExtRootPathCost() << " bridge=" << cist.bridgeId() << " port=" << cist.portId()
     << " age=" << timerText(cist.messageAge()) << " maxage=" << timerText(cist.maxAge())
     << " hello=" << timerText(cist.helloTime()) << " fwd=" << timerText(cist.fwdDelay());
}

// What only an MST BPDU carries: the CIST regional part, the configuration identifier, the MSTIs.
void writeMst(std::ostream& os, const IntxInfo& record, const IntxMstiInfo& cist) {
  os << " regroot=" << cist.cistRegionalRootBridgeId() << " intcost=" << cist.intRootPathCost()
     << " hops=" << unsigned{cist.remainingHops()} << " name=\"";
  writePrintable(os, record.configNameString().view());
  os << "\" revision=" << record.configRevisionLevel() << " digest=" << record.configDigest();
  for (const auto& [id, e] : record.mstiN()) {
    if (id.value() == 0) continue;
    os << " [msti " << id << " flags=" << bpduFlagsText(e->flags(), BpduKind::Mst, false)
       << " regroot=" << e->regionalRootBridgeId() << " intcost=" << e->intRootPathCost()
       << " bridge=" << e->bridgeId() << " port=" << e->portId() << " hops=" << unsigned{e->remainingHops()}
       << "]";
  }
}

}  // namespace

std::string bpduFlagsText(Stp::RstpBpduFlags flags, BpduKind kind, bool cist) {
  using F = Stp::RstpBpduFlags;
  std::string out;
  auto add = [&out](std::string_view name) {
    if (!out.empty()) out += ',';
    out += name;
  };
  if (kind == BpduKind::Config) {
    if (flags.tc()) add("tc");
    if (flags.tca()) add("tca");
    if (const unsigned other = flags.value & ~unsigned{F::tcBit | F::tcaBit}) {
      char hex[16];
      std::snprintf(hex, sizeof hex, "other:0x%02x", other);
      add(hex);
    }
    return out.empty() ? "none" : out;
  }
  static constexpr std::string_view roles[] = {"role:unknown", "role:alternate/backup", "role:root",
                                               "role:designated"};
  const auto role = static_cast<unsigned>(flags.portRole());
  if (flags.tc()) add("tc");
  if (flags.proposal()) add("proposal");
  add(role == 0 && !cist ? "role:master" : roles[role]);
  if (flags.learning()) add("learning");
  if (flags.forwarding()) add("forwarding");
  if (flags.agreement()) add("agreement");
  if (flags.tca()) add(cist ? "tca" : "master");
  return out;
}

std::string timerText(Stp::TimerVal t) {
  // wire / 256 is exact in at most eight decimals.
  char text[32];
  std::snprintf(text, sizeof text, "%.8f", t.seconds());
  std::string s(text);
  s.erase(s.find_last_not_of('0') + 1);
  if (s.back() == '.') s.pop_back();
  return s + 's';
}

void writeBpduText(std::ostream& os, const BpduDecodeResult& r, const IntxInfo* record, std::size_t frameSize) {
  if (r.reject == BpduReason::rateLimited) {
    os << "rate-limited";
    return;
  }
  if (r.valid()) {
    os << bpduKindName(r.kind);
  } else {
    os << "reject: " << bpduReasonText(r.reject);
  }
  // How the frame came follows the kind, one clause per fact of the link layer.
  if (r.valid() && r.pvst()) os << " pvst " << r.originatingVlan;
  if (r.tagged) os << " vlan " << r.vlan;
  if (frameSize >= 12) os << " src " << r.source;  // the source is known once the frame reaches it
  if (!r.valid() || r.kind == BpduKind::Tcn || !record) return;
  if (r.rstFallback != BpduReason::none) os << " (read as RST: " << bpduReasonText(r.rstFallback) << ")";
  const IntxMstiInfo* cist = record->mstiNEntry(Stp::BridgeSystemId(0));
  if (!cist) return;
  writeCist(os, *cist, r.kind);
  if (r.kind == BpduKind::Mst) writeMst(os, *record, *cist);
}

std::string bpduText(const BpduDecodeResult& r, const IntxInfo* record, std::size_t frameSize) {
  std::ostringstream os;
  writeBpduText(os, r, record, frameSize);
  return os.str();
}

}  // namespace StpTxRx
