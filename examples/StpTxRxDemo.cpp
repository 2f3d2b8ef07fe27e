// StpTxRx demo: the typical event, end to end.
//
//   stptxrx_demo [OUTPUT.pcap]        (default ./stptxrx-demo.pcap)
//   stptxrx_demo --live IFACE BRIDGE  (as root, in a namespace where IFACE faces a port of the kernel
//                                      bridge BRIDGE: the last step alone; scripts/demo sets it up)
//   STPTXRX_TRACE='StpTxStatusSyncer/8,StpRxStatusSyncer/7-8' stptxrx_demo   (shows the syncers at work)
//
// An agent changes the flags of instance 0 on port Ethernet1; a transmit status syncer mirrors the change
// into a second status; a change counter on the mirrored record sees it; the sending side encodes the
// mirrored record with the every-kind encoder (generateBpduFromIntxInfo), as an RST BPDU and then, as
// the agent changes the record's version and type, as Configuration, TCN and MST BPDUs, and reads each
// frame back as a receiver would (one line each, the library's readable form). Then the receive side: the transmit status gives a dynamic receive
// status its shape, and a received record is copied into it; last, a neighbour's MST BPDU is decoded
// into the receiving process's status through the port's receiver, a damaged copy is turned away and a
// flood is cut off by the port's rate limit, the counters reaching the dynamic status as they change.
// Live, the agent then meets a kernel bridge: it receives the bridge's BPDU through the same receive path
// and sends a superior one encoded from its transmit record, and the bridge takes its root. Each step is
// one thing a user of the library does, in the order an agent would do it.
#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/TxStatus.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

using namespace StpTxRx;

namespace {

// Fills the common instance's entry of a transmit record as an agent would.
void fillCist(IntxMstiInfo& cist) {
  cist.flagsIs(Stp::RstpBpduFlags{0x3c});  // designated port, learning, forwarding
  cist.cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
  cist.cistExtRootPathCostIs(20000);
  cist.bridgeIdIs(Stp::BridgeId{bridgePriority(1).value, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)});
  cist.portIdIs(Stp::PortId(portPriority(8), 3));
  // Timers travel in 1/256 s; fromSeconds converts and refuses what does not fit (above 255.99 s).
  cist.messageAgeIs(*Stp::TimerVal::fromSeconds(0));
  cist.maxAgeIs(*Stp::TimerVal::fromSeconds(20));
  cist.helloTimeIs(*Stp::TimerVal::fromSeconds(2));
  cist.fwdDelayIs(*Stp::TimerVal::fromSeconds(15));
}

void step(int n, const std::string& what) { std::cout << "\nStep " << n << ": " << what << "\n"; }

int liveStep(const std::string& iface, const std::string& bridge);

}  // namespace

