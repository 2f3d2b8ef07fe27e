#pragma once
// The receive dynamic syncers: copy the values of a source receive status into the groups and ports that
// already exist in a destination ("dynamic") receive status.
//
//   RxStatusToRxDynamicSyncer            the status: five scalars, one child per source group
//     RxMstStatusToRxDynamicSyncer       one group: one child per source port
//       RxMstPortStatusToRxDynamicSyncer one port: counters, rate limits, received records per VLAN
//
// None of them creates or deletes a group or a port of the destination: that shape is the business of
// TxStatusToRxSyncer. A port syncer looks its destination port up on every use (two keyed lookups, no
// cached pointer), so a destination port that is deleted and created again is used by the next handler
// without any link between the syncers; where there is no destination port it traces "no destination"
// (level 7) and writes nothing. A port that gets its destination only later is filled by the next
// notification of each attribute, not by a repeated first copy.
//
// Ownership: each syncer owns its source reactor (`ZekSource`, plain back pointer cleared before release)
// and its child syncers, by counted pointer. Child syncers are built from construction values (name,
// interface, source, destination status) and hold no pointer to their parent. Every level holds the
// whole destination `RxStatus` by counted pointer and never deletes its content on destruction.
//
// Tracing: handle "StpRxStatusSyncer"; progress at level 8, "no destination" at level 7, in the form
// label + keyInfo() + "::" + method + "() " + action + key.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/RxStatus.h>

namespace StpTxRx {

/// Copies one port of one group: from a source `RxMstPortStatus` into the port `intfId` of group
/// `mstName` of the destination status. Created by RxMstStatusToRxDynamicSyncer.
///
/// What is copied: `bpduCount`, the three rate-limit attributes, `counters` and `localCounters` (as they
/// stand, never compared or summed), and per VLAN the received record: on an `rxUpdate` change of a VLAN
/// that is present in the source (non-zero count AND a record), the record is copied whole into
/// `rxInfoIs(vlan)` of the destination and the destination's `rxUpdate(vlan)` rises by exactly 1 (it counts
/// the updates passed on, not the source's count); on one that is absent, the destination loses
/// `rxInfo(vlan)` then `rxUpdate(vlan)`. A change of a source record alone passes nothing on. The first
/// copy takes the six scalar values only; per-VLAN data arrives through later `rxUpdate` notifications.
///
/// Null input: `rxStatus` must be non-null for the whole life of the syncer (dest() reads through it
/// without a check). A syncer without a source (created with null, or after sourceDel()) writes nothing:
/// its handlers return at once, and its first copy only sets `initialized`.
class STPTXRX_EXPORT RxMstPortStatusToRxDynamicSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  using Ptr = Zek::Ptr<RxMstPortStatusToRxDynamicSyncer>;

  /// Watches the source port. Each handled attribute runs its handler while the reactor is not marked
  /// for deletion and still has its owner; `rxInfo` and the agent's peer counters are ignored.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<RxMstPortStatus, RxMstPortStatusToRxDynamicSyncer> {
   public:
    ZekSource(const Zek::Ptr<RxMstPortStatus const>& source, RxMstPortStatusToRxDynamicSyncer* owner)
        : Reactor(source, owner) {}

