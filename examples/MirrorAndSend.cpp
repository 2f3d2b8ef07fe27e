// Mirror a transmit status and send what changed, in every BPDU kind.
//
//   stptxrx_mirror_and_send [OUTPUT.pcap]   (with the companion library: the frames also go to a capture)
//
// An agent writes its transmit status; a syncer keeps a mirror equal to it; the sending process watches
// the mirrored record with a change counter and, whenever the count rises, encodes the record in the
// kind its version and type name (Configuration, TCN, RST, MST) and sends it. Here "sending" prints the
// frame's line as a receiver reads it and, when built with StpTxRx::pcap, writes it to a capture file.
#include <stptxrx/Stp/BpduRecordText.h>
#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/Stp/StpIntxInfoChangeSm.h>
#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/state/AgentTypes.h>
#if STPTXRX_HAVE_PCAP
#include <stptxrx/pcap/Pcap.h>
#endif

#include <iostream>
#include <string>

using namespace StpTxRx;

int main(int argc, char** argv) {
  const Nelk::IntfId port("Ethernet1");
  const Bridging::VlanIdOrNone noVlan;
  TxStatus::Ptr agent = TxStatus::TxStatusIs();
  TxStatus::Ptr mirror = TxStatus::TxStatusIs();
  TxStatusToTxSyncer::Ptr syncer = txStatusToTxSyncerFactory(agent, mirror);

  // The agent's record starts as an RST record built from text, as an operator would write it.
  IntxInfo::Ptr record = agent->txMstStatusIs("mst")->txMstPortStatusIs(port)->txInfoIs(noVlan);
  const RecordTextResult text = recordFromText("version=2,type=2,bridge=32768/0/02:00:00:00:00:01,port=128/1");
  if (!text) {
    std::cerr << "record: " << text.message() << "\n";
    return 1;
  }
  copyIntxInfo(intxRecord(text.recipe.values), record);

  IntxInfo::Ptr mirrored = mirror->txMstStatus("mst")->txMstPortStatus(port)->txInfo(noVlan);
  Zek::Ptr<IntxInfoChangeSm> changes = intxInfoChangeSmFactory(mirrored, noVlan);
  Stp::MstPortSm::Ptr sender = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(port, Nelk::EthAddr(2, 0, 0, 0, 0, 1)));
#if STPTXRX_HAVE_PCAP
  pcap::PcapWriter capture(argc > 1 ? argv[1] : "stptxrx-mirror.pcap");
  if (!capture.ok()) {
    std::cerr << "cannot write the capture: " << capture.error() << "\n";
    return 1;
  }
#else
  (void)argc;
  (void)argv;
#endif

  // Sends the mirrored record when the counter says it changed since the last send.
  std::uint32_t sentAt = 0;
  auto sendIfChanged = [&](const std::string& what) {
    if (changes->updatedFieldCount() == sentAt) return true;
    sentAt = changes->updatedFieldCount();
    const BpduEncodeResult e = generateBpduFromIntxInfo(sender, mirrored, /*tagged=*/false, noVlan);
    if (!e) {
      std::cerr << what << ": not encoded: " << bpduEncodeErrorText(e.error) << "\n";
      return false;
    }
    // What a receiver reads from the frame (a Configuration BPDU keeps only TC and TCA, for instance).
    const IntxInfo::Ptr heard = IntxInfo::IntxInfoIs(noVlan);
    const BpduDecodeResult r = generateIntxInfoFromPkt(e.pkt->data(), e.pkt->size(), heard.get());
    std::cout << what << ": " << e.pkt->size() << " octets, " << bpduText(r, heard.get(), e.pkt->size()) << "\n";
#if STPTXRX_HAVE_PCAP
    return capture.write(*e.pkt);
#else
    return true;
#endif
  };

  Zek::Ptr<IntxMstiInfo> cist = record->mstiN(Stp::BridgeSystemId(0));
  bool ok = sendIfChanged("RST");
  cist->flagsIs(Stp::RstpBpduFlags{0x7c});  // the agreement bit: the mirror follows, the counter rises
  ok = ok && sendIfChanged("RST, agreement");
  ok = ok && sendIfChanged("nothing changed, nothing sent");
  record->stpVersionIs(Stp::StpBpduVersion{0});  // a Configuration BPDU: only TC and TCA are defined
  record->intxInfoTypeIs(Stp::StpBpduType{0});
  ok = ok && sendIfChanged("Config");
  record->intxInfoTypeIs(Stp::StpBpduType{0x80});
  ok = ok && sendIfChanged("TCN");
  record->stpVersionIs(Stp::StpBpduVersion{3});  // MST: one message per entry other than 0
  record->intxInfoTypeIs(Stp::StpBpduType{2});
  record->configNameStringIs(Zek::String("region-1"));
  MstiValues msti;
  msti.mstid = 10;
  msti.flags = Stp::RstpBpduFlags{0x7c};
  msti.bridgePriority = 4096;
  msti.portPriority = 128;
  msti.remainingHops = 20;
  mstRecordEntry(*record->mstiNIs(Stp::BridgeSystemId(msti.mstid)), msti, goldenCist());
  ok = ok && sendIfChanged("MST");
  return ok ? 0 : 1;
}
