// Writing: the frames of every --record, --sample and --replay, built (and every capture read) before
// the output file or interface is opened, written to a classic pcap file or sent on an interface.
#include "../BpduSamples.h"
#include "Tool.h"

#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/pcap/Pcap.h>
#include <stptxrx/state/AgentTypes.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <iostream>
#include <thread>

namespace PcapTool {

using StpTxRx::pcap::PcapPort;
using StpTxRx::pcap::PcapWriter;

namespace {

// Frames other than untagged IEEE RST ones, which dumpRstFrame annotates, are dumped as plain hex.
void dumpHex(std::ostream& os, const std::uint8_t* frame, std::size_t size) {
  for (std::size_t offset = 0; offset < size; offset += 16) {
    char head[24];
    std::snprintf(head, sizeof head, "%4zu  ", offset);
    os << head << StpTxRx::tools::detail::hexOctets(frame + offset, std::min<std::size_t>(16, size - offset)) << '\n';
  }
}

// --send: every frame of `frames`, `rounds` times, `interval` seconds apart.
int send(const std::string& iface, const std::vector<std::vector<std::uint8_t>>& frames, std::size_t rounds,
         double interval) {
  PcapPort pcap(iface, PcapPort::Use::send);
  if (!pcap.error().empty()) {
    std::cerr << "stptxrx-pcap: " << pcap.error() << "; nothing sent\n";
    return 1;
  }
  std::size_t sent = 0;
  for (std::size_t round = 0; round < rounds; ++round) {
    if (round > 0) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    for (const auto& f : frames) {
      if (!pcap.send(f.data(), f.size())) {
        std::cerr << "stptxrx-pcap: " << iface << ": sending failed after " << sent << " frame(s): " << pcap.pcapError()
                  << "\n";
        return 1;
      }
      ++sent;
    }
  }
  std::cerr << "stptxrx-pcap: " << sent << " frame(s) sent on " << iface << "\n";
  return 0;
}

}  // namespace

int writeOrSend(const Options& o) {
  // Every frame is built (and every capture read) before the file or interface is opened, so a record
  // the encoder refuses or a damaged capture leaves no file and sends nothing.
  Stp::MstPortSm::Ptr portSm = Stp::MstPortSm::MstPortSmIs(Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), o.src));
  std::vector<StpTxRx::BpduEncodeResult> built;
  std::vector<const StpTxRx::BpduRecipe*> recipes;
  std::vector<std::vector<std::uint8_t>> frames;
  std::size_t records = 0;
  for (const Source& source : o.sources) {
    if (!source.recipe) {
      if (!replayFrames(source.replay, frames)) return 1;
      continue;
    }
    ++records;
    const StpTxRx::BpduRecipe& recipe = *source.recipe;
    StpTxRx::BpduEncodeResult e = StpTxRx::generateBpduFromIntxInfo(
        recipe.encapsulation, portSm, StpTxRx::intxRecord(recipe.values), recipe.tagged, recipe.vlan);
    if (!e) {
      std::cerr << "stptxrx-pcap: record " << records << " cannot be encoded: " << StpTxRx::bpduEncodeErrorText(e.error)
                << "; nothing " << (o.sendIface ? "sent" : "written") << "\n";
      return 1;
    }
    frames.emplace_back(e.pkt->data(), e.pkt->data() + e.pkt->size());
    built.push_back(e);
    recipes.push_back(&recipe);
  }
  if (o.sendIface) return send(*o.sendIface, frames, o.count.value_or(1), o.interval.value_or(1.0));

  PcapWriter writer(*o.output);
  if (!writer.ok()) {
    std::cerr << "stptxrx-pcap: cannot write " << *o.output << ": " << writer.error() << "\n";
    return 1;
  }
  for (std::size_t i = 0; i < built.size(); ++i) {
    const Nelk::Pkt& pkt = *built[i].pkt;
    if (o.dump) {
      const bool ieee = recipes[i]->encapsulation == StpTxRx::BpduEncapsulation::ieee;
      std::cout << "frame " << writer.frames() << " (" << pkt.size() << " octets, "
                << StpTxRx::bpduKindName(built[i].kind) << (ieee ? "" : ", pvst")
                << (recipes[i]->tagged ? ", tagged" : "") << ")\n";
      if (built[i].kind == StpTxRx::BpduKind::Rst && !recipes[i]->tagged && ieee) {
        StpTxRx::tools::dumpRstFrame(std::cout, pkt.data(), pkt.size());
      } else {
        dumpHex(std::cout, pkt.data(), pkt.size());
      }
    }
    if (!writer.write(pkt)) break;
  }
  if (!writer.close()) {
    std::cerr << "stptxrx-pcap: writing " << *o.output << " failed: " << writer.error() << "\n";
    return 1;
  }
  std::cerr << "stptxrx-pcap: " << writer.frames() << " frame(s) written to " << *o.output << "\n";
  return 0;
}

}  // namespace PcapTool