    void onAttribute(Zek::AttributeId id, const void* key) override;
    /// Re-points at another source port. When it differs: bind, then (new source non-null, owner present)
    /// the six scalar handlers in copy order, each skipped once the reactor is marked for deletion. No
    /// per-VLAN data is copied on reconnection.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    ZEK_TYPE(ZekSource);
  };

  /// Builds the syncer (its constructor runs the first copy) and switches its notifications on.
  static Ptr RxMstPortStatusToRxDynamicSyncerIs(const Zek::Name& mstName, const IntfId& intfId,
                                                const Zek::Ptr<RxMstPortStatus const>& source,
                                                const Zek::Ptr<RxStatus>& rxStatus);

  const Zek::Name& mstName() const { return mstName_; }
  const IntfId& intfId() const { return intfId_; }
  /// The key under which the group syncer holds this one: the interface.
  const IntfId& fwkKey() const { return intfId_; }
  /// The source port read (null when there is none or after sourceDel()).
  Zek::Ptr<RxMstPortStatus const> source() const { return source_.source(); }
  const Zek::Ptr<RxStatus>& rxStatus() const { return rxStatus_; }
  /// "[" + mstName + "|" + short interface name + "]".
  Zek::String keyInfo() const;

  /// The destination port: `rxStatus.rxMstStatus(mstName).rxMstPortStatus(intfId)`, looked up now, or
  /// null when the group or the port is missing. Creates nothing.
  Zek::Ptr<RxMstPortStatus> dest() const;

  /// First copy, once (guarded by `initialized`): the six scalars in the order bpduCount,
  /// rateLimitInterval, rateLimitMaxCount, rateLimitEnabled, counters, localCounters, untraced; "no
  /// destination" when there is no destination port. `initialized` becomes true either way.
  void handleInitialized();
  /// Scalar handlers: with a destination port, trace and write the source's value; else "no destination".
  void handleBpduCount();
  void handleRateLimitInterval();
  void handleRateLimitMaxCount();
  void handleRateLimitEnabled();
  void handleCounters();
  void handleLocalCounters();
  /// Per-VLAN update: copy the record and count one update, or delete record and count (see the class).
  void handleRxUpdate(VlanIdOrNone vlan);

  /// Disconnects the source (reactor made a zombie, back pointer cleared, released) and returns it (null
  /// when there was none). Nothing of the port is followed afterwards (this syncer has no children); the
  /// destination keeps what was copied.
  Zek::Ptr<RxMstPortStatus const> sourceDel();

 protected:
  ~RxMstPortStatusToRxDynamicSyncer() override;
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  RxMstPortStatusToRxDynamicSyncer(const Zek::Name& mstName, const IntfId& intfId,
                                   const Zek::Ptr<RxMstPortStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);
  /// The source port, or null; the destination port is looked up only when there is a source.
  const RxMstPortStatus* src() const { return source_ ? source_.get()->watched() : nullptr; }
  /// The body of the six scalar handlers: with a source, the value read by `Get` written by `Set` into
  /// dest(), traced as `method`; "no destination" (level 7) when there is none. The traces carry the
  /// calling handler's line (`line`, left to its default: the line of the call; std::source_location is
  /// not available with every compiler the library is built with).
  template <auto Get, auto Set>
  void copyScalar(const char* method, int line = __builtin_LINE());

  Zek::Name mstName_;
  IntfId intfId_;
  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<RxStatus> rxStatus_;

  ZEK_TYPE(RxMstPortStatusToRxDynamicSyncer);
};

