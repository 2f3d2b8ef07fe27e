#pragma once
#include <cstddef>
#include <cstdint>

namespace Nelk {

/// An unsigned field held in network order (most significant octet first), whatever the host order.
/// Used inside packed wire views; has the size of `UInt` and an alignment of one octet.
template <class UInt>
class NetUInt {
 public:
  constexpr NetUInt() = default;
  constexpr explicit NetUInt(UInt host) { operator=(host); }
  constexpr NetUInt& operator=(UInt host) {
    for (std::size_t i = sizeof(UInt); i-- > 0; host = static_cast<UInt>(host >> 8)) {
      b_[i] = static_cast<std::uint8_t>(host);
    }
    return *this;
  }
  constexpr UInt value() const {
    UInt v = 0;
    for (std::uint8_t octet : b_) v = static_cast<UInt>((v << 8) | octet);
    return v;
  }

 private:
  std::uint8_t b_[sizeof(UInt)]{};
};

using NetU16 = NetUInt<std::uint16_t>;
using NetU32 = NetUInt<std::uint32_t>;

static_assert(sizeof(NetU16) == 2 && alignof(NetU16) == 1);
static_assert(sizeof(NetU32) == 4 && alignof(NetU32) == 1);

}  // namespace Nelk
