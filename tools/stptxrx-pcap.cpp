// stptxrx-pcap: BPDUs on files and on the wire, through the library's encoder (generateBpduFromIntxInfo)
// and receive path (BpduReceiver into a port's receive status). It writes frames of every kind to a
// capture file, reads a capture (pcap or pcapng) printing one line per frame and a summary of the port's
// counters, rewrites a capture as the library re-encodes it, listens on an interface printing the BPDUs
// that arrive in the same form, and sends records, samples or a capture's frames on an interface.
// Captures and interfaces go through libpcap (Pcap.h). See usage() for the options.
#include "BpduSamples.h"
#include "Pcap.h"

#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/state/RxStatus.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using StpTxRx::tools::MstiValues;
using StpTxRx::tools::RecordValues;

void usage(std::ostream& os) {
  os << "Usage: stptxrx-pcap [--record ITEMS | --sample NAME]... [--src MAC] [--dump] OUTPUT.pcap\n"
        "       stptxrx-pcap --read INPUT [--rewrite OUTPUT.pcap] [--rate-limit COUNT/SECONDS]\n"
        "       stptxrx-pcap --listen IFACE [--count N] [--timeout SECONDS] [--rate-limit COUNT/SECONDS]\n"
        "       stptxrx-pcap --send IFACE [--count N] [--interval SECONDS] [--src MAC]\n"
        "                    (--record ITEMS | --sample NAME | --replay FILE)...\n"
        "\n"
        "Writing: builds BPDU frames (Configuration, TCN, RST, MST; untagged or 802.1Q-tagged) with the\n"
        "library's encoder (generateBpduFromIntxInfo) and writes them to OUTPUT.pcap, a classic pcap file\n"
        "(link type Ethernet) that tshark and wireshark open:\n"
        "  tshark -r OUTPUT.pcap -V\n"
        "\n"
        "Frames are written exactly as built (an untagged RST frame is 53 octets), even when shorter than\n"
        "the 60-octet Ethernet minimum: they are not padded. Frame n (from 0) carries the timestamp n\n"
        "seconds after the epoch, so the same frames give the same file. When a record cannot be encoded\n"
        "nothing is written.\n"
        "\n"
        "  --sample NAME     add a built-in RST sample record (repeatable); see --list\n"
        "  --record ITEMS    add a record from comma-separated FIELD=VALUE items (repeatable); fields not\n"
        "                    given keep the values of the 'golden' RST sample:\n"
        "                      version=2 type=2                protocol version and BPDU type: 0 and 0\n"
        "                                                      Config, 0 and 0x80 TCN, 2 and 2 RST,\n"
        "                                                      3 and 2 MST\n"
        "                      vlan=N                          tag the frame with 802.1Q VLAN N (0-4095);\n"
        "                                                      without it the frame is untagged\n"
        "                      flags=0x3c                      flags octet\n"
        "                      root=32768/1/00:11:22:33:44:55  (CIST) root identifier: priority/extension/MAC\n"
        "                      cost=20000                      (CIST external) root path cost\n"
        "                      bridge=4096/0/00:aa:bb:cc:dd:ee (CIST) bridge identifier\n"
        "                      port=128/3                      (CIST) port identifier: priority/number\n"
        "                      age=0 maxage=0x1400 hello=0x200 fwd=0xf00\n"
        "                                                      timers, in 1/256 s as on the wire\n"
        "                    carried by MST records only:\n"
        "                      name=TEXT                       configuration name, at most 32 octets, no ','\n"
        "                      revision=0                      configuration revision level\n"
        "                      digest=HEX                      configuration digest, 32 hex digits\n"
        "                                                      (default all zero)\n"
        "                      regroot=28672/7/02:00:00:00:00:77\n"
        "                                                      CIST regional root identifier\n"
        "                      intcost=777                     CIST internal root path cost\n"
        "                      hops=19                         CIST remaining hops\n"
        "                      msti=ID/FLAGS/ROOTPRIO/ROOTMAC/COST/BRIDGEPRIO/PORTPRIO/HOPS\n"
        "                                                      one MSTI configuration message; repeat the\n"
        "                                                      item for more (each ID once, not 0), e.g.\n"
        "                                                      msti=1/0x7c/32768/00:11:22:33:44:55/20000/32768/128/20\n"
        "                                                      ROOTPRIO/ROOTMAC: the MSTI regional root (its\n"
        "                                                      extension is the ID); BRIDGEPRIO, PORTPRIO:\n"
        "                                                      full priorities, of which the top 4 bits go out\n"
        "                    Numbers are decimal or 0x hex.\n"
        "  --src MAC         source MAC address of the frames (default 02:00:00:00:00:01)\n"
        "  --dump            also print each frame on standard output: an untagged RST frame field by\n"
        "                    field, any other as hex\n"
        "  --list            list the built-in samples and exit\n"
        "\n"
        "Without --sample or --record every built-in sample is written.\n"
        "\n"
        "Reading and listening: every frame is received through the library's receive path (a\n"
        "BpduReceiver on one port of a receive status, record VLAN none) and printed as one line:\n"
        "  N KIND[ vlan V] src MAC[ (read as RST: WHY)] flags=F root=ID cost=C bridge=ID port=P\n"
        "    age=Ts maxage=Ts hello=Ts fwd=Ts                     (config, rst, mst)\n"
        "    regroot=ID intcost=C hops=H name=\"TEXT\" revision=R digest=HEX\n"
        "    [msti K flags=F regroot=ID intcost=C bridge=ID port=P hops=H]...   (mst only)\n"
        "  N tcn[ vlan V] src MAC\n"
        "  N reject: WHY[ vlan V][ src MAC]\n"
        "  N rate-limited                                        (dropped before decoding)\n"
        "N counts frames from 1; vlan V is shown when the frame carries an 802.1Q tag; '(read as RST:\n"
        "WHY)' marks a version 3 or higher BPDU that breaks an MST rule. ID is a bridge identifier as\n"
        "PRIORITY.EXTENSION.MAC, P a port identifier as PRIORITY.NUMBER, timers are in seconds. F names\n"
        "the flags that are set, comma-separated: tc, proposal, the port role (role:unknown or, for an\n"
        "MSTI, role:master; role:alternate/backup, role:root, role:designated; a Configuration BPDU shows\n"
        "it only when its role bits are not 0), learning, forwarding, agreement, tca (for an MSTI:\n"
        "master); 'none' when no bit is set. An MSTI's bridge and port identifiers carry the CIST bridge\n"
        "address and port number. Control characters in a configuration name are printed as \\xNN.\n"
        "The last line is the port's counters after the receiver's flush:\n"
        "  summary: frames=F config=C tcn=T rst=R mst=M rejected=X rate-limited=L[ REASON=N]...\n"
        "F is the port's bpduCount; REASON=N follows for each reject reason with a non-zero count.\n"
        "\n"
        "  --read FILE       read a capture file (pcap or pcapng, link type Ethernet); the frames'\n"
        "                    timestamps are their arrival times, so a file gives the same result each time\n"
        "  --rewrite OUT     with --read: encode every decoded record again (sent from the frame's source\n"
        "                    address, tagged with the frame's VLAN when the frame was tagged) and write\n"
        "                    it to OUT with the frame's timestamp; frames that do not decode, that the rate\n"
        "                    limit drops, or whose record does not encode to a BPDU of the same kind, are\n"
        "                    skipped and counted on standard error\n"
        "  --listen IFACE    print the BPDUs that arrive on IFACE (frames to 01:80:c2:00:00:00 with LLC\n"
        "                    42 42 03, tagged or not; inbound only, filtered in the kernel) as they arrive;\n"
        "                    a VLAN tag the kernel took off is shown as if it had stayed on. Stops after\n"
        "                    --count N frames, after --timeout SECONDS, or at SIGINT/SIGTERM, then prints\n"
        "                    the summary. 'listening on IFACE' goes to standard error once it is ready.\n"
        "  --rate-limit COUNT/SECONDS\n"
        "                    with --read or --listen: turn the port's BPDU rate limit on (at most COUNT\n"
        "                    frames per window of SECONDS, fractions allowed)\n"
        "\n"
        "Sending: --send IFACE sends the frames of every --record, --sample and --replay, in the order\n"
        "given, as one round; --count N rounds (default 1), --interval SECONDS apart (default 1,\n"
        "fractions allowed). --replay FILE adds every frame of a capture re-encoded exactly as --rewrite\n"
        "writes it (from the frame's own source address) and says on standard error how many frames it\n"
        "skipped and why. Every frame is built, and every file read, before IFACE is opened: a record the\n"
        "encoder refuses or a damaged file sends nothing.\n"
        "\n"
        "  --help            show this text and exit\n"
        "\n"
        "Exit status: 0 done; 1 a record could not be encoded, a file could not be read whole or written,\n"
        "or an interface could not be opened or sent on (one line on standard error says which); 2 wrong\n"
        "usage.\n";
}

