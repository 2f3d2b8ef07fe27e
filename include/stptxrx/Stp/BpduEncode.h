#pragma once
// Encoding a record into a BPDU frame of any kind, in the IEEE format (generateBpduFromIntxInfo) or as
// PVST+ (generatePvstBpduFromIntxInfo), refusing by name whatever does not fit the wire.
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/BpduVerdict.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>

namespace StpTxRx {

/// Why a record was not encoded. Each has a text (bpduEncodeErrorText) and a name (bpduEncodeErrorName).
enum class BpduEncodeError : std::uint8_t {
  none,
  missingInput,                 ///< "no record, or no port to send from"
  unsupportedKind,              ///< "no BPDU kind for this version and type"
  noCistEntry,                  ///< "record has no common-instance entry"
  nameTooLong,                  ///< "configuration name longer than 32 octets"
  tooManyMstis,                 ///< "more than 64 MSTIs"
  mstiIdOutOfRange,             ///< "MSTI key above 4095"
  allocationFailed,             ///< "packet allocation failed"
  tagVlanOutOfRange,            ///< "tag VLAN above 4094"
  bridgePriorityStep,           ///< "bridge priority not a multiple of 4096"
  systemIdExtensionOutOfRange,  ///< "system id extension above 4095"
  portPriorityStep,             ///< "port priority not a multiple of 16"
  portNumberOutOfRange,         ///< "port number above 4095"
  pvstVlanOutOfRange,           ///< "PVST+ VLAN outside 1-4094"
  pvstMst,                      ///< "MST BPDU has no PVST+ form"
};
/// The text of an error ("tag VLAN above 4094"); "encoded" for none.
STPTXRX_EXPORT const char* bpduEncodeErrorText(BpduEncodeError error);
/// The enumerator's name ("tagVlanOutOfRange").
STPTXRX_EXPORT const char* bpduEncodeErrorName(BpduEncodeError error);

/// A built frame, or why there is none.
struct BpduEncodeResult {
  Nelk::Pkt::Ptr pkt;
  BpduEncodeError error = BpduEncodeError::none;
  BpduKind kind = BpduKind::Rejected;
  explicit operator bool() const { return static_cast<bool>(pkt); }
};

/// The kind a record's stpVersion and intxInfoType name: version 0/1 type 0x00 Config, version 0/1 type
/// 0x80 TCN, version 2 type 2 RST, version 3 or higher type 2 MST; anything else Rejected.
STPTXRX_EXPORT BpduKind bpduKindOf(Stp::StpBpduVersion version, Stp::StpBpduType type);

/// Builds the BPDU frame that `intxInfo` names (bpduKindOf), sent from the MAC address of `portSm`'s
/// port record to the bridge group address, untagged or, when `tagged`, with an 802.1Q tag (priority
/// 7, VLAN id `vlan`; `vlan` is not read otherwise). Sizes: Config 35, TCN 4, RST 36 (the octets
/// generatePktFromIntxInfo writes), MST 102 + 16 per MSTI; the protocol version octet is the record's.
/// An MST BPDU carries the entries other than key 0 as MSTI messages in ascending key order. A
/// Configuration BPDU carries only the Topology Change and Topology Change Acknowledgment flags; the
/// other six bits go out as 0 whatever the record holds (the record is not changed).
///
/// Errors come back in the result, with a null packet, nothing written and nothing else changed: a null
/// record, state machine or port record; an unsupported version/type; no entry keyed 0 (Config, RST,
/// MST); a tag VLAN above 4094; a value that does not fit its wire field (a bridge priority not a
/// multiple of 4096, a system id extension or port number above 4095, a port priority not a multiple
/// of 16, in every identifier the kind carries, MSTIs included); for MST a name longer than 32 octets,
/// more than 64 MSTIs or a key above 4095; no packet (the level-3 and level-2 traces of the RST path).
/// Traces the call at level 8 (no text built otherwise). Allocates nothing but the packet, nothing at
/// all when the packet pool is warm.
STPTXRX_EXPORT BpduEncodeResult generateBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm,
                                                         const IntxInfo::Ptr& intxInfo, bool tagged,
                                                         Bridging::VlanIdOrNone vlan);

/// Builds the PVST+ frame of `intxInfo` for VLAN `vlan`: to 01:00:0C:CC:CC:CD, LLC AA AA 03, SNAP
/// 00 00 0C / 01 0B, then the BPDU of the kind the record names (Config, TCN or RST, as
/// generateBpduFromIntxInfo writes it) and, after a Configuration or RST BPDU, at body offset 36, the
/// originating-VLAN TLV (type 0, length 2, `vlan`); the octet at offset 35 of a Configuration BPDU is 0.
/// Sizes: Config and RST 42, TCN 4. `tagged` puts `vlan` in an 802.1Q tag (priority 7): a VLAN other
/// than the port's native one; untagged is the native VLAN. The record's identifiers are written as
/// they are (the agent puts the VLAN in their system id extension).
///
/// Errors as for generateBpduFromIntxInfo, and: `vlan` outside 1-4094 (pvstVlanOutOfRange); an MST
/// record (pvstMst: MST has no per-VLAN form). Same packet path, traces and allocation.
STPTXRX_EXPORT BpduEncodeResult generatePvstBpduFromIntxInfo(const Stp::MstPortSm::Ptr& portSm,
                                                             const IntxInfo::Ptr& intxInfo, bool tagged,
                                                             Bridging::VlanIdOrNone vlan);

/// The frame of `intxInfo` in encapsulation `e`: generateBpduFromIntxInfo (ieee) or
/// generatePvstBpduFromIntxInfo (pvst), as they write it. For callers that carry the encapsulation as
/// a value (a recipe, a decoded frame).
STPTXRX_EXPORT BpduEncodeResult generateBpduFromIntxInfo(BpduEncapsulation e, const Stp::MstPortSm::Ptr& portSm,
                                                         const IntxInfo::Ptr& intxInfo, bool tagged,
                                                         Bridging::VlanIdOrNone vlan);

}  // namespace StpTxRx
