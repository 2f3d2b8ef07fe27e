#pragma once
// The spanning-tree value types: identifiers of bridges, ports, instances and VLANs, the timer and cost
// quantities of a BPDU, and their wire encodings. All are plain copyable values held in host order
// (TimerVal excepted: it keeps its two octets in wire order).
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/runtime/Export.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <functional>
#include <iosfwd>
#include <optional>

namespace Bridging {

/// A 16-bit VLAN identifier; 0 means "no VLAN". Key of the per-VLAN collections.
class VlanIdOrNone {
 public:
  constexpr VlanIdOrNone() = default;
  constexpr VlanIdOrNone(std::uint16_t id) : id_(id) {}  // NOLINT(google-explicit-constructor)

  constexpr std::uint16_t value() const { return id_; }
  constexpr bool isNone() const { return id_ == 0; }
  constexpr bool operator!() const { return id_ == 0; }
  constexpr explicit operator bool() const { return id_ != 0; }

  friend constexpr bool operator==(VlanIdOrNone, VlanIdOrNone) = default;
  friend constexpr auto operator<=>(VlanIdOrNone, VlanIdOrNone) = default;

 private:
  std::uint16_t id_ = 0;
};

/// Prints the number ("0" for none).
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, VlanIdOrNone v);

}  // namespace Bridging

template <>
struct std::hash<Bridging::VlanIdOrNone> {
  std::size_t operator()(Bridging::VlanIdOrNone v) const noexcept { return v.value(); }
};

namespace Stp {

using Nelk::EthAddr;

/// A 16-bit spanning-tree instance identifier; 0 is the common instance. Key of IntxInfo::mstiN.
class BridgeSystemId {
 public:
  constexpr BridgeSystemId() = default;
  constexpr BridgeSystemId(std::uint16_t id) : id_(id) {}  // NOLINT(google-explicit-constructor)
  constexpr std::uint16_t value() const { return id_; }
  friend constexpr bool operator==(BridgeSystemId, BridgeSystemId) = default;
  friend constexpr bool operator<(BridgeSystemId a, BridgeSystemId b) { return a.id_ < b.id_; }

 private:
  std::uint16_t id_ = 0;
};
/// Prints the number.
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, BridgeSystemId id);

/// Full 16-bit bridge priority; only multiples of 4096 from 0 to 61440 occur.
struct BridgePriority {
  static constexpr std::uint16_t minBridgePriority = 0;
  static constexpr std::uint16_t maxBridgePriority = 0xF000;
  std::uint16_t value = 0;
  friend constexpr bool operator==(BridgePriority, BridgePriority) = default;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, BridgePriority p);

/// Bridge priority divided by 4096 (0 to 15 in use).
struct CompressedBridgePriority {
  constexpr CompressedBridgePriority(unsigned v = 0) : value(v) {}  // NOLINT(google-explicit-constructor)
  unsigned value;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, CompressedBridgePriority p);

/// Port priority divided by 16 (0 to 15 in use).
struct CompressedPortPriority {
  constexpr CompressedPortPriority(unsigned v = 0) : value(v) {}  // NOLINT(google-explicit-constructor)
  unsigned value;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, CompressedPortPriority p);

/// Bridge identifier: full priority, system id extension (low 12 bits meaningful), address.
struct BridgeId {
  std::uint16_t priority = 0;
  std::uint16_t systemIdExtension = 0;
  EthAddr address;
  friend constexpr bool operator==(const BridgeId&, const BridgeId&) = default;
};
/// Prints "32768.1.00:11:22:33:44:55" (priority.extension.address).
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const BridgeId& id);

/// Port identifier: full port priority (a multiple of 16) and port number (low 12 bits meaningful).
/// One 32-bit quantity: the priority in the low octet, the port number in the upper 16 bits.
struct PortId {
  std::uint8_t priority = 0;
  std::uint8_t reserved = 0;
  std::uint16_t portNumber = 0;
  constexpr PortId() = default;
  constexpr PortId(std::uint8_t prio, std::uint16_t number) : priority(prio), portNumber(number) {}
  friend constexpr bool operator==(PortId a, PortId b) {
    return a.priority == b.priority && a.portNumber == b.portNumber;
  }
};
static_assert(sizeof(PortId) == 4);
/// Prints "128.3" (priority.number).
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, PortId id);

/// Path cost, unsigned 32-bit.
using PathCost = std::uint32_t;

/// A BPDU timer field: its two octets exactly as on the wire (most significant first, in the BPDU's
/// timer unit of 1/256 s). The library moves it without converting; fromSeconds and seconds are for
/// the people and programs that think in seconds.
struct TimerVal {
  std::array<std::uint8_t, 2> octets{};
  /// The largest time a timer field holds: 0xffff / 256 s, just under 256 s.
  static constexpr double maxSeconds = 65535.0 / 256.0;

  constexpr TimerVal() = default;
  constexpr TimerVal(std::uint8_t hi, std::uint8_t lo) : octets{hi, lo} {}
  /// From the 16-bit value the two octets denote.
  static constexpr TimerVal fromWire(std::uint16_t v) {
    return TimerVal(static_cast<std::uint8_t>(v >> 8), static_cast<std::uint8_t>(v));
  }
  /// `s` seconds rounded to the nearest 1/256 s; empty (never wrapped or clamped) for a negative value,
  /// a NaN, or one that rounds above maxSeconds.
  static constexpr std::optional<TimerVal> fromSeconds(double s) {
    const double units = s * 256.0;
    if (!(units >= 0.0) || units >= 65535.5) return std::nullopt;
    return fromWire(static_cast<std::uint16_t>(units + 0.5));
  }
  constexpr std::uint16_t wire() const { return static_cast<std::uint16_t>((octets[0] << 8) | octets[1]); }
  /// The time in seconds (exact: every wire value is a multiple of 1/256).
  constexpr double seconds() const { return wire() / 256.0; }
  friend constexpr bool operator==(const TimerVal& a, const TimerVal& b) { return a.wire() == b.wire(); }
};
/// Prints the two octets in hex ("14 00").
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const TimerVal& t);

