#pragma once
// BPDU body views (IEEE 802.1D-2004 clause 9.3, IEEE 802.1Q-2014 clause 14). Packed views over octets
// inside a frame: every member has alignment 1 and multi-octet fields are held in network order. One
// family, each kind extending the one before it on the wire:
//
//   CommonBpdu (4, also the whole TCN BPDU) -> ConfigBpdu (35) -> RstpBpdu (36) -> MstBpdu (102)
//   followed by 0 to 64 MstiConfigMessage (16 each); RstpBpdu (36) -> PvstBpdu (42) for PVST+
//
// A view is only taken over a body known to hold at least its size in octets.
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/state/StpTypes.h>

#include <array>
#include <cstddef>
#include <cstdint>

namespace Stp {

/// The octets every BPDU starts with; on its own, the Topology Change Notification BPDU. BPDU bodies
/// are handed around as `CommonBpdu*` pointing at the first body octet inside a frame.
struct CommonBpdu {
  static constexpr std::size_t wireSize = 4;

  Nelk::NetU16 protocolIdentifier;         ///< Protocol Identifier (0x0000: spanning tree)
  std::uint8_t protocolVersionIdentifier;  ///< Protocol Version Identifier (0 STP, 2 RSTP, 3 MSTP)
  std::uint8_t bpduType;                   ///< BPDU Type (0x00 Config, 0x80 TCN, 0x02 RST/MST)
};
static_assert(sizeof(CommonBpdu) == CommonBpdu::wireSize && alignof(CommonBpdu) == 1);

/// The 35-octet Configuration BPDU body.
struct ConfigBpdu : CommonBpdu {
  static constexpr std::size_t wireSize = 35;

  /// The two flags a Configuration BPDU has; an RST BPDU adds the six bits between them.
  static constexpr std::uint8_t topologyChangeFlag = 0x01;
  static constexpr std::uint8_t topologyChangeAckFlag = 0x80;

  std::uint8_t flags;             ///< Flags (Topology Change bit 1, TC Acknowledgment bit 8; RST adds the rest)
  BridgeIdWire rootIdentifier;    ///< Root Identifier (CIST Root Identifier in an MST BPDU)
  Nelk::NetU32 rootPathCost;      ///< Root Path Cost (CIST External Root Path Cost)
  BridgeIdWire bridgeIdentifier;  ///< Bridge Identifier (CIST Regional Root Identifier in an MST BPDU)
  Nelk::NetU16 portIdentifier;    ///< Port Identifier (CIST Port Identifier)
  TimerVal messageAge;            ///< Message Age (two octets as on the wire, 1/256 s)
  TimerVal maxAge;                ///< Max Age
  TimerVal helloTime;             ///< Hello Time
  TimerVal forwardDelay;          ///< Forward Delay
};
static_assert(sizeof(ConfigBpdu) == ConfigBpdu::wireSize && alignof(ConfigBpdu) == 1);

/// The 36-octet RST BPDU body: a Configuration BPDU body and the Version 1 Length.
struct RstpBpdu : ConfigBpdu {
  static constexpr std::size_t wireSize = 36;
  static constexpr std::uint8_t rstVersion = 2;
  static constexpr std::uint8_t rstType = 2;

  std::uint8_t version1Length;  ///< Version 1 Length (0)

  /// The RST view of a body. `body` must point at the first octet of at least wireSize writable octets
  /// (as StpTxRxGetPkt hands out for a body size of 36); never null.
  static RstpBpdu* of(CommonBpdu* body) { return static_cast<RstpBpdu*>(body); }
  static const RstpBpdu* of(const CommonBpdu* body) { return static_cast<const RstpBpdu*>(body); }

  /// Stores the flags octet at body offset 4.
  void rstpFlagsIs(RstpBpduFlags f) { flags = f.value; }
  RstpBpduFlags rstpFlags() const { return RstpBpduFlags{flags}; }
};
static_assert(sizeof(RstpBpdu) == RstpBpdu::wireSize && alignof(RstpBpdu) == 1);

/// The originating-VLAN TLV of a PVST+ BPDU (6 octets).
struct PvstVlanTlv {
  static constexpr std::uint16_t vlanType = 0;
  static constexpr std::uint16_t vlanLength = 2;

