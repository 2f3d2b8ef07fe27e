#include <stptxrx/state/AgentTypes.h>

#include <cstddef>
#include <cstdint>
#include <ostream>

namespace Stp {

ZEK_TYPE_DEFINE(Port, "Stp::Port")
ZEK_TYPE_DEFINE(MstPortSm, "Stp::MstPortSm")
ZEK_TYPE_DEFINE(PortConfig, "Stp::PortConfig")
ZEK_TYPE_DEFINE(StpiPortStatus, "Stp::StpiPortStatus")
ZEK_TYPE_DEFINE(Config, "Stp::Config")

Port::Ptr Port::PortIs(const Nelk::IntfId& intfId, const Nelk::EthAddr& portAddr) {
  return Ptr(new Port(intfId, portAddr));
}

MstPortSm::Ptr MstPortSm::MstPortSmIs(Port::Ptr port) { return Ptr(new MstPortSm(std::move(port))); }

PortConfig::Ptr PortConfig::PortConfigIs(BpdufilterMode mode, bool defaultAllowed) {
  return Ptr(new PortConfig(mode, defaultAllowed));
}

StpiPortStatus::Ptr StpiPortStatus::StpiPortStatusIs(bool bpdufilterDefaultOper) {
  return Ptr(new StpiPortStatus(bpdufilterDefaultOper));
}

Config::Ptr Config::ConfigIs(bool bpdufilterDefault) { return Ptr(new Config(bpdufilterDefault)); }

namespace {
// A mode's name from `names` (indexed by its value), or TYPE(N) for a value outside them.
template <class Mode, std::size_t N>
std::ostream& printMode(std::ostream& os, Mode m, const char* type, const char* const (&names)[N]) {
  const auto value = static_cast<std::uint8_t>(m);
  if (value < N) return os << names[value];
  return os << type << "(" << unsigned{value} << ")";
}
}  // namespace

std::ostream& operator<<(std::ostream& os, BpdufilterMode m) {
  static_assert(static_cast<int>(BpdufilterMode::disabled) == 2);  // the names below in value order
  return printMode(os, m, "BpdufilterMode", {"followDefault", "enabled", "disabled"});
}

std::ostream& operator<<(std::ostream& os, IntfLoggingMode m) {
  static_assert(static_cast<int>(IntfLoggingMode::useDefault) == 2);  // the names below in value order
  return printMode(os, m, "IntfLoggingMode", {"on", "off", "useDefault"});
}

}  // namespace Stp