int main(int argc, char** argv) {
  std::cout << std::unitbuf;  // keep the steps and the syncers' trace lines (stderr) in order
  if (argc > 1 && std::strcmp(argv[1], "--live") == 0) {
    if (argc != 4) {
      std::cerr << "usage: stptxrx_demo --live IFACE BRIDGE\n";
      return 2;
    }
    return liveStep(argv[2], argv[3]);
  }
  const std::string path = argc > 1 ? argv[1] : "stptxrx-demo.pcap";
  const Zek::Name group("mst");
  const Nelk::IntfId intf("Ethernet1");
  const Bridging::VlanIdOrNone noVlan;
  const Stp::BridgeSystemId cistId(0);

  // ---- transmit side

  step(1, "the agent's transmit status, and a syncer that mirrors it into a second status");
  // The syncer runs before the agent fills its status, so every group, port and record the agent adds
  // later is mirrored the moment it appears. (A port that is already present when its group is first
  // copied would stay empty in the mirror until the next full copy.)
  TxStatus::Ptr agentTx = TxStatus::TxStatusIs();
  TxStatus::Ptr mirrorTx = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr txSyncer = txStatusToTxSyncerFactory(agentTx, mirrorTx);
  std::cout << "        mirror holds " << mirrorTx->txMstStatus().size() << " groups\n";

  step(2, "the agent adds group '" + group.str() + "', port " + intf.name().str() +
              " and the port's transmit record (no VLAN, RST, common instance)");
  TxMstStatus::Ptr agentGroup = agentTx->txMstStatusIs(group);
  TxMstPortStatus::Ptr agentPort = agentGroup->txMstPortStatusIs(intf);
  IntxInfo::Ptr agentRecord = agentPort->txInfoIs(noVlan);
  agentRecord->stpVersionIs(Stp::StpBpduVersion{2});  // version 2 and type 2 name an RST BPDU
  agentRecord->intxInfoTypeIs(Stp::StpBpduType{2});
  fillCist(*agentRecord->mstiNIs(cistId));
  IntxInfo::Ptr mirrorRecord = mirrorTx->txMstStatus(group)->txMstPortStatus(intf)->txInfo(noVlan);
  std::cout << "        agent  " << IntxInfo::PtrConst(agentRecord) << "\n"
            << "        mirror " << IntxInfo::PtrConst(mirrorRecord) << "\n"
            << "        mirrored entry equals the agent's: " << std::boolalpha
            << mirrorRecord->sameContent(*agentRecord) << "\n";

  step(3, "the sending process watches the mirrored record with a change counter");
  Zek::Ptr<IntxInfoChangeSm> counter = intxInfoChangeSmFactory(mirrorRecord, noVlan);
  std::cout << "        updatedFieldCount = " << counter->updatedFieldCount() << " (a new counter reports 1)\n";

  step(4, "the agent changes the flags of instance 0 (agreement bit set: 0x3c -> 0x7c)");
  agentRecord->mstiN(cistId)->flagsIs(Stp::RstpBpduFlags{0x7c});
  std::cout << "        mirrored flags = " << mirrorRecord->mstiN(cistId)->flags()
            << ", updatedFieldCount = " << counter->updatedFieldCount() << " (rose by 1)\n";

  step(5, "the sending process encodes the mirrored record, then every other kind as the agent changes it");
  Stp::Port::Ptr portRecord = Stp::Port::PortIs(intf, Nelk::EthAddr(0x02, 0x00, 0x00, 0x00, 0x00, 0x01));
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(portRecord);
  std::vector<Nelk::Pkt::Ptr> frames;
  // Encodes the mirrored record in the kind its version and type name and prints what a receiver reads.
  auto send = [&](const char* what) {
    const BpduEncodeResult e = generateBpduFromIntxInfo(portSm, mirrorRecord, /*tagged=*/false, noVlan);
    if (!e) {
      std::cerr << what << ": not encoded: " << bpduEncodeErrorText(e.error) << "\n";
      return false;
    }
    IntxInfo::Ptr heard = IntxInfo::IntxInfoIs(noVlan);
    const BpduDecodeResult r = generateIntxInfoFromPkt(e.pkt->data(), e.pkt->size(), heard.get());
    std::cout << "        " << what << ", " << e.pkt->size() << " octets: " << bpduText(r, heard.get(), e.pkt->size())
              << "\n";
    frames.push_back(e.pkt);
    return true;
  };
  if (!send("RST")) return 1;
  agentRecord->stpVersionIs(Stp::StpBpduVersion{0});  // a Configuration BPDU: only TC and TCA are defined
  agentRecord->intxInfoTypeIs(Stp::StpBpduType{0});
  if (!send("Config")) return 1;
  agentRecord->intxInfoTypeIs(Stp::StpBpduType{0x80});
  if (!send("TCN")) return 1;
  agentRecord->stpVersionIs(Stp::StpBpduVersion{3});  // MST: entries other than 0 go out as MSTI messages
  agentRecord->intxInfoTypeIs(Stp::StpBpduType{2});
  agentRecord->configNameStringIs(Zek::String("demo-region"));
  mstRecordEntry(*agentRecord->mstiNIs(Stp::BridgeSystemId(1)),
                 MstiValues{1, Stp::RstpBpduFlags{0x7c}, 4096, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee), 0,
                            4096, 128, 20},
                 goldenCist());
  if (!send("MST")) return 1;
  std::cout << "        change counter after the agent's edits: " << counter->updatedFieldCount() << "\n";

  step(6, "the frames go to a pcap file");
