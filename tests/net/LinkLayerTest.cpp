// The link layer of LLC frames: what writeLlcLink writes, parseLlcLink reads back, for every form (tag or
// not, SNAP or not); every cut of such a frame gets its verdict; and the length field's boundaries.
#include <stptxrx/net/LinkLayer.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace Nelk {
namespace {

using Octets = std::vector<std::uint8_t>;

LlcLink linkOf(bool tagged, bool snap) {
  return LlcLink{.destination = EthAddr(0x01, 0x80, 0xc2, 0, 0, 0), .source = EthAddr(0x02, 0, 0, 0, 0, 0x07),
                 .tagged = tagged, .tagControl = tagControlOf(7, 0x0abc),
                 .llc = snap ? LlcHeader{0xaa, 0xaa, 0x03} : LlcHeader{0x42, 0x42, 0x03}, .snap = snap,
                 .snapHeader = SnapHeader{{0x00, 0x00, 0x0c}, NetU16(0x010b)}};
}

TEST(LlcLinkTest, EveryFormReadsBackAndEveryCutHasItsVerdict) {
  // header: octets in front of the payload; tooShortBelow: a cut shorter than this ends inside addresses, tag
  // or length.
  const struct Form { bool tagged, snap; std::size_t header, tooShortBelow; } forms[] = {
      {false, false, 17, 14}, {true, false, 21, 18}, {false, true, 22, 14}, {true, true, 26, 18}};
  const Octets payload = {1, 2, 3, 4, 5};
  for (const Form& f : forms) {
    SCOPED_TRACE(testing::Message() << "tagged " << f.tagged << " snap " << f.snap);
    const LlcLink link = linkOf(f.tagged, f.snap);
    EXPECT_EQ(link.headerSize(), f.header);
    Octets frame(f.header + payload.size());
    ASSERT_EQ(writeLlcLink(frame.data(), link, payload.size()), frame.data() + f.header);
    std::copy(payload.begin(), payload.end(), frame.data() + f.header);
    const auto& length = *reinterpret_cast<const LengthField*>(frame.data() + (f.tagged ? 16 : 12));
    EXPECT_EQ(length.lengthOrType.value(), f.header - (f.tagged ? 18 : 14) + payload.size()) << "LLC, SNAP, payload";

    const LlcFrame whole = parseLlcLink(frame.data(), frame.size());
    ASSERT_EQ(whole.verdict, LinkVerdict::ok);
    EXPECT_TRUE(whole.link.destination == link.destination && whole.link.source == link.source);
    EXPECT_TRUE(whole.link.tagged == f.tagged && whole.link.vlan() == (f.tagged ? 0x0abc : 0));
    EXPECT_TRUE(whole.link.snap == f.snap && (!f.snap || whole.link.snapHeader.protocolId.value() == 0x010b));
    EXPECT_EQ(whole.payload, frame.data() + f.header);
    EXPECT_EQ(whole.payloadSize, payload.size());

    // (Padding after the declared length: the BPDU decode tables.)
    for (std::size_t cut = 0; cut < frame.size(); ++cut) {
      const LinkVerdict v = parseLlcLink(cut ? frame.data() : nullptr, cut).verdict;
      EXPECT_EQ(v, cut < f.tooShortBelow ? LinkVerdict::frameTooShort : LinkVerdict::lengthBeyondFrame) << cut;
    }
  }
}

TEST(LlcLinkTest, TheLengthFieldAtItsBoundaries) {
  const struct Case { bool snap; std::uint16_t length; LinkVerdict verdict; std::size_t payload; } cases[] = {
      {false, 1500, LinkVerdict::ok, 1497},         {false, 1501, LinkVerdict::notLengthField, 0},
      {false, 0x8100 + 1, LinkVerdict::notLengthField, 0}, {false, 3, LinkVerdict::ok, 0},
      {false, 2, LinkVerdict::lengthBelowLlc, 0},   {true, 8, LinkVerdict::ok, 0},
      {true, 7, LinkVerdict::lengthBelowLlc, 0},    {true, 3, LinkVerdict::lengthBelowLlc, 0}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "snap " << c.snap << " length " << c.length);
    Octets frame(14 + 1500);
    writeLlcLink(frame.data(), linkOf(false, c.snap), 0);
    reinterpret_cast<LengthField*>(frame.data() + sizeof(MacAddresses))->lengthOrType = c.length;
    const LlcFrame parsed = parseLlcLink(frame.data(), frame.size());
    EXPECT_TRUE(parsed.verdict == c.verdict && parsed.payloadSize == c.payload);
  }
}

}  // namespace
}  // namespace Nelk
