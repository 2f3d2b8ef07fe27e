#pragma once
// Bridge and port priority conversions.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/StpTypes.h>

#include <cstdint>

namespace StpTxRx {

/// `value` as a bridge priority. Takes any integer a caller may hold and refuses, never wraps: raises
/// Zek::RangeException ("BridgePriority::value < BridgePriority::minBridgePriority or >
/// BridgePriority::maxBridgePriority not allowed") when it is negative or above maxBridgePriority
/// (0xF000). Whether it is a multiple of 4096 is not checked here (the encoders refuse one that is not).
STPTXRX_EXPORT Stp::BridgePriority checkedBridgePriority(std::int64_t value);

/// The bridge priority of a compressed priority: c << 12, kept to 16 bits, then range checked. Because
/// only the low 16 bits are kept, c = 16 wraps to 0 (and 17 to 4096 ...) rather than raising.
STPTXRX_EXPORT Stp::BridgePriority bridgePriority(Stp::CompressedBridgePriority c);

/// The port priority of a compressed priority: 16 * c, without a range check. The result is the
/// 8-bit port priority of Stp::PortId, so c >= 16 wraps.
STPTXRX_EXPORT std::uint8_t portPriority(Stp::CompressedPortPriority c);

}  // namespace StpTxRx
