// Receive BPDUs from a capture file or a live port into a receive status, with the port's rate limit on.
// Needs the companion library StpTxRx::pcap.
//
//   stptxrx_receive_bpdus FILE.pcap[ng]        every frame, its capture timestamp as the arrival time
//   stptxrx_receive_bpdus --live IFACE [N]     the next N BPDUs on IFACE (default 5; root or CAP_NET_RAW)
//
// Each frame goes to the port's BpduReceiver: the rate limit (here 10 BPDUs per second) first, then the
// decoder, which files a valid BPDU as the port's record of VLAN none and counts every frame by kind or
// reason. One line per frame as stptxrx-pcap prints it, then the port's counters.
#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/pcap/Pcap.h>
#include <stptxrx/state/RxStatus.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

using namespace StpTxRx;

namespace {

// One frame into the receiver, and its line.
void receive(BpduReceiver& receiver, const pcap::PcapFrame& frame, double now) {
  const Bridging::VlanIdOrNone noVlan;
  const BpduDecodeResult r = receiver.frameIs(noVlan, frame.data.data(), frame.data.size(), now);
  const IntxInfo::Ptr record = receiver.port()->rxInfo(noVlan);
  std::cout << bpduText(r, record.get(), frame.capturedLength());
  if (frame.cutShort()) std::cout << " (captured " << frame.capturedLength() << " of " << frame.origLen << " octets)";
  std::cout << "\n";
}

}  // namespace

int main(int argc, char** argv) {
  const bool live = argc >= 3 && std::string(argv[1]) == "--live";
  if (!(argc == 2 && !live) && !(live && argc <= 4)) {
    std::cerr << "usage: stptxrx_receive_bpdus FILE | --live IFACE [N]\n";
    return 2;
  }
  RxStatus::Ptr status = RxStatus::RxStatusIs();
  RxMstPortStatus::Ptr port = status->rxMstStatusIs("mst")->rxMstPortStatusIs(Nelk::IntfId("Ethernet1"));
  port->rateLimitMaxCountIs(10);
  port->rateLimitIntervalIs(1.0);
  port->rateLimitEnabledIs(true);
  BpduReceiver receiver(port);  // held beside the port for as long as frames arrive

  pcap::PcapFrame frame;
  if (!live) {
    pcap::PcapReader file(argv[1]);
    while (file.next(frame)) receive(receiver, frame, frame.time);
    if (!file.error().empty()) {
      std::cerr << argv[1] << ": " << file.error() << "\n";
      return 1;
    }
  } else {
    pcap::PcapPort wire(argv[2], pcap::PcapPort::Use::receive);
    if (!wire.error().empty()) {
      std::cerr << wire.error() << "\n";
      return 1;
    }
    const long wanted = argc == 4 ? std::strtol(argv[3], nullptr, 10) : 5;
    const auto start = std::chrono::steady_clock::now();
    for (long got = 0; got < wanted;) {
      const int rc = wire.next(frame, 1000);
      if (rc < 0) {
        std::cerr << argv[2] << ": " << wire.pcapError() << "\n";
        return 1;
      }
      if (rc == 0) continue;
      ++got;
      receive(receiver, frame, std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
  }
  receiver.flush();  // the dropped frames reach the counters now
  std::cout << "frames=" << port->bpduCount() << " " << port->counters() << "\n";
  return 0;
}
