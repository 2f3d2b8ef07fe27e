#pragma once
#include <stptxrx/runtime/Export.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <iosfwd>
#include <optional>
#include <string_view>
#include <type_traits>

namespace Nelk {

/// A 6-octet MAC address, octets in transmission order. Plain value.
class STPTXRX_EXPORT EthAddr {
 public:
  constexpr EthAddr() = default;
  constexpr EthAddr(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d, std::uint8_t e,
                    std::uint8_t f)
      : octets_{a, b, c, d, e, f} {}
  constexpr explicit EthAddr(const std::array<std::uint8_t, 6>& octets) : octets_(octets) {}

  /// Parses "00:11:22:33:44:55": six groups of one or two hex digits (either case) separated by ':'.
  /// Empty for anything else (another separator, a missing or extra group, a sign, spaces).
  static std::optional<EthAddr> fromText(std::string_view text);

  constexpr const std::array<std::uint8_t, 6>& octets() const { return octets_; }
  /// A group (multicast or broadcast) address: the I/G bit, the low bit of the first octet, is set.
  /// Such an address is never the source of a frame.
  constexpr bool isGroup() const { return (octets_[0] & 0x01) != 0; }
  constexpr std::uint8_t operator[](std::size_t i) const { return octets_[i]; }
  constexpr bool isZero() const { return (octets_[0] | octets_[1] | octets_[2] | octets_[3] | octets_[4] | octets_[5]) == 0; }

  // Spelled out: the defaulted comparison calls memcmp, which dominates the per-attribute copy paths. At
  // run time the six octets are compared as one 4-octet and one 2-octet word.
  friend constexpr bool operator==(const EthAddr& a, const EthAddr& b) {
    const auto& x = a.octets_;
    const auto& y = b.octets_;
    if (std::is_constant_evaluated()) return x == y;
    std::uint32_t x4, y4;
    std::uint16_t x2, y2;
    std::memcpy(&x4, x.data(), 4);
    std::memcpy(&y4, y.data(), 4);
    std::memcpy(&x2, x.data() + 4, 2);
    std::memcpy(&y2, y.data() + 4, 2);
    return ((x4 ^ y4) | static_cast<std::uint32_t>(x2 ^ y2)) == 0;
  }
  friend constexpr auto operator<=>(const EthAddr&, const EthAddr&) = default;

 private:
  std::array<std::uint8_t, 6> octets_{};
};

/// Prints "00:11:22:33:44:55" (lower-case hex).
STPTXRX_EXPORT std::ostream& operator<<(std::ostream& os, const EthAddr& a);

}  // namespace Nelk
