#pragma once
// Transmit records of every BPDU kind built from plain values, a set of named RST sample records, and an
// annotated hex dump of an RST BPDU frame (one line per field). Header-only; shared by stptxrx-pcap, the
// examples and the frame tests.
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx::tools {

/// The values of a common-instance entry that an RST BPDU carries.
struct CistValues {
  Stp::RstpBpduFlags flags;
  Stp::BridgeId rootId;
  Stp::PathCost rootPathCost = 0;
  Stp::BridgeId bridgeId;
  Stp::PortId portId;
  Stp::TimerVal messageAge;
  Stp::TimerVal maxAge;
  Stp::TimerVal helloTime;
  Stp::TimerVal fwdDelay;
};

/// The reference record: root 32768/1/00:11:22:33:44:55 at cost 20000, bridge 4096/0/00:aa:bb:cc:dd:ee,
/// port 128/3, timers 0 / 20 s / 2 s / 15 s, flags 0x3c (designated, learning, forwarding).
inline CistValues goldenCist() {
  CistValues v;
  v.flags = Stp::RstpBpduFlags{0x3c};
  v.rootId = Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)};
  v.rootPathCost = 20000;
  v.bridgeId = Stp::BridgeId{4096, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)};
  v.portId = Stp::PortId(128, 3);
  v.messageAge = Stp::TimerVal(0x00, 0x00);
  v.maxAge = Stp::TimerVal(0x14, 0x00);
  v.helloTime = Stp::TimerVal(0x02, 0x00);
  v.fwdDelay = Stp::TimerVal(0x0f, 0x00);
  return v;
}

/// The values one MSTI configuration message carries. The message holds only the priorities of the
/// bridge and port identifiers; the record gets the rest as a decode fills it (see mstRecordEntry).
struct MstiValues {
  std::uint16_t mstid = 1;
  Stp::RstpBpduFlags flags;
  std::uint16_t regionalRootPriority = 0;
  Nelk::EthAddr regionalRootAddress;
  Stp::PathCost intRootPathCost = 0;
  std::uint16_t bridgePriority = 0;
  std::uint8_t portPriority = 0;
  std::uint8_t remainingHops = 0;
};

/// The values of a whole transmit record: version and type (they pick the BPDU kind), the common
/// instance, and what only an MST BPDU carries: the configuration identifier, the CIST regional root,
/// internal cost and hops, and the MSTIs. The defaults make an RST record with the golden entry; the
/// CIST regional fields default to recognisable non-zero values so that a kind that does not carry them
/// visibly leaves them out.
struct RecordValues {
  Stp::StpBpduVersion version{Stp::RstpBpdu::rstVersion};
  Stp::StpBpduType type{Stp::RstpBpdu::rstType};
  CistValues cist = goldenCist();
  std::string configName;
  std::uint16_t configRevision = 0;
  Stp::MstpConfigDigest configDigest;
  Stp::BridgeId cistRegionalRoot{0x7000, 7, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x77)};
  Stp::PathCost cistIntRootPathCost = 777;
  std::uint8_t cistRemainingHops = 19;
  std::vector<MstiValues> mstis;  ///< in any order; the encoder sends them by ascending MSTID
};

/// Fills the MSTI entry of `m` as decoding its message would: the regional root and bridge identifier
/// carry the MSTID as their extension, the bridge identifier the CIST bridge address and the port
/// identifier the CIST port number; the attributes a message does not carry stay zero. A record written
/// and read back is therefore the same record.
inline void mstRecordEntry(IntxMstiInfo& e, const MstiValues& m, const CistValues& cist) {
  e.flagsIs(m.flags);
  e.regionalRootBridgeIdIs(Stp::BridgeId{m.regionalRootPriority, m.mstid, m.regionalRootAddress});
  e.intRootPathCostIs(m.intRootPathCost);
  e.bridgeIdIs(Stp::BridgeId{m.bridgePriority, m.mstid, cist.bridgeId.address});
  e.portIdIs(Stp::PortId(m.portPriority, cist.portId.portNumber));
  e.remainingHopsIs(m.remainingHops);
}