// Decimal, or hex after 0x (a leading 0 is not octal).
std::optional<unsigned long> number(std::string_view text, unsigned long max) {
  const bool hex = text.starts_with("0x") || text.starts_with("0X");
  if (hex) text.remove_prefix(2);
  if (text.empty() || !std::isxdigit(static_cast<unsigned char>(text[0]))) return std::nullopt;
  std::string s(text);
  char* end = nullptr;
  errno = 0;
  unsigned long v = std::strtoul(s.c_str(), &end, hex ? 16 : 10);
  if (errno != 0 || *end != '\0' || v > max) return std::nullopt;
  return v;
}

std::optional<Nelk::EthAddr> macAddress(std::string_view text) {
  std::array<std::uint8_t, 6> octets{};
  for (std::size_t i = 0; i < 6; ++i) {
    std::size_t colon = text.find(':');
    if ((i < 5) != (colon != std::string_view::npos)) return std::nullopt;
    std::string_view part = text.substr(0, colon);
    if (part.empty() || part.size() > 2) return std::nullopt;
    auto v = number("0x" + std::string(part), 0xff);
    if (!v) return std::nullopt;
    octets[i] = static_cast<std::uint8_t>(*v);
    text = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
  }
  return Nelk::EthAddr(octets);
}

// `text` cut at every '/'.
std::vector<std::string_view> slashParts(std::string_view text) {
  std::vector<std::string_view> parts;
  for (std::size_t slash; (slash = text.find('/')) != std::string_view::npos; text.remove_prefix(slash + 1)) {
    parts.push_back(text.substr(0, slash));
  }
  parts.push_back(text);
  return parts;
}

