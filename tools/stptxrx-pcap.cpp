// stptxrx-pcap: writes RST BPDU frames built by the library (generatePktFromIntxInfo) to a pcap file,
// so that they can be inspected with any packet analyser. See usage() for the options.
#include "BpduSamples.h"
#include "PcapWriter.h"

#include <stptxrx/Stp/StpTxRxUtils.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using StpTxRx::tools::CistValues;

void usage(std::ostream& os) {
  os << "Usage: stptxrx-pcap [OPTIONS] OUTPUT.pcap\n"
        "\n"
        "Builds untagged RST BPDU frames with the library's encoder (generatePktFromIntxInfo) and writes\n"
        "them to OUTPUT.pcap, a classic pcap file (link type Ethernet) that tshark and wireshark open:\n"
        "  tshark -r OUTPUT.pcap -V\n"
        "\n"
        "Frames are written exactly as built: 53 octets, shorter than the 60-octet Ethernet minimum and\n"
        "not padded. Frame n carries the timestamp n seconds after the epoch, so the same frames give the\n"
        "same file.\n"
        "\n"
        "Options:\n"
        "  --sample NAME     add a built-in sample record (repeatable); see --list\n"
        "  --record ITEMS    add a record from comma-separated FIELD=VALUE items (repeatable); fields not\n"
        "                    given keep the values of the 'golden' sample:\n"
        "                      flags=0x3c                      flags octet\n"
        "                      root=32768/1/00:11:22:33:44:55  root identifier: priority/extension/MAC\n"
        "                      cost=20000                      root path cost\n"
        "                      bridge=4096/0/00:aa:bb:cc:dd:ee bridge identifier\n"
        "                      port=128/3                      port identifier: priority/number\n"
        "                      age=0 maxage=0x1400 hello=0x200 fwd=0xf00\n"
        "                                                      timers, in 1/256 s as on the wire\n"
        "  --src MAC         source MAC address of the frames (default 02:00:00:00:00:01)\n"
        "  --dump            also print each frame as annotated hex on standard output\n"
        "  --list            list the built-in samples and exit\n"
        "  --help            show this text and exit\n"
        "\n"
        "Without --sample or --record every built-in sample is written.\n"
        "Exit status: 0 written, 1 the file could not be written, 2 wrong usage.\n";
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

// "priority/extension/MAC"
std::optional<Stp::BridgeId> bridgeId(std::string_view text) {
  std::size_t a = text.find('/');
  std::size_t b = a == std::string_view::npos ? a : text.find('/', a + 1);
  if (b == std::string_view::npos) return std::nullopt;
  auto prio = number(text.substr(0, a), 0xffff);
  auto ext = number(text.substr(a + 1, b - a - 1), 0xffff);
  auto addr = macAddress(text.substr(b + 1));
  if (!prio || !ext || !addr) return std::nullopt;
  return Stp::BridgeId{static_cast<std::uint16_t>(*prio), static_cast<std::uint16_t>(*ext), *addr};
}

// "priority/number"
std::optional<Stp::PortId> portId(std::string_view text) {
  std::size_t a = text.find('/');
  if (a == std::string_view::npos) return std::nullopt;
  auto prio = number(text.substr(0, a), 0xff);
  auto num = number(text.substr(a + 1), 0xffff);
  if (!prio || !num) return std::nullopt;
  return Stp::PortId(static_cast<std::uint8_t>(*prio), static_cast<std::uint16_t>(*num));
}

std::optional<CistValues> parseRecord(std::string_view items, std::string& error) {
  CistValues v = StpTxRx::tools::goldenCist();
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
    auto timer = [&](Stp::TimerVal& t) {
      auto n = number(value, 0xffff);
      if (n) t = Stp::TimerVal::fromWire(static_cast<std::uint16_t>(*n));
      ok = n.has_value();
    };
    if (field == "flags") {
      auto n = number(value, 0xff);
      if (n) v.flags = Stp::RstpBpduFlags{static_cast<std::uint8_t>(*n)};
      ok = n.has_value();
    } else if (field == "root" || field == "bridge") {
      auto id = bridgeId(value);
      if (id) (field == "root" ? v.rootId : v.bridgeId) = *id;
      ok = id.has_value();
    } else if (field == "cost") {
      auto n = number(value, 0xffffffff);
      if (n) v.rootPathCost = static_cast<Stp::PathCost>(*n);
      ok = n.has_value();
    } else if (field == "port") {
      auto id = portId(value);
      if (id) v.portId = *id;
      ok = id.has_value();
    } else if (field == "age") {
      timer(v.messageAge);
    } else if (field == "maxage") {
      timer(v.maxAge);
    } else if (field == "hello") {
      timer(v.helloTime);
    } else if (field == "fwd") {
      timer(v.fwdDelay);
    } else {
      error = "unknown field '" + std::string(field) + "'";
      return std::nullopt;
    }
    if (!ok) {
      error = "bad value for " + std::string(field) + ": '" + std::string(value) + "'";
      return std::nullopt;
    }
  }
  return v;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<StpTxRx::tools::NamedSample> samples = StpTxRx::tools::sampleRecords();
  std::vector<CistValues> records;
  std::optional<std::string> output;
  Nelk::EthAddr src(0x02, 0x00, 0x00, 0x00, 0x00, 0x01);
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
      dump = true;
    } else if (arg == "--sample") {
      auto name = operand();
      if (!name) return fail("--sample needs a name");
      bool found = false;
      for (const auto& s : samples) {
        if (s.name == *name) {
          records.push_back(s.values);
          found = true;
        }
      }
      if (!found) return fail("no sample named '" + std::string(*name) + "' (see --list)");
    } else if (arg == "--record") {
      auto items = operand();
      if (!items) return fail("--record needs FIELD=VALUE,...");
      std::string error;
      auto v = parseRecord(*items, error);
      if (!v) return fail("--record: " + error);
      records.push_back(*v);
    } else if (arg == "--src") {
      auto text = operand();
      auto mac = text ? macAddress(*text) : std::nullopt;
      if (!mac) return fail("--src needs a MAC address such as 02:00:00:00:00:01");
      src = *mac;
    } else if (!arg.empty() && arg[0] == '-') {
      return fail("unknown option '" + std::string(arg) + "'");
    } else if (output) {
      return fail("more than one output file given");
    } else {
      output = std::string(arg);
    }
  }
  if (!output) return fail("no output file given");
  if (records.empty()) {
    for (const auto& s : samples) records.push_back(s.values);
  }

  StpTxRx::tools::PcapWriter writer(*output);
  if (!writer.ok()) {
    std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << std::strerror(errno) << "\n";
    return 1;
  }
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), src));
  for (const CistValues& v : records) {
    Nelk::Pkt::Ptr pkt = StpTxRx::generatePktFromIntxInfo(portSm, StpTxRx::tools::rstRecord(v), false);
    if (!pkt) {
      std::cerr << "stptxrx-pcap: no packet could be allocated\n";
      return 1;
    }
    if (dump) {
      std::cout << "frame " << writer.frames() << " (" << pkt->size() << " octets)\n";
      StpTxRx::tools::dumpRstFrame(std::cout, pkt->data(), pkt->size());
    }
    if (!writer.write(*pkt)) break;
  }
  if (!writer.close()) {
    std::cerr << "stptxrx-pcap: writing " << *output << " failed: " << std::strerror(errno) << "\n";
    return 1;
  }
  std::cerr << "stptxrx-pcap: " << writer.frames() << " frame(s) written to " << *output << "\n";
  return 0;
}
