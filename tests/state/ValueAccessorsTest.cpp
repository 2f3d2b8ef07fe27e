// The value types as a user reads them: flags by name, timers in seconds, identifiers on the wire, the
// library's version.
#include <stptxrx/Version.h>
#include <stptxrx/state/StpTypes.h>

#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <vector>

namespace Stp {
namespace {

// Every octet: the octet rebuilt from the named accessors is the octet (no accessor reads a neighbour's bit).
TEST(FlagsAccessorTest, EveryOctetRebuildsFromItsNamedBits) {
  for (unsigned v = 0; v <= 0xff; ++v) {
    const RstpBpduFlags f{static_cast<std::uint8_t>(v)};
    const unsigned rebuilt = unsigned{f.tc()} | unsigned{f.proposal()} << 1 |
                             static_cast<unsigned>(f.portRole()) << 2 | unsigned{f.learning()} << 4 |
                             unsigned{f.forwarding()} << 5 | unsigned{f.agreement()} << 6 | unsigned{f.tca()} << 7;
    ASSERT_TRUE(rebuilt == v && f.master() == f.tca() && f.value == v) << v;
  }
  for (auto [octet, role] : {std::pair{0x0c, PortRole::designated}, {0x08, PortRole::root},
                             {0x04, PortRole::alternateOrBackup}, {0xf3, PortRole::unknownOrMaster}}) {
    EXPECT_EQ(RstpBpduFlags{static_cast<std::uint8_t>(octet)}.portRole(), role) << octet;
  }
}

TEST(TimerSecondsTest, SecondsAtTheEdgesOfTheFieldAreKeptOrRefusedNeverWrapped) {
  const double nan = std::numeric_limits<double>::quiet_NaN(), inf = std::numeric_limits<double>::infinity();
  const struct { double seconds; std::optional<std::uint16_t> wire; } cases[] = {
      {0.0, 0x0000}, {2.0, 0x0200}, {20.0, 0x1400}, {1.0 / 512, 0x0001}, {1.0 / 1024, 0x0000},
      {TimerVal::maxSeconds, 0xffff}, {255.998, 0xffff}, {255.9981, std::nullopt}, {256.0, std::nullopt},
      {65536.0, std::nullopt}, {-0.001, std::nullopt}, {-256.0, std::nullopt}, {nan, std::nullopt},
      {inf, std::nullopt}, {-inf, std::nullopt}};
  for (const auto& c : cases) {
    const std::optional<TimerVal> t = TimerVal::fromSeconds(c.seconds);
    EXPECT_EQ(t ? std::optional{t->wire()} : std::nullopt, c.wire) << c.seconds;
  }
  for (unsigned w = 0; w <= 0xffff; ++w) {
    const TimerVal t = TimerVal::fromWire(static_cast<std::uint16_t>(w));
    ASSERT_TRUE(t.seconds() * 256 == w && TimerVal::fromSeconds(t.seconds()) == t) << w;
  }
}

// Only the documented bits of each part reach the wire: the top 4 priority bits and the low 12 other bits.
TEST(WireEncodingTest, BridgeAndPortIdentifiersKeepTheTop4PriorityBitsAndTheLow12OtherBits) {
  using Octets = std::vector<std::uint8_t>;
  const auto octetsOf = [](const auto& w) {
    return Octets(reinterpret_cast<const std::uint8_t*>(&w), reinterpret_cast<const std::uint8_t*>(&w + 1));
  };
  const EthAddr addr(0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa);
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0x8fff, 0x1001, addr})), (Octets{0x80, 0x01, 0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa}));
  EXPECT_EQ(octetsOf(bridgeIdWire(BridgeId{0xF000, 0xffff, addr})), (Octets{0xff, 0xff, 0xff, 0xfe, 0xfd, 0xfc, 0xfb, 0xfa}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(0x1f, 0xf005))), (Octets{0x10, 0x05}));
  EXPECT_EQ(octetsOf(portIdWire(PortId(240, 0x0fff))), (Octets{0xff, 0xff}));
  EXPECT_TRUE(!Bridging::VlanIdOrNone(0) && Bridging::VlanIdOrNone().isNone() && !Bridging::VlanIdOrNone(1).isNone());
  EXPECT_TRUE(static_cast<bool>(Bridging::VlanIdOrNone(4094))) << "zero alone is none";
}

TEST(VersionTest, TheRunningLibraryReportsTheVersionOfItsHeaders) {
  EXPECT_EQ(StpTxRx::versionNumber(), unsigned{STPTXRX_VERSION});
  EXPECT_EQ(StpTxRx::versionText(), std::to_string(STPTXRX_VERSION_MAJOR) + "." + std::to_string(STPTXRX_VERSION_MINOR) +
                                        "." + std::to_string(STPTXRX_VERSION_PATCH));
}

}  // namespace
}  // namespace Stp
