#include <stptxrx/state/TxStatus.h>

namespace StpTxRx {

ZEK_TYPE_DEFINE(TxStatus, "StpTxRx::TxStatus")
ZEK_TYPE_DEFINE(TxMstStatus, "StpTxRx::TxMstStatus")
ZEK_TYPE_DEFINE(TxMstPortStatus, "StpTxRx::TxMstPortStatus")

TxStatus::Ptr TxStatus::TxStatusIs() { return Ptr(new TxStatus); }

Zek::Ptr<TxMstStatus> TxStatus::txMstStatusIs(const Zek::Name& name) {
  return memberIs(groups_, name, idTxMstStatus, [&] { return Zek::Ptr<TxMstStatus>(new TxMstStatus(name)); });
}

Zek::Ptr<TxMstPortStatus> TxMstStatus::txMstPortStatusIs(const IntfId& intf) {
  return memberIs(ports_, intf, idTxMstPortStatus,
                  [&] { return Zek::Ptr<TxMstPortStatus>(new TxMstPortStatus(intf)); });
}

Zek::Ptr<IntxInfo> TxMstPortStatus::txInfoIs(VlanIdOrNone vlan) {
  return memberIs(txInfo_, vlan, idTxInfo, [vlan] { return IntxInfo::IntxInfoIs(vlan); });
}

}  // namespace StpTxRx