#if STPTXRX_HAVE_PCAP
  pcap::PcapWriter pcap(path);
  for (const Nelk::Pkt::Ptr& frame : frames) {
    if (!pcap.write(*frame)) break;
  }
  if (!pcap.close()) {
    std::cerr << "cannot write " << path << ": " << pcap.error() << "\n";
    return 1;
  }
  std::cout << "        wrote " << frames.size() << " frames to " << path << "; open it with: tshark -r " << path
            << " -V\n";
#else
  std::cout << "        skipped: this demo was built without libpcap (Debian: libpcap-dev), which writes captures\n";
#endif

  // ---- receive side

  step(7, "the receive side: the transmit status gives a dynamic receive status its shape");
  RxStatus::Ptr dynamicRx = RxStatus::RxStatusIs();
  TxStatusToRxSyncer::Ptr shape = txStatusToRxSyncerFactory(agentTx, dynamicRx);
  std::cout << "        dynamic status has group '" << group << "': " << bool(dynamicRx->rxMstStatus(group))
            << ", port " << intf << ": " << bool(dynamicRx->rxMstStatus(group)->rxMstPortStatus(intf)) << "\n";

  step(8, "the receiving process records a BPDU in its own receive status; a dynamic syncer copies it");
  RxStatus::Ptr receivedRx = RxStatus::RxStatusIs();
  RxStatusToRxDynamicSyncer::Ptr dynamic = rxStatusToRxDynamicSyncerFactory(receivedRx, dynamicRx);
  RxMstPortStatus::Ptr receivedPort = receivedRx->rxMstStatusIs(group)->rxMstPortStatusIs(intf);
  receivedPort->bpduCountIs(1);
  IntxInfo::Ptr receivedRecord = receivedPort->rxInfoIs(noVlan);
  receivedRecord->stpVersionIs(Stp::StpBpduVersion{2});
  fillCist(*receivedRecord->mstiNIs(cistId));
  receivedPort->rxUpdateInc(noVlan, 1);  // an update of the VLAN's record is announced by its count
  RxMstPortStatus::Ptr dynamicPort = dynamicRx->rxMstStatus(group)->rxMstPortStatus(intf);
  std::cout << "        dynamic bpduCount = " << dynamicPort->bpduCount() << ", record copied: "
            << (dynamicPort->rxInfo(noVlan) && dynamicPort->rxInfo(noVlan)->sameContent(*receivedRecord))
            << ", rxUpdate = " << dynamicPort->rxUpdate(noVlan) << "\n";

  step(9, "two more BPDUs: each announced update is passed on once");
  receivedRecord->mstiN(cistId)->flagsIs(Stp::RstpBpduFlags{0x7c});
  receivedPort->rxUpdateInc(noVlan, 1);
  receivedPort->rxUpdateInc(noVlan, 1);
  std::cout << "        source rxUpdate = " << receivedPort->rxUpdate(noVlan)
            << ", dynamic rxUpdate = " << dynamicPort->rxUpdate(noVlan) << ", dynamic flags = "
            << dynamicPort->rxInfo(noVlan)->mstiN(cistId)->flags() << "\n";

  step(10, "a neighbour's MST BPDU with two MSTIs arrives; the port's receiver files it in the receiving process's status");
  // The receiver is the port's whole receive path: rate limit, decode, record and counters. Arrival
  // times are the agent's clock in seconds; here they are made up.
  BpduReceiver receiver(receivedPort);
  RecordValues neighbour;  // the golden common instance, plus what only MST carries
  neighbour.version = Stp::StpBpduVersion{3};
  neighbour.configName = "demo-region";
  neighbour.configRevision = 1;
  neighbour.mstis = {  // MSTID, flags, regional root priority and address, cost, bridge and port priority, hops
      {1, Stp::RstpBpduFlags{0x7c}, 4096, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee), 0, 4096, 128, 20},
      {2, Stp::RstpBpduFlags{0x78}, 32768, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55), 2000, 4096, 128, 19}};
  const BpduEncodeResult sent = generateBpduFromIntxInfo(portSm, intxRecord(neighbour), false, noVlan);
  if (!sent) {
    std::cerr << "cannot encode the MST BPDU: " << bpduEncodeErrorText(sent.error) << "\n";
    return 1;
  }
  IntxInfo::Ptr carried = IntxInfo::IntxInfoIs(noVlan);  // what the frame carries, decoded on the side
  generateIntxInfoFromPkt(sent.pkt, carried);
  const BpduDecodeResult got = receiver.frameIs(noVlan, sent.pkt, 1.0);
  std::cout << "        " << sent.pkt->size() << " octets received as " << got.kind << " with "
            << unsigned{got.mstiCount} << " MSTIs\n"
            << "        dynamic " << dynamicPort->rxInfo(noVlan) << "\n"
            << "        dynamic record equals the frame's: " << dynamicPort->rxInfo(noVlan)->sameContent(*carried)
            << ", dynamic rxUpdate = " << dynamicPort->rxUpdate(noVlan) << "\n"
            << "        dynamic counters: " << dynamicPort->counters() << ", bpduCount = " << dynamicPort->bpduCount()
            << "\n";

  step(11, "a truncated copy is rejected: record and update count stay, the port counts the reject");
  const BpduDecodeResult bad = receiver.frameIs(noVlan, sent.pkt->data(), sent.pkt->size() - 20, 1.5);
  std::cout << "        " << got.kind << " frame cut to " << sent.pkt->size() - 20 << " octets: " << bad.kind << " ("
            << bpduReasonText(bad.reject) << ")\n"
            << "        dynamic record still equals the frame's: "
            << dynamicPort->rxInfo(noVlan)->sameContent(*carried) << ", dynamic rxUpdate = "
            << dynamicPort->rxUpdate(noVlan) << " (unchanged)\n"
            << "        dynamic counters: " << dynamicPort->counters() << ", bpduCount = " << dynamicPort->bpduCount()
            << "\n";

  step(12, "a flood: the port's rate limit goes on (10 BPDUs a second), 1000 copies arrive in half a second");
  receivedPort->rateLimitMaxCountIs(10);
  receivedPort->rateLimitIntervalIs(1.0);
  receivedPort->rateLimitEnabledIs(true);
  std::cout << "        dynamic rate limit: enabled " << dynamicPort->rateLimitEnabled() << ", "
            << dynamicPort->rateLimitMaxCount() << " per " << dynamicPort->rateLimitInterval() << " s\n";
  const std::uint32_t updatesBefore = dynamicPort->rxUpdate(noVlan);
  std::size_t dropped = 0;
  for (int i = 0; i < 1000; ++i) {
    dropped += receiver.frameIs(noVlan, sent.pkt, 2.0 + i * 0.0005).reject == BpduReason::rateLimited;
  }
  std::cout << "        " << 1000 - dropped << " decoded (dynamic rxUpdate +" << dynamicPort->rxUpdate(noVlan) - updatesBefore
            << "), " << dropped << " dropped before decoding and held in the receiver: " << receiver.pendingDropped()
            << "\n"
            << "        dynamic counters: " << dynamicPort->counters() << " (no write per dropped frame)\n";
  receiver.flush();  // an agent flushes when it reports; the next window would publish them as well
  std::cout << "        after the receiver's flush, one write: " << dynamicPort->counters()
            << ", bpduCount = " << dynamicPort->bpduCount() << "\n";
  return 0;
}

