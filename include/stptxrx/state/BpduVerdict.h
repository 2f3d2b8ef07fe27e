#pragma once
// What became of a frame handed to the receive path: the kind of a valid BPDU or the reason it was
// rejected, and the per-port counts of both (PortCounters).
#include <stptxrx/runtime/Export.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace StpTxRx {

/// The kind of a BPDU; `Rejected` for a frame that is not a valid one.
enum class BpduKind : std::uint8_t { Config, Tcn, Rst, Mst, Rejected };
/// "config", "tcn", "rst", "mst", "reject".
STPTXRX_EXPORT const char* bpduKindName(BpduKind kind);
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, BpduKind kind);

/// Why a frame was rejected, why a version 3+ BPDU was read as an RST BPDU (the mst... reasons), or
/// that the rate limit dropped it.
/// Each has a text (bpduReasonText) and a short name (bpduReasonName).
enum class BpduReason : std::uint8_t {
  none,
  // link layer
  frameTooShort,             ///< "frame too short for its link header"
  notLengthField,            ///< "length/type field is not an 802.3 length"
  lengthBelowLlc,            ///< "length field shorter than the LLC header"
  lengthBeyondFrame,         ///< "length field beyond the frame"
  notStpLlc,                 ///< "not LLC 42 42 03"
  // BPDU
  bpduTooShort,              ///< "BPDU shorter than 4 octets"
  protocolIdentifier,        ///< "protocol identifier not 0"
  configTooShort,            ///< "configuration BPDU shorter than 35 octets"
  messageAgeNotBelowMaxAge,  ///< "message age not below max age"
  rstTooShort,               ///< "RST BPDU shorter than 36 octets"
  unknownType,               ///< "unknown BPDU type or version"
  mstiIdZero,                ///< "MSTI message with MSTID 0"
  mstiIdRepeated,            ///< "MSTI message repeats an MSTID"
  // PVST+ (LLC AA AA 03 and SNAP)
  notPvstSnap,               ///< "SNAP not OUI 00 00 0C, protocol 01 0B"
  pvstVersion,               ///< "PVST+ BPDU of version 3 or higher"
  pvstNoVlanTlv,             ///< "PVST+ BPDU without its originating-VLAN TLV"
  pvstTlvTooShort,           ///< "originating-VLAN TLV cut short"
  pvstTlvLength,             ///< "originating-VLAN TLV length not 2"
  pvstVlanOutOfRange,        ///< "originating VLAN outside 1-4094"
  pvstVlanMismatch,          ///< "originating VLAN differs from the tag"
  // version 3+ BPDUs decoded as RST (not rejects)
  mstTooShort,               ///< "MST BPDU shorter than 102 octets"
  mstVersion1Length,         ///< "version 1 length not 0"
  mstVersion3Length,         ///< "version 3 length not 64 + 16 x n with n <= 64"
  mstBeyondBpdu,             ///< "version 3 length beyond the BPDU"
  // not decoded at all
  rateLimited,               ///< "dropped by the rate limit"
};
inline constexpr std::size_t bpduReasonCount = static_cast<std::size_t>(BpduReason::rateLimited) + 1;
/// The reasons that reject a frame: frameTooShort to pvstVlanMismatch.
inline constexpr std::size_t bpduRejectReasonCount = static_cast<std::size_t>(BpduReason::pvstVlanMismatch);
STPTXRX_EXPORT const char* bpduReasonText(BpduReason reason);
/// The enumerator's name ("lengthBeyondFrame"), for summaries and counters.
STPTXRX_EXPORT const char* bpduReasonName(BpduReason reason);

/// BPDU counters of a port: frames received by kind, rejected (in all and per reason), dropped by the
/// rate limit, and the valid PVST+ BPDUs among those counted by kind.
struct PortCounters {
  std::uint32_t configRx = 0;
  std::uint32_t tcnRx = 0;
  std::uint32_t rstRx = 0;
  std::uint32_t mstRx = 0;
  std::uint32_t rejected = 0;     ///< the sum of rejectedBy
  std::uint32_t rateLimited = 0;
  std::uint32_t pvstRx = 0;       ///< PVST+ BPDUs, also counted under their kind
  /// Index: the reject reason minus 1 (frameTooShort is 0).
  std::array<std::uint32_t, bpduRejectReasonCount> rejectedBy{};

  /// The count of a valid kind (Rejected: the total of rejects).
  std::uint32_t& of(BpduKind kind) {
    switch (kind) {
      case BpduKind::Config: return configRx;
      case BpduKind::Tcn: return tcnRx;
      case BpduKind::Rst: return rstRx;
      case BpduKind::Mst: return mstRx;
      case BpduKind::Rejected: break;
    }
    return rejected;
  }
  /// The count of a reject reason; `reason` must be one of the reject reasons.
  std::uint32_t& of(BpduReason reason) { return rejectedBy[static_cast<std::size_t>(reason) - 1]; }
  std::uint32_t of(BpduReason reason) const { return rejectedBy[static_cast<std::size_t>(reason) - 1]; }

  friend constexpr bool operator==(const PortCounters&, const PortCounters&) = default;
};
/// Prints "config=C tcn=T rst=R mst=M rejected=X rate-limited=L", then " pvst=P" when P > 0, then
/// " NAME=N" for each reject reason with a non-zero count.
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const PortCounters& c);

}  // namespace StpTxRx
