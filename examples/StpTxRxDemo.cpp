// StpTxRx demo: the typical event, end to end.
//
//   stptxrx_demo [OUTPUT.pcap]        (default ./stptxrx-demo.pcap)
//   STPTXRX_TRACE='StpTxStatusSyncer/8,StpRxStatusSyncer/7-8' stptxrx_demo   (shows the syncers at work)
//
// An agent changes the flags of instance 0 on port Ethernet1; a transmit status syncer mirrors the change
// into a second status; a change counter on the mirrored record sees it; the sending side encodes the
// mirrored record into a BPDU frame. Then the receive side: the transmit status gives a dynamic receive
// status its shape, and a received record is copied into it; last, a neighbour's MST BPDU is decoded
// into the receiving process's status and a damaged copy of it is turned away. Each step is one thing a
// user of the library does, in the order an agent would do it.
#include "../tools/BpduSamples.h"  // dumpRstFrame, intxRecord
#include "../tools/PcapWriter.h"

#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/Stp/StpRxStatusSyncer.h>
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/TxStatus.h>

#include <cstdio>
#include <iostream>
#include <string>

using namespace StpTxRx;

namespace {

// Fills the common instance's entry of a transmit record as an agent would.
void fillCist(IntxMstiInfo& cist) {
  cist.flagsIs(Stp::RstpBpduFlags{0x3c});  // designated port, learning, forwarding
  cist.cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
  cist.cistExtRootPathCostIs(20000);
  cist.bridgeIdIs(Stp::BridgeId{bridgePriority(1).value, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)});
  cist.portIdIs(Stp::PortId(portPriority(8), 3));
  cist.messageAgeIs(Stp::TimerVal(0x00, 0x00));  // timers in 1/256 s, octets as on the wire
  cist.maxAgeIs(Stp::TimerVal(0x14, 0x00));      // 20 s
  cist.helloTimeIs(Stp::TimerVal(0x02, 0x00));   // 2 s
  cist.fwdDelayIs(Stp::TimerVal(0x0f, 0x00));    // 15 s
}

void step(int n, const std::string& what) { std::cout << "\nStep " << n << ": " << what << "\n"; }

}  // namespace

int main(int argc, char** argv) {
  std::cout << std::unitbuf;  // keep the steps and the syncers' trace lines (stderr) in order
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
  agentRecord->stpVersionIs(Stp::StpBpduVersion{2});
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

  step(5, "the sending process encodes the mirrored record into an RST BPDU");
  Stp::Port::Ptr portRecord = Stp::Port::PortIs(intf, Nelk::EthAddr(0x02, 0x00, 0x00, 0x00, 0x00, 0x01));
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(portRecord);
  Nelk::Pkt::Ptr frame = generatePktFromIntxInfo(portSm, mirrorRecord, false);
  if (!frame) {
    std::cerr << "no packet could be allocated\n";
    return 1;
  }
  std::printf("        %zu octets; body offset 4 (frame offset 21) holds the flags: 0x%02x\n", frame->size(),
              frame->data()[17 + 4]);
  tools::dumpRstFrame(std::cout, frame->data(), frame->size());

  step(6, "the frame goes to a pcap file");
  tools::PcapWriter pcap(path);
  if (!pcap.ok() || !pcap.write(*frame) || !pcap.close()) {
    std::cerr << "cannot write " << path << "\n";
    return 1;
  }
  std::cout << "        wrote " << path << "; open it with: tshark -r " << path << " -V\n";

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

  step(10, "a neighbour's MST BPDU with two MSTIs arrives; receiveBpdu files it in the receiving process's status");
  tools::RecordValues neighbour;  // the golden common instance, plus what only MST carries
  neighbour.version = Stp::StpBpduVersion{3};
  neighbour.configName = "demo-region";
  neighbour.configRevision = 1;
  neighbour.mstis = {  // MSTID, flags, regional root priority and address, cost, bridge and port priority, hops
      {1, Stp::RstpBpduFlags{0x7c}, 4096, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee), 0, 4096, 128, 20},
      {2, Stp::RstpBpduFlags{0x78}, 32768, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55), 2000, 4096, 128, 19}};
  const BpduEncodeResult sent = generateBpduFromIntxInfo(portSm, tools::intxRecord(neighbour), false, noVlan);
  if (!sent) {
    std::cerr << "cannot encode the MST BPDU: " << bpduEncodeErrorText(sent.error) << "\n";
    return 1;
  }
  IntxInfo::Ptr carried = IntxInfo::IntxInfoIs(noVlan);  // what the frame carries, decoded on the side
  generateIntxInfoFromPkt(sent.pkt, carried);
  const BpduDecodeResult got = receiveBpdu(receivedPort, noVlan, sent.pkt);
  std::cout << "        " << sent.pkt->size() << " octets received as " << got.kind << " with "
            << unsigned{got.mstiCount} << " MSTIs\n"
            << "        dynamic " << dynamicPort->rxInfo(noVlan) << "\n"
            << "        dynamic record equals the frame's: " << dynamicPort->rxInfo(noVlan)->sameContent(*carried)
            << ", dynamic rxUpdate = " << dynamicPort->rxUpdate(noVlan) << "\n";

  step(11, "a truncated copy is rejected: record and update count stay, the port counts the reject");
  const BpduDecodeResult bad = receiveBpdu(receivedPort, noVlan, sent.pkt->data(), sent.pkt->size() - 20);
  std::cout << "        " << got.kind << " frame cut to " << sent.pkt->size() - 20 << " octets: " << bad.kind << " ("
            << bpduReasonText(bad.reject) << ")\n"
            << "        dynamic record still equals the frame's: "
            << dynamicPort->rxInfo(noVlan)->sameContent(*carried) << ", dynamic rxUpdate = "
            << dynamicPort->rxUpdate(noVlan) << " (unchanged)\n"
            << "        source counters: " << receivedPort->counters() << "\n";
  return 0;
}