/// A record of `v` (no VLAN): entry 0 holds the common instance, one entry per MSTI follows. Entry 0's
/// MSTI regional root, which no BPDU carries, holds a recognisable non-zero value. Nothing is checked
/// here: what the encoder cannot send (a long name, too many MSTIs, an unknown version and type) it
/// reports itself.
inline IntxInfo::Ptr intxRecord(const RecordValues& v) {
  IntxInfo::Ptr info = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  info->stpVersionIs(v.version);
  info->intxInfoTypeIs(v.type);
  info->configRevisionLevelIs(v.configRevision);
  info->configNameStringIs(Zek::String(v.configName));
  info->configDigestIs(v.configDigest);
  Zek::Ptr<IntxMstiInfo> e = info->mstiNIs(Stp::BridgeSystemId(0));
  e->flagsIs(v.cist.flags);
  e->bridgeIdIs(v.cist.bridgeId);
  e->portIdIs(v.cist.portId);
  e->cistRootBridgeIdIs(v.cist.rootId);
  e->cistExtRootPathCostIs(v.cist.rootPathCost);
  e->cistRegionalRootBridgeIdIs(v.cistRegionalRoot);
  e->intRootPathCostIs(v.cistIntRootPathCost);
  e->regionalRootBridgeIdIs(Stp::BridgeId{0x7000, 7, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x78)});
  e->remainingHopsIs(v.cistRemainingHops);
  e->messageAgeIs(v.cist.messageAge);
  e->maxAgeIs(v.cist.maxAge);
  e->helloTimeIs(v.cist.helloTime);
  e->fwdDelayIs(v.cist.fwdDelay);
  for (const MstiValues& m : v.mstis) mstRecordEntry(*info->mstiNIs(Stp::BridgeSystemId(m.mstid)), m, v.cist);
  return info;
}

/// A record the RST encoder accepts (version 2, no VLAN) whose entry 0 holds `v`. The entry's fields
/// that the encoder does not read are filled with recognisable non-zero values.
inline IntxInfo::Ptr rstRecord(const CistValues& v) {
  RecordValues r;
  r.cist = v;
  return intxRecord(r);
}

struct NamedSample {
  std::string name;
  std::string description;
  CistValues values;
};

/// Records that exercise every field's range: the reference record, all flag bits, the extreme
/// priorities and extensions with the maximum path cost, and timers 0 and 0xffff.
inline std::vector<NamedSample> sampleRecords() {
  std::vector<NamedSample> out;
  out.push_back({"golden", "reference record (flags 0x3c, root 32768/1, bridge 4096/0, port 128/3)", goldenCist()});

  CistValues all = goldenCist();
  all.flags = Stp::RstpBpduFlags{0xff};
  out.push_back({"all-flags", "every flag bit set (TC, proposal, role 3, learning, forwarding, agreement, TCA)", all});

  CistValues high = goldenCist();
  high.flags = Stp::RstpBpduFlags{0x01};
  high.rootId = Stp::BridgeId{0xF000, 0x0fff, Nelk::EthAddr(0xff, 0xff, 0xff, 0xff, 0xff, 0xfe)};
  high.rootPathCost = 0xffffffff;
  high.bridgeId = Stp::BridgeId{0xF000, 0x0fff, Nelk::EthAddr(0x02, 0x00, 0x00, 0x00, 0x00, 0x01)};
  high.portId = Stp::PortId(240, 0x0fff);
  out.push_back({"max", "highest priorities and extensions, maximum path cost, port 240/4095", high});

  CistValues low = goldenCist();
  low.flags = Stp::RstpBpduFlags{0x00};
  low.rootId = Stp::BridgeId{0, 0, Nelk::EthAddr(0x00, 0x00, 0x00, 0x00, 0x00, 0x01)};
  low.rootPathCost = 0;
  low.bridgeId = Stp::BridgeId{0, 0, Nelk::EthAddr(0x00, 0x00, 0x00, 0x00, 0x00, 0x02)};
  low.portId = Stp::PortId(0, 1);
  low.messageAge = low.maxAge = low.helloTime = low.fwdDelay = Stp::TimerVal(0x00, 0x00);
  out.push_back({"min", "lowest priorities, extensions and cost, all flags clear, timers 0", low});

  CistValues timers = goldenCist();
  timers.messageAge = timers.maxAge = timers.helloTime = timers.fwdDelay = Stp::TimerVal(0xff, 0xff);
  out.push_back({"max-timers", "all four timers 0xffff", timers});
  return out;
}

