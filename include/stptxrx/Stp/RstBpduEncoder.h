#pragma once
// The RST BPDU encoder of a port's transmit record.
#include <stptxrx/net/Pkt.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/AgentTypes.h>
#include <stptxrx/state/IntxInfo.h>

namespace StpTxRx {

/// The complete 53-octet untagged RST BPDU frame for `intxInfo`, sent from the MAC address of
/// `portSm`'s port record, or null when no packet could be allocated (traced at level 2, nothing else
/// changed). The body comes from the record's common-instance entry (mstiN key 0); version, type and
/// version 1 length are constants, and the record's type and MST configuration fields are not read.
///
/// Preconditions, each checked by an assertion that aborts the process: the record's stpVersion is 2
/// (assertion "0"), its vlanIdOrZero is 0 ("vlan == 0"), and `tagged` is false ("!tagged").
/// Caller errors that are not checked: a null `portSm` or `intxInfo`, a state machine without a port
/// record, a record without the entry for key 0. Neither object may change during the call.
///
/// Allocates nothing but the packet (nothing at all when the packet pool is warm), and builds no trace
/// text while the level-8 trace is off.
STPTXRX_EXPORT Nelk::Pkt::Ptr generatePktFromIntxInfo(Stp::MstPortSm::Ptr portSm, IntxInfo::Ptr intxInfo,
                                                      bool tagged);

}  // namespace StpTxRx