// "priority/extension/MAC"
std::optional<Stp::BridgeId> bridgeId(std::string_view text) {
  const auto p = slashParts(text);
  if (p.size() != 3) return std::nullopt;
  auto prio = number(p[0], 0xffff);
  auto ext = number(p[1], 0xffff);
  auto addr = macAddress(p[2]);
  if (!prio || !ext || !addr) return std::nullopt;
  return Stp::BridgeId{static_cast<std::uint16_t>(*prio), static_cast<std::uint16_t>(*ext), *addr};
}

// "priority/number"
std::optional<Stp::PortId> portId(std::string_view text) {
  const auto p = slashParts(text);
  if (p.size() != 2) return std::nullopt;
  auto prio = number(p[0], 0xff);
  auto num = number(p[1], 0xffff);
  if (!prio || !num) return std::nullopt;
  return Stp::PortId(static_cast<std::uint8_t>(*prio), static_cast<std::uint16_t>(*num));
}

// 32 hex digits, optionally after "0x".
std::optional<Stp::MstpConfigDigest> digest(std::string_view text) {
  if (text.starts_with("0x") || text.starts_with("0X")) text.remove_prefix(2);
  if (text.size() != 32) return std::nullopt;
  Stp::MstpConfigDigest d;
  for (std::size_t i = 0; i < d.octets.size(); ++i) {
    const std::string pair(text.substr(2 * i, 2));
    if (pair.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return std::nullopt;
    d.octets[i] = static_cast<std::uint8_t>(std::strtoul(pair.c_str(), nullptr, 16));
  }
  return d;
}

// "ID/FLAGS/ROOTPRIO/ROOTMAC/COST/BRIDGEPRIO/PORTPRIO/HOPS"
std::optional<MstiValues> msti(std::string_view text) {
  const auto p = slashParts(text);
  if (p.size() != 8) return std::nullopt;
  auto id = number(p[0], 0xffff);
  auto flags = number(p[1], 0xff);
  auto rootPrio = number(p[2], 0xffff);
  auto rootMac = macAddress(p[3]);
  auto cost = number(p[4], 0xffffffff);
  auto bridgePrio = number(p[5], 0xffff);
  auto portPrio = number(p[6], 0xff);
  auto hops = number(p[7], 0xff);
  if (!id || *id == 0 || !flags || !rootPrio || !rootMac || !cost || !bridgePrio || !portPrio || !hops) {
    return std::nullopt;
  }
  MstiValues m;
  m.mstid = static_cast<std::uint16_t>(*id);
  m.flags = Stp::RstpBpduFlags{static_cast<std::uint8_t>(*flags)};
  m.regionalRootPriority = static_cast<std::uint16_t>(*rootPrio);
  m.regionalRootAddress = *rootMac;
  m.intRootPathCost = static_cast<Stp::PathCost>(*cost);
  m.bridgePriority = static_cast<std::uint16_t>(*bridgePrio);
  m.portPriority = static_cast<std::uint8_t>(*portPrio);
  m.remainingHops = static_cast<std::uint8_t>(*hops);
  return m;
}

// A frame to write: the record's values and the link header's tag.
struct FrameRecipe {
  RecordValues values;
  bool tagged = false;
  std::uint16_t vlan = 0;
};

std::optional<FrameRecipe> parseRecord(std::string_view items, std::string& error) {
  FrameRecipe recipe;
  RecordValues& v = recipe.values;
  std::set<std::uint16_t> mstids;
  while (!items.empty()) {
    std::size_t comma = items.find(',');
    std::string_view item = items.substr(0, comma);
    items = comma == std::string_view::npos ? std::string_view() : items.substr(comma + 1);
    std::size_t eq = item.find('=');
    if (eq == std::string_view::npos) {
      error = "expected FIELD=VALUE, got '" + std::string(item) + "'";
      return std::nullopt;
    }
    std::string_view field = item.substr(0, eq);
    std::string_view value = item.substr(eq + 1);
    bool ok = true;
    // Parses a number of at most `max` into `target`.
    auto set = [&](auto& target, unsigned long max) {
      auto n = number(value, max);
      if (n) target = static_cast<std::remove_reference_t<decltype(target)>>(*n);
      ok = n.has_value();
    };
    auto timer = [&](Stp::TimerVal& t) {
      std::uint16_t wire = 0;
      set(wire, 0xffff);
      t = Stp::TimerVal::fromWire(wire);
    };
    if (field == "version") {
      set(v.version.value, 0xff);
    } else if (field == "type") {
      set(v.type.value, 0xff);
    } else if (field == "vlan") {
      set(recipe.vlan, 0x0fff);
      recipe.tagged = true;
    } else if (field == "flags") {
      set(v.cist.flags.value, 0xff);
    } else if (field == "root" || field == "bridge" || field == "regroot") {
      auto id = bridgeId(value);
      if (id) (field == "root" ? v.cist.rootId : field == "bridge" ? v.cist.bridgeId : v.cistRegionalRoot) = *id;
      ok = id.has_value();
    } else if (field == "cost") {
      set(v.cist.rootPathCost, 0xffffffff);
    } else if (field == "port") {
      auto id = portId(value);
      if (id) v.cist.portId = *id;
      ok = id.has_value();
    } else if (field == "age") {
      timer(v.cist.messageAge);
    } else if (field == "maxage") {
      timer(v.cist.maxAge);
    } else if (field == "hello") {
      timer(v.cist.helloTime);
    } else if (field == "fwd") {
      timer(v.cist.fwdDelay);
    } else if (field == "name") {
      v.configName = std::string(value);  // a name too long to send is the encoder's to refuse
    } else if (field == "revision") {
      set(v.configRevision, 0xffff);
    } else if (field == "digest") {
      auto d = digest(value);
      if (d) v.configDigest = *d;
      ok = d.has_value();
    } else if (field == "intcost") {
      set(v.cistIntRootPathCost, 0xffffffff);
    } else if (field == "hops") {
      set(v.cistRemainingHops, 0xff);
    } else if (field == "msti") {
      auto m = msti(value);
      if (m && !mstids.insert(m->mstid).second) {
        error = "msti " + std::to_string(m->mstid) + " given twice";
        return std::nullopt;
      }
      if (m) v.mstis.push_back(*m);
      ok = m.has_value();
    } else {
      error = "unknown field '" + std::string(field) + "'";
      return std::nullopt;
    }
    if (!ok) {
      error = "bad value for " + std::string(field) + ": '" + std::string(value) + "'";
      return std::nullopt;
    }
  }
  return recipe;
}

// Frames other than untagged RST ones, which dumpRstFrame annotates, are dumped as plain hex.
void dumpHex(std::ostream& os, const std::uint8_t* frame, std::size_t size) {
  for (std::size_t offset = 0; offset < size; offset += 16) {
    char head[24];
    std::snprintf(head, sizeof head, "%4zu  ", offset);
    os << head << StpTxRx::tools::detail::hexOctets(frame + offset, std::min<std::size_t>(16, size - offset)) << '\n';
  }
}

// `text` with its control characters as \xNN, so that a frame always prints as one line.
std::string printable(std::string_view text) {
  std::string out;
  for (char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u >= 0x20 && u != 0x7f) {
      out += c;
    } else {
      char hex[5];
      std::snprintf(hex, sizeof hex, "\\x%02x", u);
      out += hex;
    }
  }
  return out;
}

