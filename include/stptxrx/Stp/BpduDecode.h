#pragma once
// Decoding and validating a received frame, IEEE or PVST+, into a record.
#include <stptxrx/Stp/BpduLink.h>
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/BpduVerdict.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstddef>
#include <cstdint>

namespace StpTxRx {

/// What a decode found. Addresses, the tag and the encapsulation are filled as far as the frame
/// reached; everything else only for a valid BPDU.
struct BpduDecodeResult {
  BpduKind kind = BpduKind::Rejected;
  BpduReason reject = BpduReason::none;       ///< why the kind is Rejected (rateLimited: never decoded)
  BpduReason rstFallback = BpduReason::none;  ///< for a version 3+ RST: the MST rule the BPDU broke
  bool tagged = false;                        ///< an 802.1Q tag stood before the length
  Bridging::VlanIdOrNone vlan;                ///< the tag's VLAN id (low 12 bits), 0 when untagged
  Nelk::EthAddr destination;                  ///< reported, not checked: any destination is accepted
  Nelk::EthAddr source;
  std::uint16_t bpduLength = 0;               ///< BPDU octets the 802.3 length declares (LLC, SNAP excluded)
  std::uint8_t mstiCount = 0;                 ///< MSTI configuration messages of an MST BPDU
  /// pvst once LLC AA AA 03 and SNAP 00 00 0C / 01 0B were read (a reject after them keeps it).
  BpduEncapsulation encapsulation = BpduEncapsulation::ieee;
  /// For a valid PVST+ BPDU: the VLAN of its originating-VLAN TLV (Config, RST), or the tag's VLAN (TCN;
  /// 0 untagged). 0 for an IEEE BPDU.
  Bridging::VlanIdOrNone originatingVlan;

  /// A BPDU of one of the four kinds (a default result is not valid).
  bool valid() const { return kind != BpduKind::Rejected; }
  bool pvst() const { return encapsulation == BpduEncapsulation::pvst; }
};

/// Decodes and validates the Ethernet frame of `size` octets at `frame` (destination, source, an
/// optional 802.1Q tag, the 802.3 length, then LLC 42 42 03 and the BPDU, or LLC AA AA 03 with SNAP
/// 00 00 0C / 01 0B and a PVST+ BPDU; octets after the declared length, padding and FCS, are ignored)
/// and, when it is a valid BPDU, fills `intxInfo` per the field table: neighborAddr is the frame's
/// source; the fields an entry does not carry are zeroed; entries the BPDU does not carry are removed
/// (as copyIntxInfo would), existing ones reused, MSTI entries written in the order of their messages.
/// A TCN writes only stpVersion and intxInfoType and leaves the rest. A Configuration BPDU's flags are
/// filled as they came.
///
/// A PVST+ BPDU is read as its kind (Config, TCN, RST; the TLV is not part of the record) after these
/// checks, each a named reject: SNAP with another OUI or protocol (notPvstSnap); version 3 or higher
/// (pvstVersion); a Config or RST BPDU without the originating-VLAN TLV at offset 36 (pvstNoVlanTlv),
/// with the TLV cut short (pvstTlvTooShort) or of a length other than 2 (pvstTlvLength), with a VLAN
/// outside 1-4094 (pvstVlanOutOfRange) or, in a tagged frame, other than the tag's (pvstVlanMismatch).
///
/// A rejected frame leaves `intxInfo` untouched. Never reads outside [frame, frame + size), never
/// aborts, allocates nothing when the record already has the entries (and configuration name) that
/// the BPDU carries. `intxInfo` may be null: the frame is then only validated. `frame` may be null
/// when `size` is 0.
STPTXRX_EXPORT BpduDecodeResult generateIntxInfoFromPkt(const std::uint8_t* frame, std::size_t size,
                                                        IntxInfo* intxInfo);
/// As above for the data of `pkt`; a null packet is an empty frame.
STPTXRX_EXPORT BpduDecodeResult generateIntxInfoFromPkt(const Nelk::Pkt::Ptr& pkt, IntxInfo::Ptr intxInfo);

}  // namespace StpTxRx
