#pragma once
// Two small decisions of the spanning-tree agents: BPDU filtering on a port, and interface logging.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/state/AgentTypes.h>

namespace StpTxRx {

/// True when BPDUs are to be filtered on the port: mode `enabled` filters; any mode but `enabled` and
/// `followDefault` does not; `followDefault` filters when the port allows the default, the port status
/// is present with the default operational, and the global default is on. `portConfig` and `config`
/// must not be null; `portStatus` may be (then the default does not apply).
STPTXRX_EXPORT bool mstBpdufilterPkt(Zek::Ptr<Stp::PortConfig const> portConfig,
                                     Zek::Ptr<Stp::StpiPortStatus const> portStatus,
                                     Zek::Ptr<Stp::Config const> config);

/// True when spanning-tree interface events are to be logged: `second` (the narrower setting) is `on`,
/// or it is `useDefault` and `first` (the wider setting) is `on`. Any other combination, unnamed values
/// included, gives false.
STPTXRX_EXPORT bool logSpanTreeIntf(Stp::IntfLoggingMode first, Stp::IntfLoggingMode second);

}  // namespace StpTxRx
