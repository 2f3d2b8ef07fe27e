#pragma once
// The two phases of decoding (library-internal): a parse that checks everything a fill needs without
// writing anything, and the fill of a record from a valid parse. The receive path runs them apart, so
// that the record it fills can depend on what the parse found (a PVST+ BPDU's originating VLAN).
#include <stptxrx/Stp/BpduDecode.h>
#include <stptxrx/state/BpduWire.h>
#include <stptxrx/state/IntxInfo.h>

#include <cstddef>
#include <cstdint>

namespace StpTxRx {

/// A frame's verdict and, when valid, where its BPDU body is (inside the caller's frame).
struct ParsedBpdu {
  BpduDecodeResult result;
  const std::uint8_t* body = nullptr;

  const ParsedBpdu& reject(BpduReason why) {
    result.kind = BpduKind::Rejected;
    result.reject = why;
    return *this;
  }
  /// The i-th MSTI message of a valid MST BPDU.
  const Stp::MstiConfigMessage& msti(std::size_t i) const {
    return *reinterpret_cast<const Stp::MstiConfigMessage*>(body + Stp::MstBpdu::wireSize +
                                                            i * Stp::MstiConfigMessage::wireSize);
  }
};

/// Parses and validates the `size` octets at `frame`; reads nothing outside them.
ParsedBpdu parseBpduFrame(const std::uint8_t* frame, std::size_t size);

/// Fills `info` from a valid parse (see generateIntxInfoFromPkt).
void fillRecord(const ParsedBpdu& p, IntxInfo& info);

}  // namespace StpTxRx
