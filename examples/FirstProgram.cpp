// A first program: an agent's transmit status mirrored into a second one, and the mirrored record sent as
// an RST BPDU. Built against the installed package only (README, "A first program").
#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/state/AgentTypes.h>

#include <iostream>

using namespace StpTxRx;

int main() {
  TxStatus::Ptr agent = TxStatus::TxStatusIs();   // what the agent writes
  TxStatus::Ptr mirror = TxStatus::TxStatusIs();  // kept equal to it
  TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(agent, mirror);

  const Nelk::IntfId port("Ethernet1");
  IntxInfo::Ptr record = agent->txMstStatusIs("mst")->txMstPortStatusIs(port)->txInfoIs(Bridging::VlanIdOrNone());
  record->stpVersionIs(Stp::StpBpduVersion{2});  // version 2, type 2: an RST BPDU
  record->intxInfoTypeIs(Stp::StpBpduType{2});
  Zek::Ptr<IntxMstiInfo> cist = record->mstiNIs(Stp::BridgeSystemId(0));
  cist->flagsIs(Stp::RstpBpduFlags{0x3c});  // designated, learning, forwarding
  cist->bridgeIdIs(Stp::BridgeId{32768, 0, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x01)});
  cist->cistRootBridgeIdIs(cist->bridgeId());
  cist->portIdIs(Stp::PortId(128, 1));
  cist->maxAgeIs(*Stp::TimerVal::fromSeconds(20));
  cist->helloTimeIs(*Stp::TimerVal::fromSeconds(2));
  cist->fwdDelayIs(*Stp::TimerVal::fromSeconds(15));

  // The mirror holds the same record now; encode it as the sending process would.
  IntxInfo::Ptr mirrored = mirror->txMstStatus("mst")->txMstPortStatus(port)->txInfo(Bridging::VlanIdOrNone());
  Stp::MstPortSm::Ptr sender =
      Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(port, Nelk::EthAddr(0x02, 0, 0, 0, 0, 0x01)));
  BpduEncodeResult frame = generateBpduFromIntxInfo(sender, mirrored, /*tagged=*/false, Bridging::VlanIdOrNone());
  if (!frame) {
    std::cerr << "not encoded: " << bpduEncodeErrorText(frame.error) << "\n";
    return 1;
  }

  // Read the frame back as a receiver would and print its line.
  IntxInfo::Ptr received = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  BpduDecodeResult r = generateIntxInfoFromPkt(frame.pkt->data(), frame.pkt->size(), received.get());
  std::cout << frame.pkt->size() << " octets: " << bpduText(r, received.get(), frame.pkt->size()) << "\n";
  const bool same = r.kind == BpduKind::Rst &&
                    received->mstiN(Stp::BridgeSystemId(0))->bridgeId() == cist->bridgeId();
  return same ? 0 : 1;
}
