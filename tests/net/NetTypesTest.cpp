// Network value types: MAC text and order, interface name order and short names, network-order fields.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/IntfId.h>
#include <stptxrx/net/NetTypes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <unordered_set>
#include <vector>

namespace Nelk {
namespace {

using ::testing::PrintToString;

// Text to address and back: what parses prints back (lower-case, two digits); anything else is refused.
TEST(EthAddrTest, FromTextTakesSixColonSeparatedHexGroupsAndNothingElse) {
  const struct { const char* in; const char* out; } cases[] = {
      {"00:11:22:33:44:55", "00:11:22:33:44:55"}, {"FF:fe:0A:b:c:D", "ff:fe:0a:0b:0c:0d"},
      {"0:0:0:0:0:0", "00:00:00:00:00:00"},       {"00:11:22:33:44", nullptr},
      {"00:11:22:33:44:55:66", nullptr},          {"00:11:22:33:44:55:", nullptr},
      {"00-11-22-33-44-55", nullptr},             {"000:11:22:33:44:55", nullptr},
      {"00:11:22:33:44:5g", nullptr},             {"00::22:33:44:55", nullptr},
      {" 00:11:22:33:44:55", nullptr},            {"00:11:22:33:44:55 ", nullptr},
      {"+0:11:22:33:44:55", nullptr},             {"", nullptr}};
  for (const auto& c : cases) {
    const auto a = EthAddr::fromText(c.in);
    EXPECT_EQ(a ? PrintToString(*a) : "refused", c.out ? c.out : "refused") << c.in;
  }
}

TEST(EthAddrTest, OctetsInOrderComparedAtCompileTimeTooAndTheGroupBitIsTheFirstOctetsLowest) {
  EthAddr a(0x00, 0x11, 0x22, 0xaB, 0x0c, 0xFF);
  EXPECT_EQ(EthAddr(std::array<std::uint8_t, 6>{0, 0x11, 0x22, 0xab, 0x0c, 0xff}), a);
  static_assert(EthAddr(0, 0x11, 2, 3, 4, 5) == EthAddr(0, 0x11, 2, 3, 4, 5) && !(EthAddr(1, 0, 0, 0, 0, 0) == EthAddr()));
  EXPECT_LT(EthAddr(0, 0, 0, 0, 0, 1), EthAddr(0, 0, 0, 0, 1, 0));
  EXPECT_TRUE(EthAddr().isZero() && !EthAddr(0, 0, 0, 0, 0, 1).isZero());
  EXPECT_TRUE(EthAddr(0x01, 0x80, 0xc2, 0, 0, 0).isGroup() && EthAddr(0xff, 0xff, 0xff, 0xff, 0xff, 0xff).isGroup());
  EXPECT_FALSE(EthAddr(0x02, 0, 0, 0, 0, 0x01).isGroup() || EthAddr(0xfe, 0xff, 0xff, 0xff, 0xff, 0xff).isGroup());
}

// Sorting checks the natural order; the pairwise loop checks that it is a strict weak order consistent
// with equality (names that differ only in leading zeros are different and still ordered).
TEST(IntfIdTest, NaturalOrderIsAStrictOrderComparingDigitRunsByValue) {
  std::vector<IntfId> ids{IntfId("Ethernet10"), IntfId("Ethernet2"), IntfId("Ethernet1/10"), IntfId("Ethernet1/2"),
                          IntfId("PortChannel1"), IntfId("Ethernet1"), IntfId("Ethernet02"), IntfId("Ethernet"),
                          IntfId(""), IntfId("9")};
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> names;
  for (const auto& i : ids) names.push_back(PrintToString(i));
  EXPECT_EQ(names, (std::vector<std::string>{"", "9", "Ethernet", "Ethernet1", "Ethernet1/2", "Ethernet1/10",
                                             "Ethernet2", "Ethernet02", "Ethernet10", "PortChannel1"}));
  for (const auto& a : ids) {
    for (const auto& b : ids) {
      EXPECT_EQ(a == b, !(a < b) && !(b < a)) << a << " vs " << b;
      for (const auto& c : ids) EXPECT_TRUE(!(a < b && b < c) || a < c) << a << " < " << b << " < " << c;
    }
  }
  std::unordered_set<IntfId> set{IntfId("Ethernet1"), IntfId(Zek::String("Ethernet1")), IntfId("Ethernet01")};
  EXPECT_EQ(set.size(), 2u);
  for (auto [name, shortName] : {std::pair{"Ethernet1/2", "Et1/2"}, {"PortChannel10", "Po10"}, {"Et3", "Et3"},
                                 {"7", "7"}, {"", ""}, {"Management", "Ma"}, {"Eth3", "Et3"}}) {
    EXPECT_EQ(IntfId(name).shortName(), shortName) << "two letters of the leading word: " << name;
  }
}

TEST(NetFieldTest, NetworkOrderWhateverTheHost) {
  struct Wire { std::uint8_t type = 1; NetU16 length{0x0027}; NetU32 value{0x01020304u}; } w;  // unaligned on purpose
  static_assert(sizeof(Wire) == 7);
  const std::uint8_t expected[] = {0x01, 0x00, 0x27, 0x01, 0x02, 0x03, 0x04};
  EXPECT_TRUE(std::memcmp(&w, expected, sizeof expected) == 0 && w.length.value() == 0x27 && w.value.value() == 0x01020304u);
  static_assert(NetU16(0xfffe).value() == 0xfffe && NetU32(0x80000001u).value() == 0x80000001u);
}

}  // namespace
}  // namespace Nelk
