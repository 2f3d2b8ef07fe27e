#include <stptxrx/state/RxStatus.h>

namespace StpTxRx {

ZEK_TYPE_DEFINE(RxStatus, "StpTxRx::RxStatus")
ZEK_TYPE_DEFINE(RxMstStatus, "StpTxRx::RxMstStatus")
ZEK_TYPE_DEFINE(RxMstPortStatus, "StpTxRx::RxMstPortStatus")

RxStatus::Ptr RxStatus::RxStatusIs() { return Ptr(new RxStatus); }

Zek::Ptr<RxMstStatus> RxStatus::rxMstStatusIs(const Zek::Name& name) {
  return memberIs(groups_, name, idRxMstStatus, [&] { return Zek::Ptr<RxMstStatus>(new RxMstStatus(name)); });
}

Zek::Ptr<RxMstPortStatus> RxMstStatus::rxMstPortStatusIs(const IntfId& intf) {
  return memberIs(ports_, intf, idRxMstPortStatus,
                  [&] { return Zek::Ptr<RxMstPortStatus>(new RxMstPortStatus(intf)); });
}

Zek::Ptr<IntxInfo> RxMstPortStatus::rxInfoIs(VlanIdOrNone vlan) {
  return memberIs(rxInfo_, vlan, idRxInfo, [vlan] { return IntxInfo::IntxInfoIs(vlan); });
}

void RxMstPortStatus::rxUpdateInc(VlanIdOrNone vlan, std::uint32_t amount) {
  auto [slot, inserted] = rxUpdate_.insert(vlan, 0);
  // Creating the entry is a change even when the amount is 0.
  if (amount == 0 && !inserted && !Zek::notifyEqualWrites_) return;
  *slot += amount;
  notify(idRxUpdate, &vlan);
}

}  // namespace StpTxRx
