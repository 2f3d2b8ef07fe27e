#pragma once
// Whole-record copy of transmit records.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Ptr.h>
#include <stptxrx/state/IntxInfo.h>

namespace StpTxRx {

/// Makes `dst` equal in content to `src`: every attribute but the key (vlanIdOrZero), and `mstiN` with
/// every attribute of every entry, entries missing from `src` removed.
///
/// Every value goes through `dst`'s setter without a prior comparison (the setter decides whether an
/// equal value notifies), in a fixed order that observers of `dst` see: neighborAddr, stpVersion,
/// intxInfoType, configRevisionLevel, configNameString (shared, not duplicated), configDigest; then for
/// each source entry in ascending key order, mstiNIs(key) followed by the thirteen entry setters in
/// declaration order (flags ... fwdDelay); then, unless `dst` already holds as many entries as `src`,
/// mstiNDel of each destination key `src` lacks, in ascending order.
///
/// Re-entrancy: observers of `dst` may change either record while a setter runs; both walks continue
/// with the next key greater than the one just handled, and the entries being written are held by
/// counted pointer. Copying a record onto itself changes nothing.
///
/// Both pointers must be non-null (not checked). Exceptions raised by an observer propagate and leave
/// `dst` partly copied. Allocates nothing beyond what `dst` needs for new entries.
STPTXRX_EXPORT void copyIntxInfo(Zek::Ptr<IntxInfo const> src, Zek::Ptr<IntxInfo> dst);

}  // namespace StpTxRx