// ---- the line of one received frame

// A timer in seconds: wire / 256 is exact in at most eight decimals.
std::string seconds(Stp::TimerVal t) {
  char text[32];
  std::snprintf(text, sizeof text, "%.8f", t.wire() / 256.0);
  std::string s(text);
  s.erase(s.find_last_not_of('0') + 1);
  if (s.back() == '.') s.pop_back();
  return s + 's';
}

// The flags octet by name (see usage()). `cist`: the common instance's flags, whose top bit is the TC
// acknowledgment (an MSTI's is the master flag) and whose role 0 is unknown (an MSTI's is master).
std::string flagNames(Stp::RstpBpduFlags flags, StpTxRx::BpduKind kind, bool cist) {
  static const char* const roles[] = {"role:unknown", "role:alternate/backup", "role:root", "role:designated"};
  const unsigned v = flags.value;
  const unsigned role = (v >> 2) & 3;
  std::string out;
  auto add = [&out](const char* name) { out += out.empty() ? name : std::string(",") + name; };
  if (v & 0x01) add("tc");
  if (v & 0x02) add("proposal");
  if (role != 0 || kind != StpTxRx::BpduKind::Config) add(role == 0 && !cist ? "role:master" : roles[role]);
  if (v & 0x10) add("learning");
  if (v & 0x20) add("forwarding");
  if (v & 0x40) add("agreement");
  if (v & 0x80) add(cist ? "tca" : "master");
  return out.empty() ? "none" : out;
}

