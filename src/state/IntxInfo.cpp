#include <stptxrx/state/IntxInfo.h>

#include <ostream>

namespace StpTxRx {

ZEK_TYPE_DEFINE(IntxMstiInfo, "StpTxRx::IntxMstiInfo")
ZEK_TYPE_DEFINE(IntxInfo, "StpTxRx::IntxInfo")

bool IntxMstiInfo::sameValues(const IntxMstiInfo& o) const {
  bool same = true;
  forEachField([&](auto field) { same = same && (this->*decltype(field)::get)() == (o.*decltype(field)::get)(); });
  return same;
}

IntxInfo::Ptr IntxInfo::IntxInfoIs(VlanIdOrNone vlanIdOrZero) { return Ptr(new IntxInfo(vlanIdOrZero)); }

Zek::Ptr<IntxMstiInfo> IntxInfo::mstiNIs(BridgeSystemId key) {
  return memberIs(mstiN_, key, idMstiN, [key] { return Zek::Ptr<IntxMstiInfo>(new IntxMstiInfo(key)); });
}

Zek::Ptr<IntxMstiInfo> IntxInfo::mstiNDel(BridgeSystemId key) { return memberDel(mstiN_, key, idMstiN); }

bool IntxInfo::sameContent(const IntxInfo& o) const {
  if (!(neighborAddr_ == o.neighborAddr_ && stpVersion_ == o.stpVersion_ && intxInfoType_ == o.intxInfoType_ &&
        configRevisionLevel_ == o.configRevisionLevel_ && configNameString_ == o.configNameString_ &&
        configDigest_ == o.configDigest_ && mstiN_.size() == o.mstiN_.size())) {
    return false;
  }
  for (const auto& [key, entry] : mstiN_) {
    const auto* other = o.mstiN_.find(key);
    if (!other || !entry->sameValues(**other)) return false;
  }
  return true;
}

std::ostream& operator<<(std::ostream& os, const IntxInfo& info) {
  os << "IntxInfo(vlan=" << info.vlanIdOrZero() << " version=" << info.stpVersion()
     << " type=" << info.intxInfoType() << " neighbor=" << info.neighborAddr()
     << " revision=" << info.configRevisionLevel() << " name=\"" << info.configNameString()
     << "\" digest=" << info.configDigest() << " msti=[";
  // Each entry in full: a record whose entries differ only in content must print differently.
  bool first = true;
  for (const auto& [key, entry] : info.mstiN()) {
    os << (first ? "" : ", ") << *entry;
    first = false;
  }
  return os << "])";
}

std::ostream& operator<<(std::ostream& os, const Zek::Ptr<IntxInfo const>& info) {
  if (!info) return os << "(null)";
  return os << *info;
}

std::ostream& operator<<(std::ostream& os, const IntxMstiInfo& e) {
  return os << "IntxMstiInfo(" << e.key() << " flags=" << e.flags() << " bridge=" << e.bridgeId()
            << " port=" << e.portId() << " root=" << e.cistRootBridgeId() << " extCost=" << e.cistExtRootPathCost()
            << " regionalRoot=" << e.cistRegionalRootBridgeId() << " intCost=" << e.intRootPathCost()
            << " mstiRegionalRoot=" << e.regionalRootBridgeId() << " hops=" << unsigned{e.remainingHops()}
            << " age=" << e.messageAge() << " maxAge=" << e.maxAge() << " hello=" << e.helloTime()
            << " fwdDelay=" << e.fwdDelay() << ")";
}

}  // namespace StpTxRx