/// Follows one group of the source status: one RxMstPortStatusToRxDynamicSyncer per source port. Writes
/// nothing itself. Created by RxStatusToRxDynamicSyncer.
///
/// Children are added (or refreshed) by the scan and by `rxMstPortStatus` notifications, and removed only
/// by a notification that a port left the source group; the scan never removes one. A removed child
/// leaves the destination port as it was last copied.
///
/// Null input: `rxStatus` must be non-null whenever the source group has ports (the port syncers read
/// through it). A null source: no reactor, an empty scan.
class STPTXRX_EXPORT RxMstStatusToRxDynamicSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  using Ptr = Zek::Ptr<RxMstStatusToRxDynamicSyncer>;

  /// Watches the source group: an `rxMstPortStatus` change with its key runs handleMstPortStatus(intf)
  /// while not marked for deletion; every other attribute is ignored. Re-pointing only reconnects.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<RxMstStatus, RxMstStatusToRxDynamicSyncer> {
   public:
    ZekSource(const Zek::Ptr<RxMstStatus const>& source, RxMstStatusToRxDynamicSyncer* owner)
        : Reactor(source, owner) {}

    void onAttribute(Zek::AttributeId id, const void* key) override;

    ZEK_TYPE(ZekSource);
  };

  /// Builds the syncer (its constructor runs the first scan) and switches its notifications on.
  static Ptr RxMstStatusToRxDynamicSyncerIs(const Zek::Name& mstName, const Zek::Ptr<RxMstStatus const>& source,
                                            const Zek::Ptr<RxStatus>& rxStatus);

  const Zek::Name& mstName() const { return mstName_; }
  /// The key under which the status syncer holds this one: the group name.
  const Zek::Name& fwkKey() const { return mstName_; }
  Zek::Ptr<RxMstStatus const> source() const { return source_.source(); }
  const Zek::Ptr<RxStatus>& rxStatus() const { return rxStatus_; }
  /// "[" + mstName + "]".
  Zek::String keyInfo() const;

  /// First scan, once (guarded by `initialized`).
  void handleInitialized();
  /// The scan: handleMstPortStatus(intf) for every port of the source group (none without a source).
  void handleMstPortStatus();
  /// Creates (or checks) the child of a port present in the source group; deletes the child otherwise.
  void handleMstPortStatus(const IntfId& intf);

  /// The child under `intf`, or null.
  RxMstPortStatusToRxDynamicSyncer* mstDynPortSm(const IntfId& intf) const { return mstDynPortSm_.find(intf); }
  std::size_t mstDynPortSmCount() const { return mstDynPortSm_.size(); }
  /// Returns the child under `intf`, creating it from the four values (it runs its first copy) and
  /// switching it on. An existing child built from other values raises Zek::MutatorReinstantiatingException
  /// naming the first differing attribute ("mstName", "source" or "rxStatus") and changes nothing.
  RxMstPortStatusToRxDynamicSyncer::Ptr mstDynPortSmIs(const Zek::Name& mstName, const IntfId& intf,
                                                       const Zek::Ptr<RxMstPortStatus const>& source,
                                                       const Zek::Ptr<RxStatus>& rxStatus);
  /// Removes the child under `intf` and returns it (null when absent), untouched: it is destroyed (and
  /// stops copying) when the caller drops the result. The destination port keeps what was copied.
  RxMstPortStatusToRxDynamicSyncer::Ptr mstDynPortSmDel(const IntfId& intf);
  /// Removes every child, in iteration order.
  void mstDynPortSmDelAll();

  /// Disconnects the source (reactor made a zombie, back pointer cleared, released) and returns it (null
  /// when there was none). What stops: following the group's set of ports. What keeps running: the port
  /// syncers already built, each following its own source port until it is deleted.
  Zek::Ptr<RxMstStatus const> sourceDel();

 protected:
  ~RxMstStatusToRxDynamicSyncer() override;
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  RxMstStatusToRxDynamicSyncer(const Zek::Name& mstName, const Zek::Ptr<RxMstStatus const>& source,
                               const Zek::Ptr<RxStatus>& rxStatus);

  Zek::Name mstName_;
  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<RxStatus> rxStatus_;
  Zek::ChildSet<IntfId, RxMstPortStatusToRxDynamicSyncer> mstDynPortSm_;

  ZEK_TYPE(RxMstStatusToRxDynamicSyncer);
};

