#pragma once
// The link layer of BPDU frames: where a BPDU is sent and how it is framed. An IEEE BPDU goes to the
// bridge group address behind LLC 42 42 03; a PVST+ BPDU goes to 01:00:0C:CC:CC:CD behind LLC AA AA 03
// and SNAP 00 00 0C / 01 0B. Either may carry one 802.1Q tag (priority 7). Both the encoders and the
// decoder build and read these frames through Nelk::writeLlcLink / Nelk::parseLlcLink.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/LinkLayer.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/StpTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace StpTxRx {

using U32 = std::uint32_t;

// The link-layer names that frame construction has always offered.
using Nelk::LlcHeader;
using Nelk::llcControlUi;
using Nelk::vlanTagProtocolId;

/// Destination of every IEEE BPDU: the bridge group address 01:80:C2:00:00:00.
inline constexpr Nelk::EthAddr bridgeGroupAddress{0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};
/// LLC service access point of spanning tree (DSAP and SSAP).
inline constexpr std::uint8_t stpLlcSap = 0x42;
/// The 802.1Q priority a tagged BPDU carries.
inline constexpr std::uint8_t bpduTagPriority = 7;

/// The highest VLAN id a frame may carry (4095 is reserved).
inline constexpr std::uint16_t maxVlanId = 4094;

/// Destination of every PVST+ BPDU.
inline constexpr Nelk::EthAddr pvstAddress{0x01, 0x00, 0x0C, 0xCC, 0xCC, 0xCD};
/// The SNAP identifiers of a PVST+ BPDU: OUI 00 00 0C, protocol 01 0B.
inline constexpr std::array<std::uint8_t, 3> pvstOui{0x00, 0x00, 0x0C};
inline constexpr std::uint16_t pvstProtocolId = 0x010B;

/// How a BPDU is carried: the IEEE format (one tree for every VLAN) or PVST+ (one tree per VLAN, the
/// originating VLAN in the frame).
enum class BpduEncapsulation : std::uint8_t { ieee, pvst };
/// "ieee", "pvst".
STPTXRX_EXPORT const char* bpduEncapsulationName(BpduEncapsulation e);

/// The link of a BPDU sent from `source` in encapsulation `e`; with an 802.1Q tag (priority 7, the low
/// 12 bits of `vlan`) when `tagged`.
constexpr Nelk::LlcLink bpduLinkOf(BpduEncapsulation e, const Nelk::EthAddr& source, bool tagged,
                                   Bridging::VlanIdOrNone vlan) {
  Nelk::LlcLink link;
  link.source = source;
  link.tagged = tagged;
  link.tagControl = Nelk::tagControlOf(bpduTagPriority, vlan.value());
  if (e == BpduEncapsulation::ieee) {
    link.destination = bridgeGroupAddress;
    link.llc = LlcHeader{stpLlcSap, stpLlcSap, llcControlUi};
  } else {
    link.destination = pvstAddress;
    link.llc = LlcHeader{Nelk::snapSap, Nelk::snapSap, llcControlUi};
    link.snap = true;
    link.snapHeader = Nelk::SnapHeader{pvstOui, Nelk::NetU16(pvstProtocolId)};
  }
  return link;
}

/// Overlay of the untagged IEEE link header, 17 octets, as the library writes it; for callers that look
/// at a frame's header in place.
struct BpduLinkHeader : Nelk::MacAddresses {
  Nelk::NetU16 length;  ///< IEEE 802.3 Length/Type, as length: LLC + body octets
  LlcHeader llc;        ///< IEEE 802.2 LLC header
};
static_assert(sizeof(BpduLinkHeader) == 17);

/// Overlay of the 802.1Q-tagged IEEE link header, 21 octets.
struct TaggedBpduLinkHeader : Nelk::MacAddresses {
  Nelk::NetU16 tagProtocolId;  ///< IEEE 802.1Q TPID (0x8100)
  Nelk::NetU16 tagControl;     ///< IEEE 802.1Q TCI: PCP bits 15-13, DEI bit 12, VID bits 11-0
  Nelk::NetU16 length;         ///< IEEE 802.3 Length/Type, as length: LLC + body octets
  LlcHeader llc;               ///< IEEE 802.2 LLC header
};
static_assert(sizeof(TaggedBpduLinkHeader) == 21);

inline constexpr std::size_t bpduLinkHeaderSize = sizeof(BpduLinkHeader);
inline constexpr std::size_t taggedBpduLinkHeaderSize = sizeof(TaggedBpduLinkHeader);
static_assert(bpduLinkOf(BpduEncapsulation::ieee, {}, false, {}).headerSize() == bpduLinkHeaderSize);
static_assert(bpduLinkOf(BpduEncapsulation::ieee, {}, true, {}).headerSize() == taggedBpduLinkHeaderSize);

/// Writes the untagged IEEE link header for a body of `bodySize` octets at `frame` (which must have room
/// for bpduLinkHeaderSize octets) and returns the body start, frame + 17. The length field is
/// bodySize + 3, kept to 16 bits.
STPTXRX_EXPORT Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac,
                                                    U32 bodySize);

/// The tagged form: as above with an 802.1Q tag (priority 7, drop eligible clear, the low 12 bits of
/// `vlan`) in front of the length; `frame` must have room for taggedBpduLinkHeaderSize octets. Returns
/// frame + 21. StpTxRxGetPkt never builds tagged frames; the library's every-kind encoder does.
STPTXRX_EXPORT Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac,
                                                    U32 bodySize, Bridging::VlanIdOrNone vlan);

}  // namespace StpTxRx
