#pragma once
// The readable one-line form of a received frame, as stptxrx-pcap prints it:
//
//   KIND[ pvst O][ vlan V] src MAC[ (read as RST: WHY)] flags=F root=ID cost=C bridge=ID port=P
//       age=Ts maxage=Ts hello=Ts fwd=Ts                                      (config, rst, mst)
//       regroot=ID intcost=C hops=H name="TEXT" revision=R digest=HEX
//       [msti K flags=F regroot=ID intcost=C bridge=ID port=P hops=H]...     (mst only)
//   tcn[ pvst O][ vlan V] src MAC
//   reject: WHY[ vlan V][ src MAC]
//   rate-limited
//
// `pvst O` marks a valid PVST+ BPDU, O its originating VLAN (a TCN's: its tag's VLAN, 0 untagged).
// Identifiers read PRIORITY.EXTENSION.MAC, ports PRIORITY.NUMBER, timers are in seconds. Built for
// people: allocates, never on a hot path.
#include <stptxrx/Stp/StpBpduCodec.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/state/IntxInfo.h>
#include <stptxrx/state/StpTypes.h>

#include <cstddef>
#include <iosfwd>
#include <string>

namespace StpTxRx {

/// The flags set in `flags`, comma-separated, or "none". In an RST or MST BPDU: tc, proposal, the port
/// role (role:unknown, role:alternate/backup, role:root, role:designated; in an MSTI message, `cist`
/// false, role 0 is role:master), learning, forwarding, agreement, tca (master in an MSTI message). A
/// Configuration BPDU defines only tc and tca: it shows no role, and any other bits that came set are
/// shown as one "other:0xNN" item with exactly those bits.
STPTXRX_EXPORT std::string bpduFlagsText(Stp::RstpBpduFlags flags, BpduKind kind, bool cist);

/// A timer in seconds with as many decimals as it needs and an "s": "2s", "0.5s", "255.99609375s".
STPTXRX_EXPORT std::string timerText(Stp::TimerVal t);

/// Writes the line of a frame of `frameSize` octets that the receive path answered with `r` (see the
/// header comment), without a newline. `record` holds what a valid frame carried; null, or a record
/// without entry 0, prints only the kind and the link fields. The source is shown once the frame is
/// long enough to hold it, also for a rejected frame. Control characters of a configuration name are
/// written as \xNN, so the line stays one line.
STPTXRX_EXPORT void writeBpduText(std::ostream& os, const BpduDecodeResult& r, const IntxInfo* record,
                                  std::size_t frameSize);
/// The same line as a string.
STPTXRX_EXPORT std::string bpduText(const BpduDecodeResult& r, const IntxInfo* record, std::size_t frameSize);

}  // namespace StpTxRx