// The line of one frame (without its number): `record` holds what a valid frame carried.
std::string frameLine(const StpTxRx::BpduDecodeResult& r, const StpTxRx::IntxInfo* record, std::size_t size) {
  using StpTxRx::BpduKind;
  std::ostringstream os;
  if (r.reject == StpTxRx::BpduReason::rateLimited) return "rate-limited";
  if (!r.valid()) {
    os << "reject: " << StpTxRx::bpduReasonText(r.reject);
  } else {
    os << StpTxRx::bpduKindName(r.kind);
  }
  if (r.tagged) os << " vlan " << r.vlan;
  if (size >= 12) os << " src " << r.source;  // the source is known once the frame reaches it
  if (!r.valid() || r.kind == BpduKind::Tcn || !record) return os.str();
  if (r.rstFallback != StpTxRx::BpduReason::none) {
    os << " (read as RST: " << StpTxRx::bpduReasonText(r.rstFallback) << ")";
  }
  const auto cist = record->mstiN(Stp::BridgeSystemId(0));
  if (!cist) return os.str();
  os << " flags=" << flagNames(cist->flags(), r.kind, true) << " root=" << cist->cistRootBridgeId()
     << " cost=" << cist->cistExtRootPathCost() << " bridge=" << cist->bridgeId() << " port=" << cist->portId()
     << " age=" << seconds(cist->messageAge()) << " maxage=" << seconds(cist->maxAge())
     << " hello=" << seconds(cist->helloTime()) << " fwd=" << seconds(cist->fwdDelay());
  if (r.kind != BpduKind::Mst) return os.str();
  os << " regroot=" << cist->cistRegionalRootBridgeId() << " intcost=" << cist->intRootPathCost()
     << " hops=" << unsigned{cist->remainingHops()} << " name=\"" << printable(record->configNameString().view())
     << "\" revision=" << record->configRevisionLevel() << " digest=" << record->configDigest();
  for (const auto& [id, e] : record->mstiN()) {
    if (id.value() == 0) continue;
    os << " [msti " << id << " flags=" << flagNames(e->flags(), r.kind, false) << " regroot=" << e->regionalRootBridgeId()
       << " intcost=" << e->intRootPathCost() << " bridge=" << e->bridgeId() << " port=" << e->portId()
       << " hops=" << unsigned{e->remainingHops()} << "]";
  }
  return os.str();
}

struct RateLimit {
  std::uint32_t count = 0;
  double seconds = 0;
};

// "COUNT/SECONDS": a count and a positive number of seconds.
std::optional<RateLimit> rateLimit(std::string_view text) {
  const auto p = slashParts(text);
  if (p.size() != 2) return std::nullopt;
  const auto count = number(p[0], 0xffffffff);
  const std::string s(p[1]);
  char* end = nullptr;
  const double secs = std::strtod(s.c_str(), &end);
  if (!count || s.empty() || *end != '\0' || !(secs > 0) || secs > 1e9) return std::nullopt;
  return RateLimit{static_cast<std::uint32_t>(*count), secs};
}

// One port of a receive status and its receiver: what --read and --listen hand every frame to.
class ReceivingPort {
 public:
  ReceivingPort(const std::string& name, const std::optional<RateLimit>& limit)
      : status_(StpTxRx::RxStatus::RxStatusIs()),
        port_(status_->rxMstStatusIs(Zek::Name("stptxrx-pcap"))->rxMstPortStatusIs(Nelk::IntfId(name.c_str()))),
        receiver_(port_) {
    if (limit) {
      port_->rateLimitMaxCountIs(limit->count);
      port_->rateLimitIntervalIs(limit->seconds);
      port_->rateLimitEnabledIs(true);
    }
  }

  // Receives one frame, arrived at its timestamp: its numbered line and the verdict.
  std::pair<std::string, StpTxRx::BpduDecodeResult> receive(const StpTxRx::tools::PcapFrame& frame) {
    ++frames_;
    const StpTxRx::BpduDecodeResult r = receiver_.frameIs(noVlan, frame.data.data(), frame.data.size(), frame.time);
    const auto record = port_->rxInfo(noVlan);
    return {std::to_string(frames_) + ' ' + printable(frameLine(r, record.get(), frame.data.size())), r};
  }
  StpTxRx::IntxInfo::Ptr record() const { return port_->rxInfo(noVlan); }

  // The closing line, read back from the port's counters once the receiver has published its drops.
  std::string summary() {
    receiver_.flush();
    std::ostringstream os;
    os << "summary: frames=" << port_->bpduCount() << ' ' << port_->counters();
    return os.str();
  }

 private:
  static constexpr Bridging::VlanIdOrNone noVlan{};
  StpTxRx::RxStatus::Ptr status_;
  StpTxRx::RxMstPortStatus::Ptr port_;
  StpTxRx::BpduReceiver receiver_;
  std::size_t frames_ = 0;
};

// Why a captured frame is not sent again (--rewrite, --replay).
enum class Skip { none, rejected, otherKind };

