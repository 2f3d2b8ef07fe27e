// Printed forms of the spanning-tree value types.
#include <stptxrx/state/StpTypes.h>

#include <cstdio>
#include <ostream>

namespace Bridging {
std::ostream& operator<<(std::ostream& os, VlanIdOrNone v) { return os << v.value(); }
}  // namespace Bridging

namespace Stp {

namespace {
std::ostream& hexOctets(std::ostream& os, const std::uint8_t* p, std::size_t n, const char* sep) {
  char text[4];
  for (std::size_t i = 0; i < n; ++i) {
    std::snprintf(text, sizeof text, "%02x", p[i]);
    if (i) os << sep;
    os << text;
  }
  return os;
}
}  // namespace

std::ostream& operator<<(std::ostream& os, BridgeSystemId id) { return os << id.value(); }
std::ostream& operator<<(std::ostream& os, BridgePriority p) { return os << p.value; }
std::ostream& operator<<(std::ostream& os, CompressedBridgePriority p) { return os << p.value; }
std::ostream& operator<<(std::ostream& os, CompressedPortPriority p) { return os << p.value; }
std::ostream& operator<<(std::ostream& os, const BridgeId& id) {
  return os << id.priority << '.' << id.systemIdExtension << '.' << id.address;
}
std::ostream& operator<<(std::ostream& os, PortId id) {
  return os << unsigned{id.priority} << '.' << id.portNumber;
}
std::ostream& operator<<(std::ostream& os, const TimerVal& t) { return hexOctets(os, t.octets.data(), 2, " "); }
std::ostream& operator<<(std::ostream& os, RstpBpduFlags f) {
  os << "0x";
  return hexOctets(os, &f.value, 1, "");
}
std::ostream& operator<<(std::ostream& os, StpBpduVersion v) { return os << unsigned{v.value}; }
std::ostream& operator<<(std::ostream& os, StpBpduType t) { return os << unsigned{t.value}; }
std::ostream& operator<<(std::ostream& os, const MstpConfigDigest& d) {
  return hexOctets(os, d.octets.data(), d.octets.size(), "");
}

}  // namespace Stp
