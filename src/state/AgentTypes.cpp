#include <stptxrx/state/AgentTypes.h>

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

std::ostream& operator<<(std::ostream& os, BpdufilterMode m) {
  switch (m) {
    case BpdufilterMode::followDefault: return os << "followDefault";
    case BpdufilterMode::enabled: return os << "enabled";
    case BpdufilterMode::disabled: return os << "disabled";
  }
  return os << "BpdufilterMode(" << unsigned{static_cast<std::uint8_t>(m)} << ")";
}

std::ostream& operator<<(std::ostream& os, IntfLoggingMode m) {
  switch (m) {
    case IntfLoggingMode::on: return os << "on";
    case IntfLoggingMode::off: return os << "off";
    case IntfLoggingMode::useDefault: return os << "useDefault";
  }
  return os << "IntfLoggingMode(" << unsigned{static_cast<std::uint8_t>(m)} << ")";
}

}  // namespace Stp