// The frame the library encodes from a valid decode `r` of `record`, sent from the frame's source and
// tagged as it was; a version 3+ BPDU read as RST keeps its version, which the encoder sends as MST, so
// a re-encoding of another kind is skipped.
StpTxRx::BpduEncodeResult reencode(const StpTxRx::BpduDecodeResult& r, const StpTxRx::IntxInfo::Ptr& record,
                                   Skip& skip) {
  static const Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"));
  static const Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  skip = Skip::rejected;
  if (!r.valid() || !record) return {};
  port->portAddrIs(r.source);
  StpTxRx::BpduEncodeResult e = StpTxRx::generateBpduFromIntxInfo(portSm, record, r.tagged, r.vlan);
  skip = e && e.kind == r.kind ? Skip::none : Skip::otherKind;
  return e;
}

std::string skippedNote(std::size_t rejected, std::size_t otherKind, std::size_t limited) {
  std::ostringstream os;
  os << rejected + otherKind + limited << " skipped (" << rejected << " rejected, " << otherKind
     << " not re-encoded as the same kind" << (limited ? ", " + std::to_string(limited) + " rate-limited" : "")
     << ")";
  return os.str();
}

// --read, and --rewrite when `output` is set.
int readCapture(const std::string& input, const std::optional<std::string>& output,
                const std::optional<RateLimit>& limit) {
  StpTxRx::tools::PcapReader reader(input);
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << input << ": " << reader.error() << "\n";
    return 1;
  }
  std::optional<StpTxRx::tools::PcapWriter> writer;
  if (output) {
    writer.emplace(*output);
    if (!writer->ok()) {
      std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << writer->error() << "\n";
      return 1;
    }
  }
  ReceivingPort port("capture", limit);
  std::size_t rejected = 0, otherKind = 0, limited = 0;
  StpTxRx::tools::PcapFrame frame;
  while (reader.next(frame)) {
    const auto [line, r] = port.receive(frame);
    std::cout << line << '\n';
    if (!writer) continue;
    if (r.reject == StpTxRx::BpduReason::rateLimited) {
      ++limited;
      continue;
    }
    Skip skip;
    const StpTxRx::BpduEncodeResult e = reencode(r, port.record(), skip);
    rejected += skip == Skip::rejected;
    otherKind += skip == Skip::otherKind;
    if (skip == Skip::none && !writer->write(*e.pkt, frame.time)) break;
  }
  std::cout << port.summary() << std::endl;
  int status = 0;
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << input << ": " << reader.error() << "\n";
    status = 1;
  }
  if (writer) {
    if (!writer->close()) {
      std::cerr << "stptxrx-pcap: writing " << *output << " failed: " << writer->error() << "\n";
      return 1;
    }
    std::cerr << "stptxrx-pcap: " << writer->frames() << " frame(s) written to " << *output << ", "
              << skippedNote(rejected, otherKind, limited) << "\n";
  }
  return status;
}

volatile std::sig_atomic_t stopRequested = 0;
extern "C" void requestStop(int) { stopRequested = 1; }

// --listen: prints each BPDU as it arrives until `count` frames (0: no limit), `timeout` seconds or a
// signal, then the summary.
int listen(const std::string& iface, std::size_t count, std::optional<double> timeout,
           const std::optional<RateLimit>& limit) {
  StpTxRx::tools::PcapPort pcap(iface, StpTxRx::tools::PcapPort::Use::receive);
  if (!pcap.error().empty()) {
    std::cerr << "stptxrx-pcap: " << pcap.error() << "\n";
    return 1;
  }
  struct sigaction action{};
  action.sa_handler = requestStop;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  std::cerr << "stptxrx-pcap: listening on " << iface << std::endl;

  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                           std::chrono::duration<double>(timeout.value_or(0)));
  ReceivingPort port(iface, limit);
  std::size_t frames = 0;
  int status = 0;
  StpTxRx::tools::PcapFrame frame;
  while (!stopRequested && (count == 0 || frames < count)) {
    int waitMs = 200;
    if (timeout) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) break;
      waitMs = static_cast<int>(std::min<long long>(waitMs, left));
    }
    const int rc = pcap.next(frame, waitMs);
    if (rc < 0) {
      std::cerr << "stptxrx-pcap: " << iface << ": " << pcap.pcapError() << "\n";
      status = 1;
      break;
    }
    if (rc == 0) continue;
    ++frames;
    std::cout << port.receive(frame).first << std::endl;
  }
  std::cout << port.summary() << std::endl;
  return status;
}

// --send: every frame of `frames`, `rounds` times, `interval` seconds apart.
int send(const std::string& iface, const std::vector<std::vector<std::uint8_t>>& frames, std::size_t rounds,
         double interval) {
  StpTxRx::tools::PcapPort pcap(iface, StpTxRx::tools::PcapPort::Use::send);
  if (!pcap.error().empty()) {
    std::cerr << "stptxrx-pcap: " << pcap.error() << "; nothing sent\n";
    return 1;
  }
  std::size_t sent = 0;
  for (std::size_t round = 0; round < rounds; ++round) {
    if (round > 0) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    for (const auto& f : frames) {
      if (!pcap.send(f.data(), f.size())) {
        std::cerr << "stptxrx-pcap: " << iface << ": sending failed after " << sent << " frame(s): " << pcap.pcapError()
                  << "\n";
        return 1;
      }
      ++sent;
    }
  }
  std::cerr << "stptxrx-pcap: " << sent << " frame(s) sent on " << iface << "\n";
  return 0;
}

