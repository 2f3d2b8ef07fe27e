#pragma once
// What the BPDU codec tests share: records that hold only what the wire carries (random or fixed),
// encoding into octets, views into a frame, and tshark's reading of a capture checked field by field.
#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/state/RxStatus.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <iomanip>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace StpTxRx::bpdutest {

using Octets = std::vector<std::uint8_t>;
using Stp::BridgeId;
const Nelk::EthAddr portMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x07);
const std::string vectors = STPTXRX_TEST_DATA_DIR "/";

inline Stp::MstPortSm::Ptr portSm(const Nelk::EthAddr& mac = portMac) {
  return Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet7"), mac));
}

inline Octets octetsOf(const Nelk::Pkt::Ptr& pkt) { return Octets(pkt->data(), pkt->data() + pkt->size()); }

// "01 80 c2 ..." as octets: two hex digits each, spaces anywhere between them.
inline Octets hexOctets(std::string_view hex) {
  Octets out;
  for (std::size_t i = 0; i < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
    if (hex[i] != ' ') out.push_back(static_cast<std::uint8_t>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
  }
  return out;
}

// A record of `kind` holding only what the wire carries: the fields a kind does not carry are zero,
// MSTI bridge and port ids repeat the CIST address and port number, extensions are the MSTID; `mstis`
// MSTIs for MST (random when negative).
inline IntxInfo::Ptr randomRecord(std::mt19937& rng, BpduKind kind, const Nelk::EthAddr& source, int mstis = -1) {
  auto u = [&](unsigned lo, unsigned hi) { return std::uniform_int_distribution<unsigned>(lo, hi)(rng); };
  auto mac = [&] { return Nelk::EthAddr(u(0, 255), u(0, 255), u(0, 255), u(0, 255), u(0, 255), u(0, 255)); };
  auto bridgeId = [&](std::uint16_t ext, Nelk::EthAddr a) { return BridgeId{std::uint16_t(u(0, 15) << 12), ext, a}; };
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
inline IntxInfo::Ptr mstRecord() {
  std::mt19937 rng(3);
  return randomRecord(rng, BpduKind::Mst, portMac, 2);
}

inline Octets encode(const IntxInfo::Ptr& info, bool tagged = false, std::uint16_t vlan = 0) {
  BpduEncodeResult r = generateBpduFromIntxInfo(portSm(), info, tagged, vlan);
  EXPECT_TRUE(r) << bpduEncodeErrorText(r.error);
  return r ? octetsOf(r.pkt) : Octets{};
}

// A view of the BPDU body of an untagged frame.
template <class View>
View& body(Octets& frame, std::size_t offset = 0) {
  return *reinterpret_cast<View*>(frame.data() + bpduLinkHeaderSize + offset);
}

/// The frame of mstRecord().
inline Octets mst() { return encode(mstRecord()); }

// The line of the frame the encoder builds from `text` (the recordFromText form) as it is decoded.
inline std::string lineOf(const std::string& text) {
  const RecordTextResult r = recordFromText(text);
  EXPECT_TRUE(r) << r.message();
  const BpduEncodeResult e =
      generateBpduFromIntxInfo(r.recipe.encapsulation, portSm(), intxRecord(r.recipe.values), r.recipe.tagged, r.recipe.vlan);
  EXPECT_TRUE(e) << bpduEncodeErrorText(e.error);
  if (!e) return {};
  const IntxInfo::Ptr back = IntxInfo::IntxInfoIs(0);
  const BpduDecodeResult d = generateIntxInfoFromPkt(e.pkt->data(), e.pkt->size(), back.get());
  std::ostringstream os;
  writeBpduText(os, d, back.get(), e.pkt->size());
  EXPECT_EQ(os.str(), bpduText(d, back.get(), e.pkt->size()));
  return os.str();
}

/// tshark is there to ask.
inline bool haveTshark() { return std::system("command -v tshark >/dev/null 2>&1") == 0; }

inline std::string run(const std::string& command) {
  std::string out;
  std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
  char buffer[4096];
  while (pipe && std::fgets(buffer, sizeof buffer, pipe.get())) out += buffer;
  return out;
}

inline std::string text(const auto& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}
inline std::string hex(unsigned v, int digits = 2) {
  char b[8];
  std::snprintf(b, sizeof b, "0x%0*x", digits, v);
  return b;
}

// The fields tshark is asked for, and what it must show of a record in them: timers in seconds, one value
// per MSTI joined by commas, nothing but version and type for a TCN, no MST fields for the other kinds.
const char* const tsharkFields =
    "stp.version stp.type stp.flags stp.root.prio stp.root.ext stp.root.hw stp.root.cost stp.bridge.prio "
    "stp.bridge.ext stp.bridge.hw stp.port stp.msg_age stp.max_age stp.hello stp.forward mstp.config_name "
    "mstp.config_revision_level mstp.config_digest mstp.cist_internal_root_path_cost mstp.cist_bridge.prio "
    "mstp.cist_bridge.ext mstp.cist_bridge.hw mstp.cist_remaining_hops mstp.msti.msti_id mstp.msti.flags "
    "mstp.msti.priority mstp.msti.root.hw mstp.msti.root_cost mstp.msti.bridge_priority mstp.msti.port_priority "
    "mstp.msti.remaining_hops";
inline std::string tsharkLine(const IntxInfo& info) {
  std::ostringstream os;
  os << unsigned{info.stpVersion().value} << '|' << hex(info.intxInfoType().value) << std::setprecision(12);
  const auto e = info.mstiN(0);
  const bool mst = info.stpVersion().value >= 3;
  if (!e) return os.str() + std::string(29, '|');
  auto id = [&os](const BridgeId& b) { os << '|' << b.priority << '|' << b.systemIdExtension << '|' << b.address; };
  os << '|' << hex(e->flags().value);
  id(e->cistRootBridgeId());
  os << '|' << e->cistExtRootPathCost();
  id(mst ? e->cistRegionalRootBridgeId() : e->bridgeId());  // what the octets at 17 hold
  os << '|' << hex(Stp::portIdWire(e->portId()).value(), 4);
  for (Stp::TimerVal t : {e->messageAge(), e->maxAge(), e->helloTime(), e->fwdDelay()}) os << '|' << t.wire() / 256.0;
  if (!mst) return os.str() + std::string(16, '|');
  os << '|' << info.configNameString().str() << '|' << info.configRevisionLevel() << '|' << info.configDigest() << '|'
     << e->intRootPathCost();
  id(e->bridgeId());
  os << '|' << unsigned{e->remainingHops()};
  const std::function<std::string(const IntxMstiInfo&)> mstiFields[] = {
      [](auto& m) { return text(m.key()); }, [](auto& m) { return hex(m.flags().value); },
      [](auto& m) { return hex(m.regionalRootBridgeId().priority >> 12); },
      [](auto& m) { return text(m.regionalRootBridgeId().address); }, [](auto& m) { return text(m.intRootPathCost()); },
      [](auto& m) { return text(m.bridgeId().priority >> 12); }, [](auto& m) { return text(m.portId().priority >> 4); },
      [](auto& m) { return text(unsigned{m.remainingHops()}); }};
  for (const auto& field : mstiFields) {
    std::string joined;
    for (const auto& [key, m] : info.mstiN()) joined += key.value() == 0 ? "" : (joined.empty() ? "" : ",") + field(*m);
    os << '|' << joined;
  }
  return os.str();
}

// tshark reads every frame of `path` as `records` say (one per frame), without a malformed packet.
inline void expectTsharkReads(const std::string& path, const std::vector<IntxInfo::Ptr>& records) {
  std::string command = "tshark -r '" + path + "' -T fields -E separator='|'", field, line;
  for (std::istringstream fields(tsharkFields); fields >> field;) command += " -e " + field;
  std::istringstream lines(run(command + " 2>/dev/null"));
  for (std::size_t n = 0; n < records.size(); ++n) {
    ASSERT_TRUE(std::getline(lines, line)) << path;
    EXPECT_EQ(line, tsharkLine(*records[n])) << path << " frame " << n + 1;
  }
  EXPECT_EQ(run("tshark -r '" + path + "' -V 2>/dev/null | grep -ci malformed"), "0\n");
}

}  // namespace StpTxRx::bpdutest