namespace detail {

inline std::string hexOctets(const std::uint8_t* p, std::size_t n) {
  std::string s;
  char text[4];
  for (std::size_t i = 0; i < n; ++i) {
    std::snprintf(text, sizeof text, i ? " %02x" : "%02x", p[i]);
    s += text;
  }
  return s;
}

inline std::string mac(const std::array<std::uint8_t, 6>& a) {
  std::ostringstream os;
  os << Nelk::EthAddr(a);
  return os.str();
}

inline std::string bridgeId(const Stp::BridgeIdWire& w) {
  const unsigned word = w.priorityAndExtension.value();
  std::ostringstream os;
  os << "priority " << (word & 0xf000) << ", extension " << (word & 0x0fff) << ", address " << mac(w.address);
  return os.str();
}

inline std::string timer(const Stp::TimerVal& t) {
  std::ostringstream os;
  os << t.wire() / 256.0 << " s";
  return os.str();
}

inline std::string flags(std::uint8_t f) {
  static const char* const roles[] = {"unknown", "alternate/backup", "root", "designated"};
  std::ostringstream os;
  char hex[8];
  std::snprintf(hex, sizeof hex, "0x%02x", f);
  os << hex << " (role " << roles[(f >> 2) & 3];
  if (f & 0x01) os << ", TC";
  if (f & 0x02) os << ", proposal";
  if (f & 0x10) os << ", learning";
  if (f & 0x20) os << ", forwarding";
  if (f & 0x40) os << ", agreement";
  if (f & 0x80) os << ", TCA";
  os << ")";
  return os.str();
}

}  // namespace detail

/// Prints an untagged RST BPDU frame as built by the library, one line per field: offset, octets, the
/// IEEE field name and the decoded value. A frame shorter than 53 octets is printed up to the last
/// whole field it holds; octets beyond 53 are printed as trailing data.
inline void dumpRstFrame(std::ostream& os, const std::uint8_t* frame, std::size_t size) {
  std::size_t offset = 0;
  auto line = [&](std::size_t length, const char* name, const std::string& value) {
    if (offset + length > size) return false;
    char head[16];
    std::snprintf(head, sizeof head, "%4zu  ", offset);
    std::string octets = detail::hexOctets(frame + offset, length);
    if (octets.size() < 24) octets.resize(24, ' ');
    os << head << octets << "  " << name;
    for (std::size_t n = std::string(name).size(); n < 34; ++n) os << ' ';
    os << value << '\n';
    offset += length;
    return true;
  };
  auto dec = [](unsigned v) { return std::to_string(v); };

  if (size < sizeof(BpduLinkHeader)) {
    os << "(frame of " << size << " octets is shorter than a link header)\n";
    return;
  }
  const auto* h = reinterpret_cast<const BpduLinkHeader*>(frame);
  line(6, "802.3 Destination Address", detail::mac(h->destinationAddress));
  line(6, "802.3 Source Address", detail::mac(h->sourceAddress));
  line(2, "802.3 Length", dec(h->length.value()) + " (LLC + BPDU)");
  line(1, "802.2 LLC DSAP", "0x42 spanning tree");
  line(1, "802.2 LLC SSAP", "0x42 spanning tree");
  line(1, "802.2 LLC Control", "0x03 unnumbered information");
  if (size >= sizeof(BpduLinkHeader) + Stp::RstpBpdu::wireSize) {
    const auto* b = Stp::RstpBpdu::of(reinterpret_cast<const Stp::CommonBpdu*>(h + 1));
    const unsigned port = b->portIdentifier.value();
    line(2, "Protocol Identifier", dec(b->protocolIdentifier.value()));
    line(1, "Protocol Version Identifier", dec(b->protocolVersionIdentifier) + " (RSTP)");
    line(1, "BPDU Type", dec(b->bpduType) + " (RST)");
    line(1, "Flags", detail::flags(b->flags));
    line(8, "Root Identifier", detail::bridgeId(b->rootIdentifier));
    line(4, "Root Path Cost", std::to_string(b->rootPathCost.value()));
    line(8, "Bridge Identifier", detail::bridgeId(b->bridgeIdentifier));
    line(2, "Port Identifier", "priority " + dec((port >> 12) << 4) + ", number " + dec(port & 0x0fff));
    line(2, "Message Age", detail::timer(b->messageAge));
    line(2, "Max Age", detail::timer(b->maxAge));
    line(2, "Hello Time", detail::timer(b->helloTime));
    line(2, "Forward Delay", detail::timer(b->forwardDelay));
    line(1, "Version 1 Length", dec(b->version1Length));
  }
  if (offset < size) line(size - offset, "(further octets)", "");
}

}  // namespace StpTxRx::tools
