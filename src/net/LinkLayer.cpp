#include <stptxrx/net/LinkLayer.h>

#include <type_traits>

namespace Nelk {

using detail::Cursor;

std::uint8_t* writeLlcLink(std::uint8_t* frame, const LlcLink& link, std::size_t payloadSize) {
  return putLlcLink(frame, link, payloadSize);
}

LlcFrame parseLlcLink(const std::uint8_t* frame, std::size_t size) {
  LlcFrame f;
  LlcLink& link = f.link;
  const std::uint8_t* const end = frame + size;
  Cursor<const std::uint8_t> c{frame};
  // Octets left behind the cursor; compared before each view is taken.
  auto left = [&] { return static_cast<std::size_t>(end - c.at); };
  auto fail = [&](LinkVerdict v) {
    f.verdict = v;
    return f;
  };

  if (left() < sizeof(MacAddresses) + sizeof(LengthField)) return fail(LinkVerdict::frameTooShort);
  const auto& addresses = c.next<MacAddresses>();
  link.destination = EthAddr(addresses.destinationAddress);
  link.source = EthAddr(addresses.sourceAddress);
  std::uint16_t length = c.next<LengthField>().lengthOrType.value();
  if (length == vlanTagProtocolId) {
    c.at -= sizeof(LengthField);  // the TPID was read as the length: the tag starts there
    if (left() < sizeof(VlanTag) + sizeof(LengthField)) return fail(LinkVerdict::frameTooShort);
    link.tagged = true;
    link.tagControl = c.next<VlanTag>().tagControl.value();
    length = c.next<LengthField>().lengthOrType.value();
  }
  if (length > maxLengthField) return fail(LinkVerdict::notLengthField);
  if (length < sizeof(LlcHeader)) return fail(LinkVerdict::lengthBelowLlc);
  if (length > left()) return fail(LinkVerdict::lengthBeyondFrame);
  link.llc = c.next<LlcHeader>();
  link.snap = link.llc.dsap == snapSap && link.llc.ssap == snapSap && link.llc.control == llcControlUi;
  if (link.snap) {
    if (length < link.llcSize()) return fail(LinkVerdict::lengthBelowLlc);
    link.snapHeader = c.next<SnapHeader>();
  }
  f.payload = c.at;
  f.payloadSize = length - link.llcSize();
  return f;
}

}  // namespace Nelk
