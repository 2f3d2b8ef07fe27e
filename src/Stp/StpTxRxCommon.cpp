#include <stptxrx/Stp/StpTxRxCommon.h>
#include <stptxrx/runtime/Reconcile.h>

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
  // greater key: no entry is visited twice and none is skipped that still exists. Every source key is in
  // dst after the first walk, so equal counts mean equal key sets.
  Zek::reconcile(
      src->mstiN(), dst->mstiN(),
      [&dst](BridgeSystemId key, const Zek::Ptr<IntxMstiInfo const>& s) { dst->mstiNIs(key)->valuesIs(s.get()); },
      [&src, &dst](BridgeSystemId key) {
        if (!src->mstiNEntry(key)) dst->mstiNDel(key);
      });
}

}  // namespace StpTxRx
