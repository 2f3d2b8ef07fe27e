// Wire encodings of the spanning-tree value types and the BPDU body view.
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/StpTypes.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Stp {
namespace {

template <class T>
std::vector<std::uint8_t> octetsOf(const T& wire) {
  std::vector<std::uint8_t> out(sizeof(T));
  std::memcpy(out.data(), &wire, sizeof(T));
  return out;
}

using Octets = std::vector<std::uint8_t>;
const EthAddr addr(0x00, 0x11, 0x22, 0x33, 0x44, 0x55);

TEST(BridgeIdWireTest, PriorityTopBitsThenExtensionLowBitsThenAddressAsHeld) {
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{32768, 0x1001, addr})),
            (Octets{0x80, 0x01, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55}))
      << "extension bits above bit 11 are dropped";
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0x8fff, 0, addr})),
            (Octets{0x80, 0x00, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55}))
      << "priority bits below bit 12 never reach the wire";
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0xF000, 0xffff, EthAddr(0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa)})),
            (Octets{0xff, 0xff, 0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa}));
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0, 0, EthAddr()})), Octets(8, 0));
}

TEST(PortIdWireTest, PriorityDividedBy16ThenPortNumberLowBits) {
  EXPECT_EQ(octetsOf(portIdWire(PortId(128, 0x1005))), (Octets{0x80, 0x05}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(240, 0x0fff))), (Octets{0xff, 0xff}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(15, 0x0001))), (Octets{0x00, 0x01})) << "priority below 16 is 0";
  EXPECT_EQ(octetsOf(portIdWire(PortId(0x1f, 0xf000))), (Octets{0x10, 0x00}));
}

TEST(RstpBpduViewTest, FieldsLandAtTheirBodyOffsetsAndFlagsTouchOnlyOctetFour) {
  std::array<std::uint8_t, RstpBpdu::wireSize> body;
  body.fill(0xaa);
  RstpBpdu* view = RstpBpdu::of(reinterpret_cast<CommonBpdu*>(body.data()));

  view->rstpFlagsIs(RstpBpduFlags{0x3c});
  for (std::size_t i = 0; i < body.size(); ++i) EXPECT_EQ(body[i], i == 4 ? 0x3c : 0xaa) << "octet " << i;
  EXPECT_EQ(view->rstpFlags(), RstpBpduFlags{0x3c});

  view->rootPathCost = 0x01020304;
  view->portIdentifier = portIdWire(PortId(128, 3));
  view->forwardDelay = TimerVal(0x0f, 0x01);
  view->version1Length = 0;
  EXPECT_EQ(Octets(body.begin() + 13, body.begin() + 17), (Octets{1, 2, 3, 4}));
  EXPECT_EQ(Octets(body.begin() + 25, body.begin() + 27), (Octets{0x80, 0x03}));
  EXPECT_EQ(Octets(body.begin() + 33, body.end()), (Octets{0x0f, 0x01, 0x00}));
}

}  // namespace
}  // namespace Stp
