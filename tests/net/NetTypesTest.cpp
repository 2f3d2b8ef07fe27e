// Network value types: MAC printing, interface name order and short names, network-order fields.
#include <stptxrx/net/EthAddr.h>
#include <stptxrx/net/IntfId.h>
#include <stptxrx/net/NetTypes.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <unordered_set>
#include <vector>

namespace Nelk {
namespace {

template <class T>
std::string text(const T& v) {
  std::ostringstream os;
  os << v;
  return os.str();
}

TEST(EthAddrTest, OctetsInOrderPrintedAsLowerCaseHex) {
  EthAddr a(0x00, 0x11, 0x22, 0xaB, 0x0c, 0xFF);
  EXPECT_EQ(text(a), "00:11:22:ab:0c:ff");
  EXPECT_EQ(a[3], 0xab);
  EXPECT_FALSE(a.isZero());
  EXPECT_TRUE(EthAddr().isZero());
  EXPECT_EQ(EthAddr(std::array<std::uint8_t, 6>{0, 0x11, 0x22, 0xab, 0x0c, 0xff}), a);
  EXPECT_LT(EthAddr(0, 0, 0, 0, 0, 1), EthAddr(0, 0, 0, 0, 1, 0));
}

TEST(IntfIdTest, NaturalOrderComparesDigitRunsByValue) {
  std::vector<IntfId> ids{IntfId("Ethernet10"), IntfId("Ethernet2"),   IntfId("Ethernet1/10"),
                          IntfId("Ethernet1/2"), IntfId("PortChannel1"), IntfId("Ethernet1"),
                          IntfId("Ethernet02"), IntfId("Ethernet")};
  std::sort(ids.begin(), ids.end());
  std::vector<std::string> names;
  for (const auto& i : ids) names.push_back(text(i));
  EXPECT_EQ(names, (std::vector<std::string>{"Ethernet", "Ethernet1", "Ethernet1/2", "Ethernet1/10", "Ethernet2",
                                             "Ethernet02", "Ethernet10", "PortChannel1"}));
}

TEST(IntfIdTest, OrderIsStrictAndConsistentWithEquality) {
  const std::vector<IntfId> ids{IntfId("Et2"),  IntfId("Et02"), IntfId("Et002"), IntfId("Et10"),
                                IntfId("Et1/1"), IntfId("Et1"), IntfId(""),       IntfId("9")};
  for (const auto& a : ids) {
    EXPECT_FALSE(a < a) << a;
    for (const auto& b : ids) {
      if (a == b) continue;
      EXPECT_NE(a < b, b < a) << a << " vs " << b << ": exactly one order between different names";
      for (const auto& c : ids) {
        if (a < b && b < c) {
          EXPECT_TRUE(a < c) << a << " < " << b << " < " << c;
        }
      }
    }
  }
}

TEST(IntfIdTest, ShortNameKeepsTwoLettersOfTheLeadingWord) {
  EXPECT_EQ(IntfId("Ethernet1/2").shortName(), "Et1/2");
  EXPECT_EQ(IntfId("PortChannel10").shortName(), "Po10");
  EXPECT_EQ(IntfId("Et3").shortName(), "Et3");
  EXPECT_EQ(IntfId("7").shortName(), "7");
  EXPECT_EQ(IntfId("").shortName(), "");
  EXPECT_EQ(IntfId("Management").shortName(), "Ma");
}

TEST(IntfIdTest, HashAndEqualityFollowTheName) {
  std::unordered_set<IntfId> set{IntfId("Ethernet1"), IntfId(Zek::String("Ethernet1")), IntfId("Ethernet01")};
  EXPECT_EQ(set.size(), 2u);
  EXPECT_TRUE(IntfId().empty());
}

struct Wire {
  std::uint8_t type;
  NetU16 length;  // unaligned on purpose
  NetU32 value;
};
static_assert(sizeof(Wire) == 7);

TEST(NetFieldTest, NetworkOrderWhateverTheHost) {
  Wire w{};
  w.type = 1;
  w.length = 0x0027;
  w.value = 0x01020304u;
  std::uint8_t bytes[sizeof(Wire)];
  std::memcpy(bytes, &w, sizeof w);
  const std::uint8_t expected[] = {0x01, 0x00, 0x27, 0x01, 0x02, 0x03, 0x04};
  EXPECT_EQ(0, std::memcmp(bytes, expected, sizeof expected));
  EXPECT_EQ(w.length.value(), 0x27);
  EXPECT_EQ(w.value.value(), 0x01020304u);
  static_assert(NetU16(0xfffe).value() == 0xfffe);
  static_assert(NetU32(0x80000001u).value() == 0x80000001u);
}

}  // namespace
}  // namespace Nelk