/// Keeps a destination ("dynamic") `RxStatus` filled from a source `RxStatus` that it only reads: the five
/// scalars `localHeartbeat`, `peerHeartbeat`, `updateCtrTime`, `localUpdateCtrTime`, `peerUpdateCtrTime`
/// (always in that order, as they stand), and one RxMstStatusToRxDynamicSyncer per source group for the
/// per-port data. The agent's update counter is not copied.
///
/// Children are added (or checked) by the scan and by `rxMstStatus` notifications, and removed only by a
/// notification that a group left the source: neither the scan, nor sourceIs(), nor sourceDel() removes
/// one. A removed child leaves the destination's group as it was last copied.
///
/// Null input: a null source gives no reactor and an empty scan, and the scalars are written as 0. A null
/// `rxStatus` skips the scalar copies silently, but the port syncers read through it without a check, so
/// `rxStatus` must be non-null whenever the source has groups.
class STPTXRX_EXPORT RxStatusToRxDynamicSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  using Ptr = Zek::Ptr<RxStatusToRxDynamicSyncer>;

  /// Watches the source status: `rxMstStatus` with a key runs handleMstStatus(name) while not marked for
  /// deletion; each of the five scalars is copied while the reactor is bound and owned and the owner has
  /// a destination (the deletion mark is not consulted); everything else is ignored.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<RxStatus, RxStatusToRxDynamicSyncer> {
   public:
    ZekSource(const Zek::Ptr<RxStatus const>& source, RxStatusToRxDynamicSyncer* owner) : Reactor(source, owner) {}

    void onAttribute(Zek::AttributeId id, const void* key) override;
    /// Re-points at another source status. When it differs: bind, then (new source non-null, owner
    /// present) copy the five scalars. It does not scan the groups.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    ZEK_TYPE(ZekSource);
  };

  /// Builds the syncer (its constructor copies the scalars and runs the first scan) and switches its
  /// notifications on.
  static Ptr RxStatusToRxDynamicSyncerIs(const Zek::Ptr<RxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);

  Zek::Ptr<RxStatus const> source() const { return source_.source(); }
  const Zek::Ptr<RxStatus>& rxStatus() const { return rxStatus_; }
  /// Empty: the top-level syncer has no key.
  static const char* keyInfo() { return ""; }

  /// Re-points the syncer at `source`: nothing when the reactor already watches it; otherwise the reactor
  /// (created when there was none) is pointed at it, which copies the five scalars, and gets this syncer's
  /// deletion mark as its zombie state; then the scan runs. Children of groups that only the former source
  /// had stay. A group of the new source whose name a child already holds for another source group object
  /// raises the reinstantiation error for "source" (the scan checks every child it meets).
  void sourceIs(const Zek::Ptr<RxStatus const>& source);
  /// Disconnects the source: the reactor is made a zombie, the (now empty) scan runs, the reactor is
  /// released and the former source returned (null, without a scan, when there was no reactor). What
  /// stops: the five scalars and the set of groups. What keeps running: the group syncers already built,
  /// each following its own source group (and its ports) until it is deleted.
  Zek::Ptr<RxStatus const> sourceDel();

  /// First scan, once (guarded by `initialized`).
  void handleInitialized();
  /// The scan: handleMstStatus(name) for every source group; it only adds and refreshes.
  void handleMstStatus();
  /// Creates (or checks) the child of a group present in the source; deletes the child otherwise.
  void handleMstStatus(const Zek::Name& name);

  /// Scalar copies, each writing the source's value (0 without a source) when there is a destination.
  void zek_handleRxStatus_localHeartbeat();
  void zek_handleRxStatus_peerHeartbeat();
  void zek_handleRxStatus_updateCtrTime();
  void zek_handleRxStatus_localUpdateCtrTime();
  void zek_handleRxStatus_peerUpdateCtrTime();

  /// The child under `name`, or null.
  RxMstStatusToRxDynamicSyncer* mstDynSyncerSm(const Zek::Name& name) const { return mstDynSyncerSm_.find(name); }
  std::size_t mstDynSyncerSmCount() const { return mstDynSyncerSm_.size(); }
  /// Returns the child under `name`, creating it from the three values (it runs its first scan) and
  /// switching it on. An existing child built from another source group or destination raises
  /// Zek::MutatorReinstantiatingException naming "source" or "rxStatus" and changes nothing.
  RxMstStatusToRxDynamicSyncer::Ptr mstDynSyncerSmIs(const Zek::Name& name, const Zek::Ptr<RxMstStatus const>& source,
                                                     const Zek::Ptr<RxStatus>& rxStatus);
  /// Removes the child under `name` and returns it (null when absent), untouched: it is destroyed (and
  /// stops copying) when the caller drops the result. Nothing is written to the destination.
  RxMstStatusToRxDynamicSyncer::Ptr mstDynSyncerSmDel(const Zek::Name& name);
  /// Removes every child, in iteration order.
  void mstDynSyncerSmDelAll();

 protected:
  ~RxStatusToRxDynamicSyncer() override;
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  RxStatusToRxDynamicSyncer(const Zek::Ptr<RxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);
  void copyScalars();
  /// The body of the five scalar handlers: with a destination, the source's value read by `Get` (its
  /// zero without a source) written by `Set`.
  template <auto Get, auto Set>
  void copyScalar();

  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<RxStatus> rxStatus_;
  Zek::ChildSet<Zek::Name, RxMstStatusToRxDynamicSyncer> mstDynSyncerSm_;

  ZEK_TYPE(RxStatusToRxDynamicSyncer);
};

/// Creates a RxStatusToRxDynamicSyncer (see its creator).
STPTXRX_EXPORT RxStatusToRxDynamicSyncer::Ptr rxStatusToRxDynamicSyncerFactory(const Zek::Ptr<RxStatus const>& source,
                                                                               const Zek::Ptr<RxStatus>& rxStatus);
/// Creates a RxMstStatusToRxDynamicSyncer (see its creator).
STPTXRX_EXPORT RxMstStatusToRxDynamicSyncer::Ptr rxMstStatusToRxDynamicSyncerFactory(
    const Zek::Name& mstName, const Zek::Ptr<RxMstStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);
/// Creates a RxMstPortStatusToRxDynamicSyncer (see its creator).
STPTXRX_EXPORT RxMstPortStatusToRxDynamicSyncer::Ptr rxMstPortStatusToRxDynamicSyncerFactory(
    const Zek::Name& mstName, const IntfId& intfId, const Zek::Ptr<RxMstPortStatus const>& source,
    const Zek::Ptr<RxStatus>& rxStatus);

}  // namespace StpTxRx