/// The port role encoded in bits 3 and 4 of a flags octet. An MSTI message's role 0 is Master; a CIST
/// role 0 is unknown.
enum class PortRole : std::uint8_t { unknownOrMaster = 0, alternateOrBackup = 1, root = 2, designated = 3 };

/// The flags octet of an RST, MST or MSTI message (the Configuration BPDU uses bits 1 and 8 only). The
/// library moves the octet as it is; the accessors read single bits and never change `value`.
struct RstpBpduFlags {
  std::uint8_t value = 0;

  static constexpr std::uint8_t tcBit = 0x01;
  static constexpr std::uint8_t proposalBit = 0x02;
  static constexpr std::uint8_t roleMask = 0x0c;
  static constexpr std::uint8_t learningBit = 0x10;
  static constexpr std::uint8_t forwardingBit = 0x20;
  static constexpr std::uint8_t agreementBit = 0x40;
  static constexpr std::uint8_t tcaBit = 0x80;  ///< in an MSTI message: the Master flag

  constexpr bool tc() const { return (value & tcBit) != 0; }
  constexpr bool proposal() const { return (value & proposalBit) != 0; }
  constexpr PortRole portRole() const { return static_cast<PortRole>((value & roleMask) >> 2); }
  constexpr bool learning() const { return (value & learningBit) != 0; }
  constexpr bool forwarding() const { return (value & forwardingBit) != 0; }
  constexpr bool agreement() const { return (value & agreementBit) != 0; }
  constexpr bool tca() const { return (value & tcaBit) != 0; }
  /// The MSTI message's Master flag: the same bit as tca().
  constexpr bool master() const { return tca(); }

  friend constexpr bool operator==(RstpBpduFlags, RstpBpduFlags) = default;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, RstpBpduFlags f);

/// Protocol version identifier octet; 2 is Rapid Spanning Tree.
struct StpBpduVersion {
  std::uint8_t value = 0;
  friend constexpr bool operator==(StpBpduVersion, StpBpduVersion) = default;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, StpBpduVersion v);

/// BPDU type octet.
struct StpBpduType {
  std::uint8_t value = 0;
  friend constexpr bool operator==(StpBpduType, StpBpduType) = default;
};
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, StpBpduType t);

/// The 16-octet MST configuration digest.
struct MstpConfigDigest {
  std::array<std::uint8_t, 16> octets{};
  // Two 8-octet words at run time rather than a call to memcmp.
  friend constexpr bool operator==(const MstpConfigDigest& a, const MstpConfigDigest& b) {
    if (std::is_constant_evaluated()) return a.octets == b.octets;
    std::uint64_t x[2], y[2];
    std::memcpy(x, a.octets.data(), sizeof x);
    std::memcpy(y, b.octets.data(), sizeof y);
    return ((x[0] ^ y[0]) | (x[1] ^ y[1])) == 0;
  }
};
/// Prints 32 hex digits.
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const MstpConfigDigest& d);

// ---- wire encodings

/// A bridge identifier as it stands in a BPDU (8 octets).
struct BridgeIdWire {
  Nelk::NetU16 priorityAndExtension;      ///< priority >> 12 in bits 15-12, extension's low 12 bits below
  std::array<std::uint8_t, 6> address;    ///< MAC address, octets as held
};
static_assert(sizeof(BridgeIdWire) == 8);

/// Encodes `id`: the top 4 bits of the priority, the low 12 bits of the extension, then the address.
constexpr BridgeIdWire bridgeIdWire(const BridgeId& id) {
  const auto word = static_cast<std::uint16_t>(((id.priority >> 12) << 12) | (id.systemIdExtension & 0x0fff));
  if constexpr (std::endian::native == std::endian::little) {
    if (!std::is_constant_evaluated()) {
      // The eight octets put together in one register: built field by field in memory, the result is
      // read back as one word right after its three smaller stores, which the processor cannot forward
      // to that wider load, so every identifier an encoder writes would wait for the stores to retire.
      std::uint32_t address0to3;
      std::uint16_t address4to5;
      std::memcpy(&address0to3, id.address.octets().data(), 4);
      std::memcpy(&address4to5, id.address.octets().data() + 4, 2);
      const std::uint64_t octets = std::uint64_t{static_cast<std::uint16_t>((word >> 8) | (word << 8))} |
                                   std::uint64_t{address0to3} << 16 | std::uint64_t{address4to5} << 48;
      return std::bit_cast<BridgeIdWire>(octets);
    }
  }
  return BridgeIdWire{Nelk::NetU16(word), id.address.octets()};
}

/// Encodes a port identifier into its 16-bit wire word: priority >> 4 in bits 15-12, the port number's
/// low 12 bits below.
constexpr Nelk::NetU16 portIdWire(PortId id) {
  return Nelk::NetU16(static_cast<std::uint16_t>(((id.priority >> 4) << 12) | (id.portNumber & 0x0fff)));
}

}  // namespace Stp