  Nelk::NetU16 type;    ///< PVST+ TLV Type (0: originating VLAN)
  Nelk::NetU16 length;  ///< PVST+ TLV Length (2)
  Nelk::NetU16 vlan;    ///< PVST+ Originating VLAN (the VLAN id)
};
static_assert(sizeof(PvstVlanTlv) == 6 && alignof(PvstVlanTlv) == 1);

/// The 42-octet PVST+ Configuration or RST BPDU body: the RST layout (for a Configuration BPDU the octet
/// named version1Length is the 0 that pads it to 36) and the originating-VLAN TLV at offset 36. A PVST+
/// TCN is the 4-octet CommonBpdu.
struct PvstBpdu : RstpBpdu {
  static constexpr std::size_t wireSize = 42;

  PvstVlanTlv originatingVlan;  ///< PVST+ originating-VLAN TLV
};
static_assert(sizeof(PvstBpdu) == PvstBpdu::wireSize && alignof(PvstBpdu) == 1);

/// MST Configuration Identifier (51 octets).
struct MstConfigId {
  static constexpr std::size_t nameSize = 32;

  std::uint8_t formatSelector;                   ///< Configuration Identifier Format Selector (0)
  std::array<std::uint8_t, nameSize> name;       ///< Configuration Name, zero-padded
  Nelk::NetU16 revisionLevel;                    ///< Revision Level
  std::array<std::uint8_t, 16> digest;           ///< Configuration Digest
};
static_assert(sizeof(MstConfigId) == 51 && alignof(MstConfigId) == 1);

/// The fixed 102-octet part of an MST BPDU body; the MSTI configuration messages follow it.
struct MstBpdu : RstpBpdu {
  static constexpr std::size_t wireSize = 102;
  static constexpr std::uint8_t mstVersion = 3;
  /// Version 3 Length without MSTI messages: the octets from the configuration identifier to the CIST
  /// remaining hops.
  static constexpr std::uint16_t version3LengthBase = 64;
  static constexpr std::size_t maxMstiCount = 64;

  Nelk::NetU16 version3Length;        ///< Version 3 Length (64 + 16 per MSTI message)
  MstConfigId configId;               ///< MST Configuration Identifier
  Nelk::NetU32 cistInternalRootPathCost;  ///< CIST Internal Root Path Cost
  BridgeIdWire cistBridgeIdentifier;  ///< CIST Bridge Identifier
  std::uint8_t cistRemainingHops;     ///< CIST Remaining Hops
};
static_assert(sizeof(MstBpdu) == MstBpdu::wireSize && alignof(MstBpdu) == 1);

/// One 16-octet MSTI Configuration Message.
struct MstiConfigMessage {
  static constexpr std::size_t wireSize = 16;

  std::uint8_t flags;                   ///< MSTI Flags
  BridgeIdWire regionalRootIdentifier;  ///< MSTI Regional Root Identifier (MSTID in the system id extension)
  Nelk::NetU32 internalRootPathCost;    ///< MSTI Internal Root Path Cost
  std::uint8_t bridgePriority;          ///< MSTI Bridge Priority (bits 8-5: priority >> 12)
  std::uint8_t portPriority;            ///< MSTI Port Priority (bits 8-5: priority >> 4)
  std::uint8_t remainingHops;           ///< MSTI Remaining Hops
};
static_assert(sizeof(MstiConfigMessage) == MstiConfigMessage::wireSize && alignof(MstiConfigMessage) == 1);

// Members sit where the standard puts them. The views extend one another, so they are not standard
// layout; both compilers lay out a base before the derived members and support offsetof here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
static_assert(offsetof(RstpBpdu, flags) == 4 && offsetof(RstpBpdu, rootIdentifier) == 5 &&
              offsetof(RstpBpdu, rootPathCost) == 13 && offsetof(RstpBpdu, bridgeIdentifier) == 17 &&
              offsetof(RstpBpdu, portIdentifier) == 25 && offsetof(RstpBpdu, messageAge) == 27 &&
              offsetof(RstpBpdu, maxAge) == 29 && offsetof(RstpBpdu, helloTime) == 31 &&
              offsetof(RstpBpdu, forwardDelay) == 33 && offsetof(RstpBpdu, version1Length) == 35);
static_assert(offsetof(PvstBpdu, originatingVlan) == 36);
static_assert(offsetof(MstBpdu, version3Length) == 36 && offsetof(MstBpdu, configId) == 38 &&
              offsetof(MstBpdu, cistInternalRootPathCost) == 89 && offsetof(MstBpdu, cistBridgeIdentifier) == 93 &&
              offsetof(MstBpdu, cistRemainingHops) == 101);
static_assert(offsetof(MstiConfigMessage, internalRootPathCost) == 9 &&
              offsetof(MstiConfigMessage, bridgePriority) == 13 && offsetof(MstiConfigMessage, remainingHops) == 15);
#pragma GCC diagnostic pop

}  // namespace Stp
