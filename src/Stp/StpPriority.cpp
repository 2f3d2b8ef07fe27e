#include <stptxrx/Stp/StpPriority.h>

#include <stptxrx/runtime/Exception.h>

namespace StpTxRx {

Stp::BridgePriority checkedBridgePriority(std::int64_t value) {
  if (value < Stp::BridgePriority::minBridgePriority || value > Stp::BridgePriority::maxBridgePriority) {
    Zek::throwRangeException(
        "BridgePriority::value < BridgePriority::minBridgePriority or > BridgePriority::maxBridgePriority not "
        "allowed");
  }
  return Stp::BridgePriority{static_cast<std::uint16_t>(value)};
}

Stp::BridgePriority bridgePriority(Stp::CompressedBridgePriority c) {
  // Keeping 16 bits first is what makes 16 wrap to 0 instead of failing the range check.
  return checkedBridgePriority(static_cast<std::uint16_t>(c.value << 12));
}

std::uint8_t portPriority(Stp::CompressedPortPriority c) { return static_cast<std::uint8_t>(c.value << 4); }

}  // namespace StpTxRx
