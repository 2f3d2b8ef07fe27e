// Receiving: --read (and --rewrite), --listen, and the capture frames that --replay sends again. Every
// frame goes through a BpduReceiver on one port of a receive status and is printed as the library's
// line (writeBpduText).
#include "Tool.h"

#include <stptxrx/Stp/BpduText.h>
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/pcap/Pcap.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/RxStatus.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iostream>
#include <sstream>
#include <string>
#include <utility>

namespace PcapTool {

using StpTxRx::pcap::PcapFrame;
using StpTxRx::pcap::PcapPort;
using StpTxRx::pcap::PcapReader;
using StpTxRx::pcap::PcapWriter;

namespace {

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

  // Receives one frame, arrived at its timestamp: its numbered line and the verdict. A frame the
  // capture cut short says so, whatever the decoder made of the octets it got.
  std::pair<std::string, StpTxRx::BpduDecodeResult> receive(const PcapFrame& frame) {
    ++frames_;
    const StpTxRx::BpduDecodeResult r = receiver_.frameIs(noVlan, frame.data.data(), frame.data.size(), frame.time);
    const auto record = this->record(r);
    std::ostringstream line;
    line << frames_ << ' ';
    StpTxRx::writeBpduText(line, r, record.get(), frame.capturedLength());
    if (frame.cutShort()) line << " (captured " << frame.capturedLength() << " of " << frame.origLen << " octets)";
    return {line.str(), r};
  }
  // The record a frame the receiver answered with `r` went to: an IEEE BPDU's under no VLAN, a PVST+
  // BPDU's under its originating VLAN (an untagged TCN's under the native VLAN, here none).
  StpTxRx::IntxInfo::Ptr record(const StpTxRx::BpduDecodeResult& r) const {
    return port_->rxInfo(r.pvst() ? r.originatingVlan : noVlan);
  }

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

// The frame the library encodes from a valid decode `r` of `record`, sent from the frame's source,
// tagged as it was and in its encapsulation (a PVST+ frame for its originating VLAN); a version 3+ BPDU
// read as RST keeps its version, which the encoder sends as MST, so a re-encoding of another kind is
// skipped.
StpTxRx::BpduEncodeResult reencode(const StpTxRx::BpduDecodeResult& r, const StpTxRx::IntxInfo::Ptr& record,
                                   Skip& skip) {
  static const Stp::Port::Ptr port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"));
  static const Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(port);
  skip = Skip::rejected;
  if (!r.valid() || !record) return {};
  port->portAddrIs(r.source);
  // An untagged PVST+ TCN names no VLAN (originating VLAN 0) and carries none: any valid one writes it.
  const Bridging::VlanIdOrNone vlan = !r.pvst() ? r.vlan : r.originatingVlan ? r.originatingVlan : 1;
  StpTxRx::BpduEncodeResult e = StpTxRx::generateBpduFromIntxInfo(r.encapsulation, portSm, record, r.tagged, vlan);
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

}  // namespace

// --read, and --rewrite when `output` is set.
int readCapture(const std::string& input, const std::optional<std::string>& output,
                const std::optional<RateLimit>& limit) {
  PcapReader reader(input);
  if (!reader.error().empty()) {
    std::cerr << "stptxrx-pcap: " << input << ": " << reader.error() << "\n";
    return 1;
  }
  std::optional<PcapWriter> writer;
  if (output) {
    writer.emplace(*output);
    if (!writer->ok()) {
      std::cerr << "stptxrx-pcap: cannot write " << *output << ": " << writer->error() << "\n";
      return 1;
    }
  }
  ReceivingPort port("capture", limit);
  std::size_t rejected = 0, otherKind = 0, limited = 0;
  PcapFrame frame;
  while (reader.next(frame)) {
    const auto [line, r] = port.receive(frame);
    std::cout << line << '\n';
    if (!writer) continue;
    if (r.reject == StpTxRx::BpduReason::rateLimited) {
      ++limited;
      continue;
    }
    Skip skip;
    const StpTxRx::BpduEncodeResult e = reencode(r, port.record(r), skip);
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

namespace {
volatile std::sig_atomic_t stopRequested = 0;
extern "C" void requestStop(int) { stopRequested = 1; }
}  // namespace

// --listen: prints each BPDU as it arrives until `count` frames (0: no limit), `timeout` seconds or a
// signal, then the summary.
int listen(const std::string& iface, std::size_t count, std::optional<double> timeout,
           const std::optional<RateLimit>& limit) {
  PcapPort pcap(iface, PcapPort::Use::receive);
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
  PcapFrame frame;
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

// --replay: the frames of `path` as --rewrite would write them; false (after saying why) when the file
// cannot be read whole.
bool replayFrames(const std::string& path, std::vector<std::vector<std::uint8_t>>& out) {
  PcapReader reader(path);
  std::size_t rejected = 0, otherKind = 0, kept = 0;
  PcapFrame frame;
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

}  // namespace PcapTool
