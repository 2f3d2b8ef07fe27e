// StpTxRx demo: from a port's transmit record to a BPDU frame on disk.
//
//   stptxrx_demo [OUTPUT.pcap]        (default ./stptxrx-demo.pcap)
//
// Each step below is one thing a user of the library does; later steps build on the objects of the
// earlier ones.
#include "../tools/BpduSamples.h"  // dumpRstFrame
#include "../tools/PcapWriter.h"

#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/net/IntfId.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/IntxInfo.h>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
  const std::string path = argc > 1 ? argv[1] : "stptxrx-demo.pcap";

  // Step 1: the spanning-tree agent's view of the port. Its state machine reaches the port record, which
  // holds the MAC address the BPDUs are sent from.
  Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), Nelk::EthAddr(0x02, 0x00, 0x00, 0x00, 0x00, 0x01));
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  std::cout << "Step 1: port " << port->intfId() << " sends from " << port->portAddr() << "\n";

  // Step 2: the transmit record of the port: RST version, no VLAN, and the common instance's entry
  // (key 0) with the priority vector, flags and timers to send.
  StpTxRx::IntxInfo::Ptr record = StpTxRx::IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  record->stpVersionIs(Stp::StpBpduVersion{2});
  Zek::Ptr<StpTxRx::IntxMstiInfo> cist = record->mstiNIs(Stp::BridgeSystemId(0));
  cist->flagsIs(Stp::RstpBpduFlags{0x3c});  // designated role, learning, forwarding
  cist->cistRootBridgeIdIs(Stp::BridgeId{32768, 1, Nelk::EthAddr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55)});
  cist->cistExtRootPathCostIs(20000);
  cist->bridgeIdIs(Stp::BridgeId{StpTxRx::bridgePriority(1).value, 0, Nelk::EthAddr(0x00, 0xaa, 0xbb, 0xcc, 0xdd, 0xee)});
  cist->portIdIs(Stp::PortId(StpTxRx::portPriority(8), 3));
  cist->messageAgeIs(Stp::TimerVal(0x00, 0x00));  // timers in 1/256 s, octets as on the wire
  cist->maxAgeIs(Stp::TimerVal(0x14, 0x00));      // 20 s
  cist->helloTimeIs(Stp::TimerVal(0x02, 0x00));   // 2 s
  cist->fwdDelayIs(Stp::TimerVal(0x0f, 0x00));    // 15 s
  std::cout << "Step 2: record " << StpTxRx::IntxInfo::PtrConst(record) << "\n"
            << "        entry  " << *record->mstiN(Stp::BridgeSystemId(0)) << "\n";

  // Step 3: encode the record into a complete 53-octet RST BPDU frame.
  Nelk::Pkt::Ptr frame = StpTxRx::generatePktFromIntxInfo(portSm, record, false);
  if (!frame) {
    std::cerr << "Step 3: no packet could be allocated\n";
    return 1;
  }
  std::cout << "Step 3: frame of " << frame->size() << " octets:\n";
  StpTxRx::tools::dumpRstFrame(std::cout, frame->data(), frame->size());

  // Step 4: write the frame to a pcap file that any packet analyser opens.
  StpTxRx::tools::PcapWriter pcap(path);
  if (!pcap.ok() || !pcap.write(*frame) || !pcap.close()) {
    std::cerr << "Step 4: cannot write " << path << "\n";
    return 1;
  }
  std::cout << "Step 4: wrote " << path << "; open it with\n"
            << "          tshark -r " << path << " -V\n"
            << "        or, field by field,\n"
            << "          tshark -r " << path
            << " -T fields -e stp.flags -e stp.root.prio -e stp.root.hw -e stp.root.cost -e stp.port\n";
  return 0;
}
