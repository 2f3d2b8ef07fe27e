// stptxrx-pcap: writes BPDU frames of every kind built by the library's encoder
// (generateBpduFromIntxInfo) to a pcap file, so that they can be inspected with any packet analyser; and
// reads a capture through the library's decoder (generateIntxInfoFromPkt), printing one line per frame
// and, on request, writing every frame again as re-encoded from its decoded record. See usage() for the
// options.
#include "BpduSamples.h"
#include "PcapReader.h"
#include "PcapWriter.h"

#include <stptxrx/Stp/StpBpduCodec.h>

#include <algorithm>
#include <array>
#include <cerrno>
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
#include <type_traits>
#include <vector>

namespace {

using StpTxRx::tools::MstiValues;
using StpTxRx::tools::RecordValues;

void usage(std::ostream& os) {
  os << "Usage: stptxrx-pcap [OPTIONS] OUTPUT.pcap\n"
        "       stptxrx-pcap --read INPUT.pcap [--rewrite OUTPUT.pcap]\n"
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
        "Reading: decodes every frame of INPUT.pcap and prints one line per frame on standard output:\n"
        "  N KIND[ vlan V][ (read as RST: WHY)] IntxInfo(...) IntxMstiInfo(0 ...)[ IntxMstiInfo(ID ...)...]\n"
        "  N reject: WHY[ vlan V]\n"
        "N counts frames from 1; KIND is config, tcn, rst or mst; vlan V is shown when the frame carries an\n"
        "802.1Q tag; '(read as RST: WHY)' marks a version 3 or higher BPDU that breaks an MST rule. The\n"
        "decoded record is printed whole, one IntxMstiInfo per instance. Control characters in a\n"
        "configuration name are printed as \\xNN.\n"
        "\n"
        "  --read FILE       read FILE as above\n"
        "  --rewrite OUT     with --read: encode every decoded record again (sent from the frame's source\n"
        "                    address, tagged with the frame's VLAN when the frame was tagged) and write\n"
        "                    it to OUT with the frame's timestamp; frames that do not decode, or whose\n"
        "                    record does not encode to a BPDU of the same kind, are skipped and counted\n"
        "                    on standard error\n"
        "\n"
        "  --help            show this text and exit\n"
        "\n"
        "Exit status: 0 done; 1 a record could not be encoded, or a file could not be read whole or\n"
        "written; 2 wrong usage.\n";
}

std::optional<unsigned long> number(std::string_view text, unsigned long max) {
  if (text.empty()) return std::nullopt;
  std::string s(text);
  char* end = nullptr;
  errno = 0;
  unsigned long v = std::strtoul(s.c_str(), &end, 0);
  if (errno != 0 || *end != '\0' || s[0] == '-' || v > max) return std::nullopt;
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

// `line` with its control characters as \xNN, so that a frame always prints as one line.
std::string printable(const std::string& line) {
  std::string out;
  for (char c : line) {
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

// The --read line of one decoded frame (without the frame number).
std::string frameLine(const StpTxRx::BpduDecodeResult& r, const StpTxRx::IntxInfo& record) {
  std::ostringstream os;
  if (!r.valid()) {
    os << "reject: " << StpTxRx::bpduReasonText(r.reject);
    if (r.tagged) os << " vlan " << r.vlan;
    return os.str();
  }
  os << StpTxRx::bpduKindName(r.kind);
  if (r.tagged) os << " vlan " << r.vlan;
  if (r.rstFallback != StpTxRx::BpduReason::none) {
    os << " (read as RST: " << StpTxRx::bpduReasonText(r.rstFallback) << ")";
  }
  os << ' ' << record;
  for (const auto& entry : record.mstiN()) os << ' ' << *entry.second;
  return os.str();
}

// --read, and --rewrite when `output` is set.
int readCapture(const std::string& input, const std::optional<std::string>& output) {
  StpTxRx::tools::PcapReader reader(input);
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << input << ": " << reader.error() << "\n";
    return 1;
  }
  std::optional<StpTxRx::tools::PcapWriter> writer;
  if (output) {
    writer.emplace(*output);
    if (!writer->ok()) {
      std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << std::strerror(errno) << "\n";
      return 1;
    }
  }
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"));
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  std::size_t rejected = 0;
  std::size_t otherKind = 0;
  StpTxRx::tools::PcapFrame frame;
  while (reader.next(frame)) {
    // A fresh record per frame: a TCN writes only version and type, and must not show an earlier entry.
    StpTxRx::IntxInfo::Ptr record = StpTxRx::IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
    const StpTxRx::BpduDecodeResult r =
        StpTxRx::generateIntxInfoFromPkt(frame.data.data(), frame.data.size(), record.get());
    std::cout << reader.frames() << ' ' << printable(frameLine(r, *record)) << '\n';
    if (!writer) continue;
    if (!r.valid()) {
      ++rejected;
      continue;
    }
    port->portAddrIs(r.source);
    const StpTxRx::BpduEncodeResult e = StpTxRx::generateBpduFromIntxInfo(portSm, record, r.tagged, r.vlan);
    // A version 3+ BPDU read as RST keeps its version, which the encoder sends as MST: not the same frame.
    if (!e || e.kind != r.kind) {
      ++otherKind;
      continue;
    }
    if (!writer->write(*e.pkt, frame.time)) break;
  }
  std::cout.flush();
  int status = 0;
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << input << ": " << reader.error() << "\n";
    status = 1;
  }
  if (writer) {
    if (!writer->close()) {
      std::cerr << "stptxrx-pcap: writing " << *output << " failed: " << std::strerror(errno) << "\n";
      return 1;
    }
    std::cerr << "stptxrx-pcap: " << writer->frames() << " frame(s) written to " << *output << ", "
              << rejected + otherKind << " skipped (" << rejected << " rejected, " << otherKind
              << " not re-encoded as the same kind)\n";
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<StpTxRx::tools::NamedSample> samples = StpTxRx::tools::sampleRecords();
  std::vector<FrameRecipe> records;
  std::optional<std::string> output;
  std::optional<std::string> readPath;
  std::optional<std::string> rewritePath;
  Nelk::EthAddr src(0x02, 0x00, 0x00, 0x00, 0x00, 0x01);
  bool writeOptions = false;  // an option that only writing frames uses
  bool dump = false;

  auto fail = [](const std::string& message) {
    std::cerr << "stptxrx-pcap: " << message << "\nTry 'stptxrx-pcap --help'.\n";
    return 2;
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
      bool found = false;
      for (const auto& s : samples) {
        if (s.name == *name) {
          FrameRecipe recipe;
          recipe.values.cist = s.values;
          records.push_back(recipe);
          found = true;
        }
      }
      if (!found) return fail("no sample named '" + std::string(*name) + "' (see --list)");
      writeOptions = true;
    } else if (arg == "--record") {
      auto items = operand();
      if (!items) return fail("--record needs FIELD=VALUE,...");
      std::string error;
      auto recipe = parseRecord(*items, error);
      if (!recipe) return fail("--record: " + error);
      records.push_back(*recipe);
      writeOptions = true;
    } else if (arg == "--src") {
      auto text = operand();
      auto mac = text ? macAddress(*text) : std::nullopt;
      if (!mac) return fail("--src needs a MAC address such as 02:00:00:00:00:01");
      src = *mac;
      writeOptions = true;
    } else if (arg == "--read" || arg == "--rewrite") {
      auto path = operand();
      if (!path || path->empty()) return fail(std::string(arg) + " needs a file name");
      (arg == "--read" ? readPath : rewritePath) = std::string(*path);
    } else if (!arg.empty() && arg[0] == '-') {
      return fail("unknown option '" + std::string(arg) + "'");
    } else if (output) {
      return fail("more than one output file given");
    } else {
      output = std::string(arg);
    }
  }

  if (rewritePath && !readPath) return fail("--rewrite needs --read");
  if (readPath) {
    if (writeOptions || output) return fail("--read takes no output file, --sample, --record, --src or --dump");
    std::error_code ec;
    if (rewritePath && std::filesystem::equivalent(*readPath, *rewritePath, ec)) {
      return fail("--rewrite would overwrite the file being read");
    }
    return readCapture(*readPath, rewritePath);
  }

  if (!output) return fail("no output file given");
  if (records.empty()) {
    for (const auto& s : samples) {
      FrameRecipe recipe;
      recipe.values.cist = s.values;
      records.push_back(recipe);
    }
  }

  // Every frame is built before the file is opened, so a record the encoder refuses leaves no file.
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), src));
  std::vector<StpTxRx::BpduEncodeResult> frames;
  for (const FrameRecipe& recipe : records) {
    StpTxRx::BpduEncodeResult built = StpTxRx::generateBpduFromIntxInfo(
        portSm, StpTxRx::tools::intxRecord(recipe.values), recipe.tagged, Bridging::VlanIdOrNone(recipe.vlan));
    if (!built) {
      std::cerr << "stptxrx-pcap: record " << frames.size() + 1 << " cannot be encoded: "
                << StpTxRx::bpduEncodeErrorText(built.error) << "; nothing written\n";
      return 1;
    }
    frames.push_back(built);
  }

  StpTxRx::tools::PcapWriter writer(*output);
  if (!writer.ok()) {
    std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << std::strerror(errno) << "\n";
    return 1;
  }
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const Nelk::Pkt& pkt = *frames[i].pkt;
    if (dump) {
      std::cout << "frame " << writer.frames() << " (" << pkt.size() << " octets, "
                << StpTxRx::bpduKindName(frames[i].kind) << (records[i].tagged ? ", tagged" : "") << ")\n";
      if (frames[i].kind == StpTxRx::BpduKind::Rst && !records[i].tagged) {
        StpTxRx::tools::dumpRstFrame(std::cout, pkt.data(), pkt.size());
      } else {
        dumpHex(std::cout, pkt.data(), pkt.size());
      }
    }
    if (!writer.write(pkt)) break;
  }
  if (!writer.close()) {
    std::cerr << "stptxrx-pcap: writing " << *output << " failed: " << std::strerror(errno) << "\n";
    return 1;
  }
  std::cerr << "stptxrx-pcap: " << writer.frames() << " frame(s) written to " << *output << "\n";
  return 0;
}
