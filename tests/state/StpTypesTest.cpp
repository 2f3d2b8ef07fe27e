// Wire encodings of the identifiers: only the documented bits of each part reach the wire.
#include <stptxrx/state/StpTypes.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace Stp {
namespace {

using Octets = std::vector<std::uint8_t>;

template <class T>
Octets octetsOf(const T& wire) {
  Octets out(sizeof(T));
  std::memcpy(out.data(), &wire, sizeof(T));
  return out;
}

TEST(WireEncodingTest, BridgeAndPortIdentifiersKeepTheTop4PriorityBitsAndTheLow12OtherBits) {
  const EthAddr addr(0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa);
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0x8fff, 0x1001, addr})),
            (Octets{0x80, 0x01, 0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa}));
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0xF000, 0xffff, addr})),
            (Octets{0xff, 0xff, 0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(0x1f, 0xf005))), (Octets{0x10, 0x05}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(240, 0x0fff))), (Octets{0xff, 0xff}));
}

TEST(VlanIdOrNoneTest, ZeroIsNone) {
  EXPECT_TRUE(!Bridging::VlanIdOrNone(0) && !static_cast<bool>(Bridging::VlanIdOrNone(0)) && Bridging::VlanIdOrNone().isNone());
  EXPECT_TRUE(static_cast<bool>(Bridging::VlanIdOrNone(4094)) && !Bridging::VlanIdOrNone(1).isNone());
}

}  // namespace
}  // namespace Stp