// --replay: the frames of `path` as --rewrite would write them; false (after saying why) when the file
// cannot be read whole.
bool replayFrames(const std::string& path, std::vector<std::vector<std::uint8_t>>& out) {
  StpTxRx::tools::PcapReader reader(path);
  std::size_t rejected = 0, otherKind = 0, kept = 0;
  StpTxRx::tools::PcapFrame frame;
  while (reader.next(frame)) {
    StpTxRx::IntxInfo::Ptr record = StpTxRx::IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
    const auto r = StpTxRx::generateIntxInfoFromPkt(frame.data.data(), frame.data.size(), record.get());
    Skip skip;
    const StpTxRx::BpduEncodeResult e = reencode(r, record, skip);
    rejected += skip == Skip::rejected;
    otherKind += skip == Skip::otherKind;
    if (skip != Skip::none) continue;
    out.emplace_back(e.pkt->data(), e.pkt->data() + e.pkt->size());
    ++kept;
  }
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << path << ": " << reader.error() << "; nothing sent\n";
    return false;
  }
  std::cerr << "stptxrx-pcap: " << path << ": " << kept << " frame(s) to replay, "
            << skippedNote(rejected, otherKind, 0) << "\n";
  return true;
}

// What --send, or writing a file, takes in order: a record to encode or a capture to replay.
struct Source {
  std::optional<FrameRecipe> recipe;
  std::string replay;
};

}  // namespace

