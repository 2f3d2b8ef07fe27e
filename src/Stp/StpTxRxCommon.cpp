#include <stptxrx/Stp/StpTxRxCommon.h>

namespace StpTxRx {

void copyIntxInfo(Zek::Ptr<IntxInfo const> src, Zek::Ptr<IntxInfo> dst) {
  dst->neighborAddrIs(src->neighborAddr());
  dst->stpVersionIs(src->stpVersion());
  dst->intxInfoTypeIs(src->intxInfoType());
  dst->configRevisionLevelIs(src->configRevisionLevel());
  dst->configNameStringIs(src->configNameString());
  dst->configDigestIs(src->configDigest());

  // The collection iterators hold the current entry by counted pointer and, when the collection changed
  // under them (an observer of dst acting inside a setter, or src being dst), continue with the next
  // greater key: no entry is visited twice and none is skipped that still exists.
  for (const auto& [key, s] : src->mstiN()) {
    const Zek::Ptr<IntxMstiInfo> d = dst->mstiNIs(key);
    d->valuesIs(s.get());
  }

  // Every source key is now in dst, so equal counts mean equal key sets.
  if (dst->mstiNCount() == src->mstiNCount()) return;
  for (const auto& entry : dst->mstiN()) {
    if (!src->mstiNEntry(entry.first)) dst->mstiNDel(entry.first);
  }
}

}  // namespace StpTxRx
