#pragma once
// BPDU frame construction: packet allocation with the link headers in front of the body, the encoding
// of a transmit record into an RST BPDU, the BPDU filter and interface logging decisions, and the
// priority conversions. Everything here traces through the one handle "StpTxRx".
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/Trace.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace StpTxRx {

using U32 = std::uint32_t;

/// The trace handle of frame construction, named "StpTxRx": created on the first call (no lock; the
/// library runs on one thread) and never destroyed.
STPTXRX_EXPORT Zek::TraceHandle* _defaultTraceHandle();

/// Module constant "ns-", built when the library loads. Nothing in the library reads it.
STPTXRX_EXPORT extern const Zek::String nsPrefix;

// ---------------------------------------------------------------------------------------------------
// Priority conversions
// ---------------------------------------------------------------------------------------------------

/// `value` as a bridge priority; raises Zek::RangeException ("BridgePriority::value <
/// BridgePriority::minBridgePriority or > BridgePriority::maxBridgePriority not allowed") when it is
/// above maxBridgePriority (0xF000).
STPTXRX_EXPORT Stp::BridgePriority checkedBridgePriority(std::uint16_t value);

/// The bridge priority of a compressed priority: c << 12, kept to 16 bits, then range checked. Because
/// only the low 16 bits are kept, c = 16 wraps to 0 (and 17 to 4096 ...) rather than raising.
STPTXRX_EXPORT Stp::BridgePriority bridgePriority(Stp::CompressedBridgePriority c);

/// The port priority of a compressed priority: 16 * c, without a range check. The result is the
/// 8-bit port priority of Stp::PortId, so c >= 16 wraps.
STPTXRX_EXPORT std::uint8_t portPriority(Stp::CompressedPortPriority c);

// ---------------------------------------------------------------------------------------------------
// Link headers (IEEE 802.3 frame with IEEE 802.2 LLC, optionally IEEE 802.1Q tagged)
// ---------------------------------------------------------------------------------------------------

/// Destination of every BPDU: the bridge group address 01:80:C2:00:00:00.
inline constexpr Nelk::EthAddr bridgeGroupAddress{0x01, 0x80, 0xC2, 0x00, 0x00, 0x00};
/// LLC service access point of spanning tree (DSAP and SSAP) and the LLC control of an unnumbered
/// information frame.
inline constexpr std::uint8_t stpLlcSap = 0x42;
inline constexpr std::uint8_t llcControlUi = 0x03;
/// 802.1Q tag protocol identifier, and the priority a tagged BPDU carries.
inline constexpr std::uint16_t vlanTagProtocolId = 0x8100;
inline constexpr std::uint8_t bpduTagPriority = 7;

/// IEEE 802.2 LLC header.
struct LlcHeader {
  std::uint8_t dsap;     ///< IEEE 802.2 DSAP (destination service access point)
  std::uint8_t ssap;     ///< IEEE 802.2 SSAP (source service access point)
  std::uint8_t control;  ///< IEEE 802.2 control field
};
static_assert(sizeof(LlcHeader) == 3);

/// What stands in front of an untagged BPDU body (17 octets).
struct BpduLinkHeader {
  std::array<std::uint8_t, 6> destinationAddress;  ///< IEEE 802.3 Destination Address
  std::array<std::uint8_t, 6> sourceAddress;       ///< IEEE 802.3 Source Address
  Nelk::NetU16 length;                             ///< IEEE 802.3 Length/Type, as length: LLC + body octets
  LlcHeader llc;                                   ///< IEEE 802.2 LLC header
};
static_assert(sizeof(BpduLinkHeader) == 17);

/// What stands in front of an 802.1Q-tagged BPDU body (21 octets).
struct TaggedBpduLinkHeader {
  std::array<std::uint8_t, 6> destinationAddress;  ///< IEEE 802.3 Destination Address
  std::array<std::uint8_t, 6> sourceAddress;       ///< IEEE 802.3 Source Address
  Nelk::NetU16 tagProtocolId;                      ///< IEEE 802.1Q TPID (0x8100)
  Nelk::NetU16 tagControl;                         ///< IEEE 802.1Q TCI: PCP bits 15-13, DEI bit 12, VID bits 11-0
  Nelk::NetU16 length;                             ///< IEEE 802.3 Length/Type, as length: LLC + body octets
  LlcHeader llc;                                   ///< IEEE 802.2 LLC header
};
static_assert(sizeof(TaggedBpduLinkHeader) == 21);

inline constexpr std::size_t bpduLinkHeaderSize = sizeof(BpduLinkHeader);
inline constexpr std::size_t taggedBpduLinkHeaderSize = sizeof(TaggedBpduLinkHeader);

/// Writes the untagged link header for a body of `bodySize` octets at `frame` (which must have room for
/// bpduLinkHeaderSize octets) and returns the body start, frame + 17. The length field is bodySize + 3,
/// kept to 16 bits.
STPTXRX_EXPORT Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac,
                                                    U32 bodySize);

