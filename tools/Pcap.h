#pragma once
// The tests and the fuzz seed writer name the companion library's capture classes as tools::; they are
// the installed ones (<stptxrx/pcap/Pcap.h>, linked as StpTxRx::pcap).
#include <stptxrx/pcap/Pcap.h>

namespace StpTxRx::tools {
using StpTxRx::pcap::PcapFrame;
using StpTxRx::pcap::PcapPort;
using StpTxRx::pcap::PcapReader;
using StpTxRx::pcap::PcapWriter;
}  // namespace StpTxRx::tools
