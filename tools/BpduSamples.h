#pragma once
// The tool's named RST sample records and an annotated hex dump of an RST BPDU frame (one line per
// field). Header-only, on installed headers only; the record values and builders are the library's
// (<stptxrx/Stp/BpduRecordText.h>) and are named here too for the tests that use them as tools::.
#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/EthAddr.h>
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

using StpTxRx::CistValues;
using StpTxRx::goldenCist;
using StpTxRx::intxRecord;
using StpTxRx::MstiValues;
using StpTxRx::mstRecordEntry;
using StpTxRx::RecordValues;
using StpTxRx::rstRecord;

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

  // The two ends of every priority, extension, address and cost range.
  const auto extreme = [](std::uint8_t flags, std::uint16_t priority, std::uint16_t extension,
                          Nelk::EthAddr root, Nelk::EthAddr bridge, Stp::PathCost cost, Stp::PortId port) {
    CistValues v = goldenCist();
    v.flags = Stp::RstpBpduFlags{flags};
    v.rootId = Stp::BridgeId{priority, extension, root};
    v.bridgeId = Stp::BridgeId{priority, extension, bridge};
    v.rootPathCost = cost;
    v.portId = port;
    return v;
  };
  out.push_back({"max", "highest priorities and extensions, maximum path cost, port 240/4095",
                 extreme(0x01, 0xF000, 0x0fff, Nelk::EthAddr(0xff, 0xff, 0xff, 0xff, 0xff, 0xfe),
                         Nelk::EthAddr(0x02, 0x00, 0x00, 0x00, 0x00, 0x01), 0xffffffff, Stp::PortId(240, 0x0fff))});

  CistValues low = extreme(0x00, 0, 0, Nelk::EthAddr(0x00, 0x00, 0x00, 0x00, 0x00, 0x01),
                           Nelk::EthAddr(0x00, 0x00, 0x00, 0x00, 0x00, 0x02), 0, Stp::PortId(0, 1));
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
