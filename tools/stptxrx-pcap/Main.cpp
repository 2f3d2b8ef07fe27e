// stptxrx-pcap's entry: the options, then one mode (see Tool.h).
#include "Tool.h"

#include <stptxrx/Version.h>

#include <iostream>

int main(int argc, char** argv) {
  PcapTool::Options o;
  if (!PcapTool::parseOptions(argc, argv, o)) return 2;
  using Mode = PcapTool::Options::Mode;
  switch (o.mode) {
    case Mode::help: PcapTool::usage(std::cout); return 0;
    case Mode::list: PcapTool::listSamples(std::cout); return 0;
    case Mode::version: std::cout << "stptxrx-pcap " << StpTxRx::versionText() << "\n"; return 0;
    case Mode::read: return PcapTool::readCapture(*o.readPath, o.rewritePath, o.limit);
    case Mode::listen: return PcapTool::listen(*o.listenIface, o.count.value_or(0), o.timeout, o.limit);
    case Mode::write:
    case Mode::send: return PcapTool::writeOrSend(o);
  }
  return 2;
}