/// The tagged form: as above with an 802.1Q tag (priority 7, drop eligible clear, the low 12 bits of
/// `vlan`) in front of the length; `frame` must have room for taggedBpduLinkHeaderSize octets. Returns
/// frame + 21. StpTxRxGetPkt never builds tagged frames; this form exists for callers that do.
STPTXRX_EXPORT Stp::CommonBpdu* writeBpduLinkHeader(std::uint8_t* frame, const Nelk::EthAddr& srcMac,
                                                    U32 bodySize, Bridging::VlanIdOrNone vlan);

// ---------------------------------------------------------------------------------------------------
// Frame allocation
// ---------------------------------------------------------------------------------------------------

/// A packet holding an untagged BPDU frame of 17 + `size` octets: link header written, body left to the
/// caller. On success `*bpdu` points at the first body octet (frame + 17) inside the packet's data; the
/// packet owns the memory, so the pointer is valid while the caller holds the packet.
///
/// `vlan` must be none: anything else is a programming error (assertion "!vlan", process abort).
/// When the global packet manager has no packet to give (its live limit is reached) the result is null,
/// `*bpdu` is left as it was and a level-3 "Packet allocation failed" is traced. `bpdu` must not be null.
STPTXRX_EXPORT Nelk::Pkt::Ptr StpTxRxGetPkt(Bridging::VlanIdOrNone vlan, Nelk::EthAddr srcMac, U32 size,
                                            Stp::CommonBpdu** bpdu);

/// Entry for per-VLAN BPDUs, which this library does not build: traces at level 8 and returns null,
/// never writing `*bpdu`. Callers treat the result as an allocation failure. No argument is read.
STPTXRX_EXPORT Nelk::Pkt::Ptr StpTxRxGetPvstPkt(Stp::MstPortSm* portSm, U32 size, Stp::CommonBpdu** bpdu,
                                                Bridging::VlanIdOrNone vlan);

// ---------------------------------------------------------------------------------------------------
// RST BPDU encoding and the agents' decisions
// ---------------------------------------------------------------------------------------------------

/// The complete 53-octet untagged RST BPDU frame for `intxInfo`, sent from the MAC address of
/// `portSm`'s port record, or null when no packet could be allocated (traced at level 2, nothing else
/// changed). The body comes from the record's common-instance entry (mstiN key 0); version, type and
/// version 1 length are constants, and the record's type and MST configuration fields are not read.
///
/// Preconditions, each checked by an assertion that aborts the process: the record's stpVersion is 2
/// (assertion "0"), its vlanIdOrZero is 0 ("vlan == 0"), and `tagged` is false ("!tagged").
/// Caller errors that are not checked: a null `portSm` or `intxInfo`, a state machine without a port
/// record, a record without the entry for key 0. Neither object may change during the call.
///
/// Allocates nothing but the packet (nothing at all when the packet pool is warm), and builds no trace
/// text while the level-8 trace is off.
STPTXRX_EXPORT Nelk::Pkt::Ptr generatePktFromIntxInfo(Stp::MstPortSm::Ptr portSm, IntxInfo::Ptr intxInfo,
                                                      bool tagged);

/// True when BPDUs are to be filtered on the port: mode `enabled` filters; any mode but `enabled` and
/// `followDefault` does not; `followDefault` filters when the port allows the default, the port status
/// is present with the default operational, and the global default is on. `portConfig` and `config`
/// must not be null; `portStatus` may be (then the default does not apply).
STPTXRX_EXPORT bool mstBpdufilterPkt(Zek::Ptr<Stp::PortConfig const> portConfig,
                                     Zek::Ptr<Stp::StpiPortStatus const> portStatus,
                                     Zek::Ptr<Stp::Config const> config);

/// True when spanning-tree interface events are to be logged: `second` (the narrower setting) is `on`,
/// or it is `useDefault` and `first` (the wider setting) is `on`. Any other combination, unnamed values
/// included, gives false.
STPTXRX_EXPORT bool logSpanTreeIntf(Stp::IntfLoggingMode first, Stp::IntfLoggingMode second);

}  // namespace StpTxRx
