#include <stptxrx/Stp/BpduLink.h>

namespace StpTxRx {

const char* bpduEncapsulationName(BpduEncapsulation e) { return e == BpduEncapsulation::pvst ? "pvst" : "ieee"; }

Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac, U32 bodySize) {
  return reinterpret_cast<Stp::CommonBpdu*>(
      Nelk::writeLlcLink(frame, bpduLinkOf(BpduEncapsulation::ieee, srcMac, false, {}), bodySize));
}

Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac, U32 bodySize,
                                     Bridging::VlanIdOrNone vlan) {
  return reinterpret_cast<Stp::CommonBpdu*>(
      Nelk::writeLlcLink(frame, bpduLinkOf(BpduEncapsulation::ieee, srcMac, true, vlan), bodySize));
}

}  // namespace StpTxRx