namespace {

#if STPTXRX_HAVE_PCAP
// The bridge's root identifier as sysfs shows it ("8000.0a1b2c3d4e5f"), or why it cannot be read.
std::string bridgeRoot(const std::string& bridge) {
  std::ifstream in("/sys/class/net/" + bridge + "/bridge/root_id");
  std::string id;
  return std::getline(in, id) ? id : "(no " + bridge + " with STP in this namespace)";
}

int liveStep(const std::string& iface, const std::string& bridge) {
  using Clock = std::chrono::steady_clock;
  const Bridging::VlanIdOrNone noVlan;
  const Stp::BridgeSystemId cistId(0);
  const auto start = Clock::now();
  auto now = [&] { return std::chrono::duration<double>(Clock::now() - start).count(); };

  step(13, "live: the agent meets the kernel bridge " + bridge + " on " + iface);
  pcap::PcapPort wire(iface, pcap::PcapPort::Use::receive);
  if (!wire.error().empty()) {
    std::cerr << "cannot open " << wire.error() << "\n";
    return 1;
  }
  std::cout << "        the bridge's root before: " << bridgeRoot(bridge) << "\n";

  // Receive: the bridge's next BPDU, through the receive path into the agent's receive status.
  RxStatus::Ptr rx = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr rxPort = rx->rxMstStatusIs(Zek::Name("mst"))->rxMstPortStatusIs(Nelk::IntfId(iface.c_str()));
  BpduReceiver receiver(rxPort);
  pcap::PcapFrame frame;
  BpduDecodeResult heard;
  while (heard.kind != BpduKind::Config && now() < 10) {
    if (wire.next(frame, 200) == 1) heard = receiver.frameIs(noVlan, frame.data.data(), frame.data.size(), now());
  }
  IntxInfo::Ptr theirs = rxPort->rxInfo(noVlan);
  if (heard.kind != BpduKind::Config || !theirs) {
    std::cerr << "no Configuration BPDU from the bridge within 10 s\n";
    return 1;
  }
  const IntxMstiInfo& their = *theirs->mstiN(cistId);
  std::cout << "        received " << heard.kind << " from " << heard.source << ": root " << their.cistRootBridgeId()
            << ", bridge " << their.bridgeId() << ", hello " << their.helloTime().seconds() << " s\n"
            << "        receive status: rxUpdate = " << rxPort->rxUpdate(noVlan) << ", counters " << rxPort->counters()
            << "\n";

  // Transmit: a Configuration BPDU naming the agent as root with priority 0, which beats any priority
  // the bridge can have, and the bridge's own timers.
  TxStatus::Ptr tx = TxStatus::TxStatusIs();
  IntxInfo::Ptr ours = tx->txMstStatusIs(Zek::Name("mst"))->txMstPortStatusIs(Nelk::IntfId(iface.c_str()))->txInfoIs(noVlan);
  ours->stpVersionIs(Stp::StpBpduVersion{0});
  ours->intxInfoTypeIs(Stp::StpBpduType{0});
  const Nelk::EthAddr agentMac(0x02, 0x00, 0x00, 0x00, 0x00, 0x01);
  IntxMstiInfo& cist = *ours->mstiNIs(cistId);
  cist.cistRootBridgeIdIs(Stp::BridgeId{0, 0, agentMac});
  cist.bridgeIdIs(Stp::BridgeId{0, 0, agentMac});
  cist.portIdIs(Stp::PortId(portPriority(8), 1));
  cist.maxAgeIs(their.maxAge());
  cist.helloTimeIs(their.helloTime());
  cist.fwdDelayIs(their.fwdDelay());
  Stp::MstPortSm::Ptr sm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId(iface.c_str()), agentMac));
  const BpduEncodeResult superior = generateBpduFromIntxInfo(sm, ours, false, noVlan);
  if (!superior) {
    std::cerr << "cannot encode: " << bpduEncodeErrorText(superior.error) << "\n";
    return 1;
  }
  std::cout << "        sending " << superior.kind << " (" << superior.pkt->size() << " octets): root "
            << cist.cistRootBridgeId() << ", once a second\n";
  const std::string expected = "0000.020000000001";
  for (int i = 0; i < 5 && bridgeRoot(bridge) != expected; ++i) {
    if (!wire.send(superior.pkt->data(), superior.pkt->size())) {
      std::cerr << "cannot send on " << iface << ": " << wire.pcapError() << "\n";
      return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  const std::string after = bridgeRoot(bridge);
  std::cout << "        the bridge's root after:  " << after
            << (after == expected ? " (the agent's bridge)" : " (unchanged: the bridge did not take our root)") << "\n";
  return after == expected ? 0 : 1;
}
#else
int liveStep(const std::string&, const std::string&) {
  step(13, "live: skipped, this demo was built without libpcap (Debian: libpcap-dev)");
  return 0;
}
#endif

}  // namespace
