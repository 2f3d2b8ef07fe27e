// The value types as a user reads them: flags by name, timers in seconds, the library's version.
#include <stptxrx/Version.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <optional>
#include <sstream>
#include <string>

namespace Stp {
namespace {

// Every octet: each named bit reads its own bit, the octet rebuilt from the accessors is the octet (so
// no accessor reads a neighbour's bit), and reading changes nothing.
TEST(FlagsAccessorTest, EveryOctetRebuildsFromItsNamedBits) {
  for (unsigned v = 0; v <= 0xff; ++v) {
    const RstpBpduFlags f{static_cast<std::uint8_t>(v)};
    const unsigned rebuilt = unsigned{f.tc()} | unsigned{f.proposal()} << 1 |
                             static_cast<unsigned>(f.portRole()) << 2 | unsigned{f.learning()} << 4 |
                             unsigned{f.forwarding()} << 5 | unsigned{f.agreement()} << 6 | unsigned{f.tca()} << 7;
    ASSERT_EQ(rebuilt, v);
    ASSERT_EQ(f.master(), f.tca());
    ASSERT_EQ(f.value, v);
  }
  EXPECT_EQ(RstpBpduFlags{0x0c}.portRole(), PortRole::designated);
  EXPECT_EQ(RstpBpduFlags{0x08}.portRole(), PortRole::root);
  EXPECT_EQ(RstpBpduFlags{0x04}.portRole(), PortRole::alternateOrBackup);
  EXPECT_EQ(RstpBpduFlags{0xf3}.portRole(), PortRole::unknownOrMaster);
}

TEST(TimerSecondsTest, SecondsAtTheEdgesOfTheFieldAreKeptOrRefusedNeverWrapped) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  const struct { double seconds; std::optional<std::uint16_t> wire; } cases[] = {
      {0.0, 0x0000},          {2.0, 0x0200},         {20.0, 0x1400},        {1.0 / 512, 0x0001},
      {1.0 / 1024, 0x0000},   {TimerVal::maxSeconds, 0xffff},               {255.998, 0xffff},
      {255.9981, std::nullopt}, {256.0, std::nullopt}, {65536.0, std::nullopt}, {-0.001, std::nullopt},
      {-256.0, std::nullopt}, {nan, std::nullopt},   {inf, std::nullopt},   {-inf, std::nullopt}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.seconds);
    const std::optional<TimerVal> t = TimerVal::fromSeconds(c.seconds);
    ASSERT_EQ(t.has_value(), c.wire.has_value());
    if (t) {
      EXPECT_EQ(t->wire(), *c.wire);
    }
  }
  for (unsigned w = 0; w <= 0xffff; ++w) {
    const TimerVal t = TimerVal::fromWire(static_cast<std::uint16_t>(w));
    ASSERT_EQ(t.seconds() * 256, w);
    ASSERT_EQ(TimerVal::fromSeconds(t.seconds()), t);
  }
}

TEST(VersionTest, TheRunningLibraryReportsTheVersionOfItsHeaders) {
  EXPECT_EQ(StpTxRx::versionNumber(), unsigned{STPTXRX_VERSION});
  EXPECT_EQ(std::string(StpTxRx::versionText()), std::to_string(STPTXRX_VERSION_MAJOR) + "." +
                                                     std::to_string(STPTXRX_VERSION_MINOR) + "." +
                                                     std::to_string(STPTXRX_VERSION_PATCH));
}

}  // namespace
}  // namespace Stp

namespace StpTxRx {
namespace {

// A record prints its entries' content, so two records that differ only inside an entry print apart.
TEST(IntxInfoPrintTest, EntriesPrintWithTheirContentInKeyOrder) {
  auto printed = [](const IntxInfo& info) {
    std::ostringstream os;
    os << info;
    return os.str();
  };
  const IntxInfo::Ptr a = IntxInfo::IntxInfoIs(VlanIdOrNone(5));
  a->mstiNIs(BridgeSystemId(2))->flagsIs(RstpBpduFlags{0x3c});
  a->mstiNIs(BridgeSystemId(0))->portIdIs(PortId(128, 7));
  const IntxInfo::Ptr b = IntxInfo::IntxInfoIs(VlanIdOrNone(5));
  b->mstiNIs(BridgeSystemId(2))->flagsIs(RstpBpduFlags{0x3d});
  b->mstiNIs(BridgeSystemId(0))->portIdIs(PortId(128, 7));
  const std::string text = printed(*a);
  EXPECT_NE(text, printed(*b));
  const auto first = text.find("IntxMstiInfo(0 ");
  const auto second = text.find("IntxMstiInfo(2 flags=0x3c");
  ASSERT_NE(first, std::string::npos) << text;
  ASSERT_NE(second, std::string::npos) << text;
  EXPECT_LT(first, second);
  EXPECT_NE(text.find("port=128.7"), std::string::npos) << text;
}

}  // namespace
}  // namespace StpTxRx
