#include <stptxrx/Stp/StpTxRxDecisions.h>

namespace StpTxRx {

bool mstBpdufilterPkt(Zek::Ptr<Stp::PortConfig const> portConfig, Zek::Ptr<Stp::StpiPortStatus const> portStatus,
                      Zek::Ptr<Stp::Config const> config) {
  const Stp::BpdufilterMode mode = portConfig->bpdufilterMode();
  if (mode == Stp::BpdufilterMode::enabled) return true;
  if (mode != Stp::BpdufilterMode::followDefault) return false;
  if (!portConfig->bpdufilterDefaultAllowed()) return false;
  if (!portStatus) return false;
  if (!portStatus->bpdufilterDefaultOper()) return false;
  return config->bpdufilterDefault();
}

bool logSpanTreeIntf(Stp::IntfLoggingMode first, Stp::IntfLoggingMode second) {
  if (second == Stp::IntfLoggingMode::on) return true;
  return second == Stp::IntfLoggingMode::useDefault && first == Stp::IntfLoggingMode::on;
}

}  // namespace StpTxRx
