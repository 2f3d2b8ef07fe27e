#pragma once
// The link layer of frames that carry IEEE 802.2 LLC data: the IEEE 802.3 addresses, an optional IEEE
// 802.1Q tag, the 802.3 length, the LLC header and, behind LLC AA AA 03, the SNAP header. The packed
// views below are the only description of these octets; writeLlcLink and parseLlcLink walk them in
// wire order, so a frame is written and read through the same pieces.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/NetTypes.h>
#include <stptxrx/runtime/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace Nelk {

/// IEEE 802.1Q Tag Protocol Identifier of a customer VLAN tag.
inline constexpr std::uint16_t vlanTagProtocolId = 0x8100;
/// The largest IEEE 802.3 Length/Type value that is a length; larger values are EtherTypes.
inline constexpr std::uint16_t maxLengthField = 1500;
/// IEEE 802.2 control of an unnumbered information frame.
inline constexpr std::uint8_t llcControlUi = 0x03;
/// IEEE 802.2 service access point that announces a SNAP header (DSAP and SSAP).
inline constexpr std::uint8_t snapSap = 0xAA;
/// The VLAN identifier bits of an 802.1Q tag control word.
inline constexpr std::uint16_t vlanIdMask = 0x0fff;

/// The two addresses every frame starts with.
struct MacAddresses {
  std::array<std::uint8_t, 6> destinationAddress;  ///< IEEE 802.3 Destination Address
  std::array<std::uint8_t, 6> sourceAddress;       ///< IEEE 802.3 Source Address
};
static_assert(sizeof(MacAddresses) == 12 && alignof(MacAddresses) == 1);

/// An IEEE 802.1Q tag, as it stands between the source address and the length.
struct VlanTag {
  NetU16 tagProtocolId;  ///< IEEE 802.1Q TPID (0x8100)
  NetU16 tagControl;     ///< IEEE 802.1Q TCI: PCP bits 15-13, DEI bit 12, VID bits 11-0
};
static_assert(sizeof(VlanTag) == 4 && alignof(VlanTag) == 1);

/// The IEEE 802.3 Length/Type field (a tag's TPID stands here in a tagged frame).
struct LengthField {
  NetU16 lengthOrType;  ///< IEEE 802.3 Length/Type: as length, the octets of LLC data that follow
};
static_assert(sizeof(LengthField) == 2 && alignof(LengthField) == 1);

/// IEEE 802.2 LLC header.
struct LlcHeader {
  std::uint8_t dsap;     ///< IEEE 802.2 DSAP (destination service access point)
  std::uint8_t ssap;     ///< IEEE 802.2 SSAP (source service access point)
  std::uint8_t control;  ///< IEEE 802.2 control field
};
static_assert(sizeof(LlcHeader) == 3 && alignof(LlcHeader) == 1);

/// IEEE 802 SNAP header, behind LLC AA AA 03.
struct SnapHeader {
  std::array<std::uint8_t, 3> oui;  ///< IEEE 802 SNAP Organizationally Unique Identifier
  NetU16 protocolId;                ///< IEEE 802 SNAP Protocol Identifier
};
static_assert(sizeof(SnapHeader) == 5 && alignof(SnapHeader) == 1);

/// The 802.1Q tag control word of `priority` (PCP), drop eligible clear, and the low 12 bits of `vlan`.
constexpr std::uint16_t tagControlOf(std::uint8_t priority, std::uint16_t vlan) {
  return static_cast<std::uint16_t>((priority << 13) | (vlan & vlanIdMask));
}

/// Everything in front of the LLC payload of a frame, as values.
struct LlcLink {
  EthAddr destination;
  EthAddr source;
  bool tagged = false;
  std::uint16_t tagControl = 0;  ///< read only when tagged
  LlcHeader llc{};
  bool snap = false;             ///< a SNAP header follows the LLC header (LLC AA AA 03)
  SnapHeader snapHeader{};       ///< read only when snap

  /// The VLAN identifier of the tag (0 when untagged).
  constexpr std::uint16_t vlan() const { return tagged ? static_cast<std::uint16_t>(tagControl & vlanIdMask) : 0; }
  /// Octets counted by the 802.3 length besides the payload: LLC, and SNAP when present.
  constexpr std::size_t llcSize() const { return sizeof(LlcHeader) + (snap ? sizeof(SnapHeader) : 0); }
  /// Octets in front of the payload.
  constexpr std::size_t headerSize() const {
    return sizeof(MacAddresses) + (tagged ? sizeof(VlanTag) : 0) + sizeof(LengthField) + llcSize();
  }
};

namespace detail {
/// Walks a frame one packed view at a time; the views have alignment 1, so any position is fine.
template <class Octet>
struct Cursor {
  Octet* at;
  template <class View>
  auto& next() {
    using V = std::conditional_t<std::is_const_v<Octet>, const View, View>;
    auto* view = reinterpret_cast<V*>(at);
    at += sizeof(View);
    return *view;
  }
};
}  // namespace detail

/// writeLlcLink in line: where `link` is known when compiling (every encoder's untagged IEEE header), the
/// compiler reduces it to a few stores.
inline std::uint8_t* putLlcLink(std::uint8_t* frame, const LlcLink& link, std::size_t payloadSize) {
  detail::Cursor<std::uint8_t> c{frame};
  auto& addresses = c.next<MacAddresses>();
  addresses.destinationAddress = link.destination.octets();
  addresses.sourceAddress = link.source.octets();
  if (link.tagged) {
    auto& tag = c.next<VlanTag>();
    tag.tagProtocolId = vlanTagProtocolId;
    tag.tagControl = link.tagControl;
  }
  c.next<LengthField>().lengthOrType = static_cast<std::uint16_t>(link.llcSize() + payloadSize);
  c.next<LlcHeader>() = link.llc;
  if (link.snap) c.next<SnapHeader>() = link.snapHeader;
  return c.at;
}

/// Writes the header of `link` for a payload of `payloadSize` octets at `frame`, which must have room for
/// link.headerSize() octets, and returns the payload start. The length field is the LLC (and SNAP)
/// octets plus `payloadSize`; the caller keeps that within maxLengthField.
STPTXRX_EXPORT std::uint8_t* writeLlcLink(std::uint8_t* frame, const LlcLink& link, std::size_t payloadSize);

/// Why a frame has no LLC payload, or ok.
enum class LinkVerdict : std::uint8_t {
  ok,
  frameTooShort,      ///< the frame ends inside the addresses, the tag or the length
  notLengthField,     ///< the length/type field is an EtherType
  lengthBelowLlc,     ///< the length does not cover the LLC header (and SNAP, after LLC AA AA 03)
  lengthBeyondFrame,  ///< the length reaches past the end of the frame
};

/// A parsed frame: the link as far as the frame reached, and the payload the length declares.
struct LlcFrame {
  LinkVerdict verdict = LinkVerdict::ok;
  LlcLink link;
  const std::uint8_t* payload = nullptr;  ///< behind LLC (and SNAP); only when ok
  std::size_t payloadSize = 0;            ///< the length minus LLC (and SNAP); octets after it are ignored
};

/// Parses the `size` octets at `frame` (null when size is 0): addresses, one optional 802.1Q tag, the
/// 802.3 length, LLC and, after LLC AA AA 03, SNAP. Never reads outside [frame, frame + size).
STPTXRX_EXPORT LlcFrame parseLlcLink(const std::uint8_t* frame, std::size_t size);

}  // namespace Nelk