int main(int argc, char** argv) {
  const std::vector<StpTxRx::tools::NamedSample> samples = StpTxRx::tools::sampleRecords();
  std::vector<Source> sources;
  std::optional<std::string> output, readPath, rewritePath, listenIface, sendIface;
  std::optional<RateLimit> limit;
  std::optional<std::size_t> count;
  std::optional<double> interval, timeout;
  Nelk::EthAddr src(0x02, 0x00, 0x00, 0x00, 0x00, 0x01);
  bool writeOptions = false;  // an option that only writing frames (to a file or an interface) uses
  bool dump = false;

  auto fail = [](const std::string& message) {
    std::cerr << "stptxrx-pcap: " << message << "\nTry 'stptxrx-pcap --help'.\n";
    return 2;
  };
  auto secondsOf = [](std::string_view text) -> std::optional<double> {
    const std::string s(text);
    char* end = nullptr;
    const double v = std::strtod(s.c_str(), &end);
    if (s.empty() || *end != '\0' || !(v >= 0) || v > 1e9) return std::nullopt;
    return v;
  };

  for (int i = 1; i < argc; ++i) {
    std::string_view arg = argv[i];
    auto operand = [&]() -> std::optional<std::string_view> {
      if (i + 1 >= argc) return std::nullopt;
      return std::string_view(argv[++i]);
    };
    if (arg == "--help" || arg == "-h") {
      usage(std::cout);
      return 0;
    } else if (arg == "--list") {
      for (const auto& s : samples) std::cout << s.name << "\t" << s.description << "\n";
      return 0;
    } else if (arg == "--dump") {
      dump = writeOptions = true;
    } else if (arg == "--sample") {
      auto name = operand();
      if (!name) return fail("--sample needs a name");
      auto s = std::find_if(samples.begin(), samples.end(), [&](const auto& s) { return s.name == *name; });
      if (s == samples.end()) return fail("no sample named '" + std::string(*name) + "' (see --list)");
      FrameRecipe recipe;
      recipe.values.cist = s->values;
      sources.push_back({recipe, {}});
      writeOptions = true;
    } else if (arg == "--record") {
      auto items = operand();
      if (!items) return fail("--record needs FIELD=VALUE,...");
      std::string error;
      auto recipe = parseRecord(*items, error);
      if (!recipe) return fail("--record: " + error);
      sources.push_back({recipe, {}});
      writeOptions = true;
    } else if (arg == "--src") {
      auto text = operand();
      auto mac = text ? macAddress(*text) : std::nullopt;
      if (!mac) return fail("--src needs a MAC address such as 02:00:00:00:00:01");
      src = *mac;
      writeOptions = true;
    } else if (arg == "--read" || arg == "--rewrite" || arg == "--replay" || arg == "--listen" || arg == "--send") {
      auto operandText = operand();
      if (!operandText || operandText->empty()) return fail(std::string(arg) + " needs a file or interface name");
      const std::string value(*operandText);
      if (arg == "--replay") {
        sources.push_back({std::nullopt, value});
      } else {
        auto& slot = arg == "--read" ? readPath : arg == "--rewrite" ? rewritePath : arg == "--listen" ? listenIface : sendIface;
        if (slot) return fail(std::string(arg) + " given twice");
        slot = value;
      }
    } else if (arg == "--rate-limit") {
      auto text = operand();
      limit = text ? rateLimit(*text) : std::nullopt;
      if (!limit) return fail("--rate-limit needs COUNT/SECONDS such as 10/1");
    } else if (arg == "--count") {
      auto text = operand();
      auto n = text ? number(*text, 1u << 30) : std::nullopt;
      if (!n) return fail("--count needs a number");
      count = *n;
    } else if (arg == "--interval" || arg == "--timeout") {
      auto text = operand();
      auto v = text ? secondsOf(*text) : std::nullopt;
      if (!v) return fail(std::string(arg) + " needs a number of seconds");
      (arg == "--interval" ? interval : timeout) = *v;
    } else if (!arg.empty() && arg[0] == '-') {
      return fail("unknown option '" + std::string(arg) + "'");
    } else if (output) {
      return fail("more than one output file given");
    } else {
      output = std::string(arg);
    }
  }

  const bool replaying = std::any_of(sources.begin(), sources.end(), [](const Source& s) { return !s.recipe; });
  if (int(readPath.has_value()) + int(listenIface.has_value()) + int(sendIface.has_value()) > 1) {
    return fail("--read, --listen and --send go one at a time");
  }
  if (rewritePath && !readPath) return fail("--rewrite needs --read");
  if (limit && !readPath && !listenIface) return fail("--rate-limit goes with --read or --listen");
  if (timeout && !listenIface) return fail("--timeout goes with --listen");
  if (count && !listenIface && !sendIface) return fail("--count goes with --listen or --send");
  if (interval && !sendIface) return fail("--interval goes with --send");
  if (replaying && !sendIface) return fail("--replay goes with --send");
  if (readPath || listenIface) {
    if (writeOptions || output) {
      return fail("--read and --listen take no output file, --sample, --record, --src or --dump");
    }
    if (listenIface) return listen(*listenIface, count.value_or(0), timeout, limit);
    std::error_code ec;
    if (rewritePath && std::filesystem::equivalent(*readPath, *rewritePath, ec)) {
      return fail("--rewrite would overwrite the file being read");
    }
    return readCapture(*readPath, rewritePath, limit);
  }
  if (sendIface) {
    if (output || dump) return fail("--send takes no output file or --dump");
    if (sources.empty()) return fail("--send needs --record, --sample or --replay");
  } else {
    if (!output) return fail("no output file given");
    if (sources.empty()) {
      for (const auto& s : samples) {
        FrameRecipe recipe;
        recipe.values.cist = s.values;
        sources.push_back({recipe, {}});
      }
    }
  }

  // Every frame is built (and every capture read) before the file or interface is opened, so a record
  // the encoder refuses or a damaged capture leaves no file and sends nothing.
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), src));
  std::vector<StpTxRx::BpduEncodeResult> built;
  std::vector<const FrameRecipe*> recipes;
  std::vector<std::vector<std::uint8_t>> frames;
  std::size_t records = 0;
  for (const Source& source : sources) {
    if (!source.recipe) {
      if (!replayFrames(source.replay, frames)) return 1;
      continue;
    }
    ++records;
    const FrameRecipe& recipe = *source.recipe;
    StpTxRx::BpduEncodeResult e = StpTxRx::generateBpduFromIntxInfo(
        portSm, StpTxRx::tools::intxRecord(recipe.values), recipe.tagged, Bridging::VlanIdOrNone(recipe.vlan));
    if (!e) {
      std::cerr << "stptxrx-pcap: record " << records << " cannot be encoded: " << StpTxRx::bpduEncodeErrorText(e.error)
                << "; nothing " << (sendIface ? "sent" : "written") << "\n";
      return 1;
    }
    frames.emplace_back(e.pkt->data(), e.pkt->data() + e.pkt->size());
    built.push_back(e);
    recipes.push_back(&recipe);
  }
  if (sendIface) return send(*sendIface, frames, count.value_or(1), interval.value_or(1.0));

  StpTxRx::tools::PcapWriter writer(*output);
  if (!writer.ok()) {
    std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << writer.error() << "\n";
    return 1;
  }
  for (std::size_t i = 0; i < built.size(); ++i) {
    const Nelk::Pkt& pkt = *built[i].pkt;
    if (dump) {
      std::cout << "frame " << writer.frames() << " (" << pkt.size() << " octets, "
                << StpTxRx::bpduKindName(built[i].kind) << (recipes[i]->tagged ? ", tagged" : "") << ")\n";
      if (built[i].kind == StpTxRx::BpduKind::Rst && !recipes[i]->tagged) {
        StpTxRx::tools::dumpRstFrame(std::cout, pkt.data(), pkt.size());
      } else {
        dumpHex(std::cout, pkt.data(), pkt.size());
      }
    }
    if (!writer.write(pkt)) break;
  }
  if (!writer.close()) {
    std::cerr << "stptxrx-pcap: writing " << *output << " failed: " << writer.error() << "\n";
    return 1;
  }
  std::cerr << "stptxrx-pcap: " << writer.frames() << " frame(s) written to " << *output << "\n";
  return 0;
}
