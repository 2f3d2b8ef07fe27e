#pragma once
#include <cstdint>

namespace Nelk {

/// A 16-bit field held in network order (most significant octet first), whatever the host order. Used
/// inside packed wire views; has the size and alignment of two octets.
class NetU16 {
 public:
  constexpr NetU16() = default;
  constexpr explicit NetU16(std::uint16_t host) { operator=(host); }
  constexpr NetU16& operator=(std::uint16_t host) {
    b_[0] = static_cast<std::uint8_t>(host >> 8);
    b_[1] = static_cast<std::uint8_t>(host);
    return *this;
  }
  constexpr std::uint16_t value() const { return static_cast<std::uint16_t>((b_[0] << 8) | b_[1]); }

 private:
  std::uint8_t b_[2]{};
};

/// A 32-bit field held in network order; see NetU16.
class NetU32 {
 public:
  constexpr NetU32() = default;
  constexpr explicit NetU32(std::uint32_t host) { operator=(host); }
  constexpr NetU32& operator=(std::uint32_t host) {
    b_[0] = static_cast<std::uint8_t>(host >> 24);
    b_[1] = static_cast<std::uint8_t>(host >> 16);
    b_[2] = static_cast<std::uint8_t>(host >> 8);
    b_[3] = static_cast<std::uint8_t>(host);
    return *this;
  }
  constexpr std::uint32_t value() const {
    return (std::uint32_t{b_[0]} << 24) | (std::uint32_t{b_[1]} << 16) | (std::uint32_t{b_[2]} << 8) | b_[3];
  }

 private:
  std::uint8_t b_[4]{};
};

static_assert(sizeof(NetU16) == 2 && alignof(NetU16) == 1);
static_assert(sizeof(NetU32) == 4 && alignof(NetU32) == 1);

}  // namespace Nelk
