// A user of the installed library: mirrors one transmit record into another and encodes it, through the
// installed headers and the installed shared library only. Exits 0 when the frame carries the mirrored
// flags and the library reports the version of its headers and package.
#include <stptxrx/Stp/StpTxRxUtils.h>
#include <stptxrx/Stp/StpTxStatusSyncer.h>
#include <stptxrx/Version.h>
#include <stptxrx/state/AgentTypes.h>

#include <cstdio>
#include <cstring>

int main() {
  using namespace StpTxRx;
  IntxInfo::Ptr source = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  IntxInfo::Ptr mirror = IntxInfo::IntxInfoIs(Bridging::VlanIdOrNone());
  source->stpVersionIs(Stp::StpBpduVersion{2});
  source->mstiNIs(Stp::BridgeSystemId(0));
  Zek::Ptr<IntxInfoSyncer> syncer = intxInfoSyncerFactory(source, mirror, Bridging::VlanIdOrNone(), "consumer|Et1");
  source->mstiN(Stp::BridgeSystemId(0))->flagsIs(Stp::RstpBpduFlags{0x7c});

  auto port = Stp::Port::PortIs(Nelk::IntfId("Ethernet1"), Nelk::EthAddr(2, 0, 0, 0, 0, 1));
  Nelk::Pkt::Ptr frame = generatePktFromIntxInfo(Stp::MstPortSm::MstPortSmIs(port), mirror, false);
  if (!frame || frame->size() != 53 || frame->data()[17 + 4] != 0x7c) {
    std::puts("stptxrx consumer: unexpected frame");
    return 1;
  }
#ifdef STPTXRX_EXPECTED_VERSION
  // The headers, the running library and the package all say the same version.
  if (STPTXRX_EXPECTED_VERSION[0] != '\0' && std::strcmp(versionText(), STPTXRX_EXPECTED_VERSION) != 0) {
    std::printf("stptxrx consumer: library %s, package %s\n", versionText(), STPTXRX_EXPECTED_VERSION);
    return 1;
  }
#endif
  if (versionNumber() != STPTXRX_VERSION) {
    std::puts("stptxrx consumer: headers and library differ in version");
    return 1;
  }
  std::puts("stptxrx consumer: ok");
  return 0;
}
