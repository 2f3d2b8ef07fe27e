#pragma once
// The transmit status syncer: keeps one TxStatus tree equal to another, level by level (groups, ports,
// per-VLAN records with their instance entries, per-VLAN update counters, port scalars, heartbeat timeout).
#include <stptxrx/Stp/IntxInfoSyncer.h>
#include <stptxrx/runtime/Collections.h>
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/TxStatus.h>

#include <cstddef>
#include <string>

namespace StpTxRx {

/// Keeps a destination `TxStatus` equal to a source `TxStatus`.
///
/// Shape (one reactor per source member, each held by counted pointer by its owner, each pointing back
/// to its owner with a plain pointer that the owner clears before releasing it):
///
///   TxStatusToTxSyncer                 source reactor ZekSource on the TxStatus (heartbeatTimeout, groups)
///     ZekTxMstStatusSm                 one per source group (by name): the group's ports
///       ZekTxMstPortStatusSm           one per source port (by IntfId): counters, scalars, records
///         IntxInfoSyncer               one per VLAN record of the port (ordered by VLAN)
///
/// Each level's handler creates or deletes the destination member first; the reactor for a new source
/// member is built afterwards and fills it (its constructor runs its full copy). A group that the source
/// shows with ports already in it (a group first seen while it is populated) is the exception: its port
/// reactors are built before their destination ports exist, copy nothing, and those destination ports
/// stay empty until the next full copy of the syncer or the group (`handleInitialized()`).
///
/// Writes: no handler compares before it writes; each calls the destination's setter whenever it runs
/// and the entity decides whether an equal write notifies. A `txUpdate` counter of 0 is never copied: it
/// is deleted from the destination, as an absent counter is.
///
/// Ownership: the syncer holds the destination by counted pointer for its whole life. Destination
/// members are created and deleted only by the handlers; deleting a reactor, `sourceDel()` or destroying
/// the syncer never removes anything from the destination.
///
/// Null input: a null source is legal: there is no source reactor, 0.0 is written as heartbeat timeout,
/// no group reactor exists, and the full copy deletes every destination group (the image of an absent
/// source is an empty tree). A null destination is tolerated: nothing is written and no reactor below
/// the top level finds a destination; nothing ever dereferences a missing destination member.
///
/// Tracing: handle "StpTxStatusSyncer", level 8, text label + keyInfo() + "::" + method + "() " + action
/// + key, with the labels "TxToTx" (empty keyInfo), "TxToTx::ZekTxMstStatusSm" ("[group]") and
/// "TxToTx::ZekTxMstPortStatusSm" ("[group|Et1]"). Text is built only when the level is on; every
/// handler also records a binary trace entry.
class STPTXRX_EXPORT TxStatusToTxSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  using Ptr = Zek::Ptr<TxStatusToTxSyncer>;

  /// Watches the source `TxStatus`.
  ///
  /// `heartbeatTimeout`: written to the owner's destination at once, while bound and owned (zombie or
  /// not), untraced. `txMstStatus` with a key: unless a zombie, the owner's handleTxMstStatus(name); then,
  /// while bound and owned, the group reactor created (present group) or deleted (absent group). A
  /// collection notification without a key and every other attribute are ignored.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<TxStatus, TxStatusToTxSyncer> {
   public:
    /// Binds and registers without running a handler; notifications stay off until switched on.
    ZekSource(const Zek::Ptr<TxStatus const>& source, TxStatusToTxSyncer* owner) : Reactor(source, owner) {}

    /// The watched source, or null.
    Zek::Ptr<TxStatus const> source() const { return watchedPtr(); }

    void onAttribute(Zek::AttributeId id, const void* key) override;

    ZEK_TYPE(ZekSource);
  };

  /// Watches one source group (`TxMstStatus`) and keeps the ports of the destination group of the same
  /// name: one ZekTxMstPortStatusSm per source port, held by IntfId.
  ///
  /// Holds the destination group by counted pointer from its first full copy on (created there if absent).
  /// Invariants: `name()` is the key under which the owner holds it and never changes; while it has no
  /// destination group its handlers do nothing.
  class STPTXRX_EXPORT ZekTxMstStatusSm : public Zek::Reactor<TxMstStatus, TxStatusToTxSyncer>,
                                          public Zek::Initializable {
   public:
    using Ptr = Zek::Ptr<ZekTxMstStatusSm>;

    /// Watches one source port (`TxMstPortStatus`) and copies its content into the destination port of the
    /// same interface in the group reactor's destination group: one IntxInfoSyncer per VLAN record
    /// (`txInfoSyncer`, ordered by VLAN), the `txUpdate` counters (non-zero ones; a zero is absent),
    /// `txNewInfo` and `txHelloWhenOn`.
    ///
    /// The destination port is looked up by the full copy only (never created here; the group reactor
    /// creates it). Invariants: while the destination port is null every handler does nothing and the full
    /// copy leaves no record syncer; every record syncer writes into a record of the current destination port (when the
    /// full copy finds another destination port, or none, the record syncers are dropped first).
    class STPTXRX_EXPORT ZekTxMstPortStatusSm : public Zek::Reactor<TxMstPortStatus, ZekTxMstStatusSm>,
                                                public Zek::Initializable {
     public:
      using Ptr = Zek::Ptr<ZekTxMstPortStatusSm>;

      /// Binds to `port` (non-null) and runs handleInitialized(). `owner` is the group reactor (non-null).
      /// Notifications stay off until the owner switches them on.
      ZekTxMstPortStatusSm(const Zek::Ptr<TxMstPortStatus const>& port, ZekTxMstStatusSm* owner);
      ~ZekTxMstPortStatusSm() override;

      static IntfId keyOf(const TxMstPortStatus& port) { return port.intfId(); }
      /// The source port's interface: the key under which the owner holds this reactor.
      const IntfId& fwkKey() const { return intf_; }
      /// "[" + group name + "|" + short interface name + "]".
      std::string keyInfo() const;
      /// Group name + "|" + short interface name: the parentId of every record syncer of this port.
      const Zek::String& parentId() const { return parentId_; }

      /// The source port watched (null once unbound).
      Zek::Ptr<TxMstPortStatus const> txMstPortStatus() const { return watchedPtr(); }
      /// Re-points this reactor at another source port of the same interface (see notifierIs).
      void txMstPortStatusIs(const Zek::Ptr<TxMstPortStatus const>& port) { notifierIs(port); }
      /// The destination port written; null until a full copy finds it in the destination group.
      const Zek::Ptr<TxMstPortStatus>& dest() const { return dest_; }

      /// Full copy of the port, when the owner's destination group holds this port's interface: every
      /// source VLAN through handleTxInfo, then (only when the record counts differ) every destination VLAN;
      /// every source counter through handleTxUpdate, then (only when the counter counts differ) every
      /// destination counter; then `txHelloWhenOn`, then `txNewInfo`. Without a destination group or port
      /// nothing is copied. Always ends with initializedIs(true).
      void handleInitialized();
      /// Present source record of `vlan`: creates (keeps) the destination record and its record syncer.
      /// Absent: deletes the destination record, then the record syncer.
      void handleTxInfo(VlanIdOrNone vlan);
      /// Non-zero source counter of `vlan`: written to the destination. Zero or absent: deleted there.
      void handleTxUpdate(VlanIdOrNone vlan);
      /// Copies one scalar (0 without a source); untraced. Without a destination port: nothing.
      void zek_handleTxMstPortStatus_txNewInfo();
      void zek_handleTxMstPortStatus_txHelloWhenOn();

      /// Create-or-return of the record syncer of `vlan`. An existing syncer built from another source,
      /// destination or name raises Zek::MutatorReinstantiatingException naming that argument
      /// ("txInfoSyncer.source", "txInfoSyncer.dest" or "txInfoSyncer.parentId") and is kept. A new one is built by
      /// IntxInfoSyncer::IntxInfoSyncerIs (null records: Zek::MutatorArgNullPointerException), inserted and switched
      /// on.
      Zek::Ptr<IntxInfoSyncer> txInfoSyncerIs(const Zek::Ptr<IntxInfo const>& source, const Zek::Ptr<IntxInfo>& dest,
                                              VlanIdOrNone vlan, Zek::String name);
      /// The record syncer of `vlan`, or null.
      Zek::Ptr<IntxInfoSyncer> txInfoSyncer(VlanIdOrNone vlan) const { return txInfoSyncer_.findPtr(vlan); }
      bool txInfoSyncerHas(VlanIdOrNone vlan) const { return txInfoSyncer_.find(vlan) != nullptr; }
      std::size_t txInfoSyncerCount() const { return txInfoSyncer_.size(); }
      /// Removes and returns the record syncer of `vlan` (null when there was none); released by the caller.
      /// The destination record stays.
      Zek::Ptr<IntxInfoSyncer> txInfoSyncerDel(VlanIdOrNone vlan);
      /// Removes every record syncer at once.
      void txInfoSyncerDelAll();

      /// `txNewInfo`, `txHelloWhenOn`: the scalar copy, unless a zombie. `txInfo` with a key: handleTxInfo
      /// unless a zombie. `txUpdate` with a key: first, while bound and with a destination port, the counter
      /// mirrored untraced (zombie or not); then, unless a zombie, handleTxUpdate, which writes it again.
      /// Allocates nothing and builds no text when tracing is off (record creation aside).
      void onAttribute(Zek::AttributeId id, const void* key) override;
      /// Re-points at another port object of the same interface: bind and, with a destination port, the
      /// counters mirrored (non-zero source counters written, the others deleted); nothing else: the record
      /// syncers keep the records they watch and no handler runs (handleInitialized() is the full copy).
      /// No-op when `p` is already watched.
      void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

     protected:
      void passNotificationActive(bool active) override;
      void passZombie(bool zombie) override;

     private:
      /// The source's counter for `vlan`; 0 when absent or when there is no source.
      std::uint32_t sourceTxUpdate(VlanIdOrNone vlan) const;
      /// The one counter write: a non-zero `value` is written, 0 deletes (0 stands for absent).
      static void txUpdateWrite(TxMstPortStatus& dst, VlanIdOrNone vlan, std::uint32_t value);

      IntfId intf_;
      Zek::String parentId_;
      Zek::ChildSet<VlanIdOrNone, IntxInfoSyncer, Zek::OrderedMap> txInfoSyncer_;
      Zek::Ptr<TxMstPortStatus> dest_;

      ZEK_TYPE(ZekTxMstPortStatusSm);
    };

    /// Binds to `group` (non-null), builds one port reactor per source port, then handleInitialized().
    /// `owner` is the syncer (non-null). Notifications stay off until the owner switches them on.
    ZekTxMstStatusSm(const Zek::Ptr<TxMstStatus const>& group, TxStatusToTxSyncer* owner);
    ~ZekTxMstStatusSm() override;

    static Zek::Name keyOf(const TxMstStatus& group) { return group.name(); }
    /// The source group's name: the key under which the owner holds this reactor.
    const Zek::Name& name() const { return name_; }
    const Zek::Name& fwkKey() const { return name_; }
    /// "[" + name + "]".
    std::string keyInfo() const;

    /// The source group watched (null once unbound).
    Zek::Ptr<TxMstStatus const> txMstStatus() const { return watchedPtr(); }
    /// Re-points this reactor at another source group of the same name (see notifierIs).
    void txMstStatusIs(const Zek::Ptr<TxMstStatus const>& group) { notifierIs(group); }
    /// The destination group written; null before the first full copy or without a destination.
    const Zek::Ptr<TxMstStatus>& dest() const { return dest_; }

    /// Full copy of the group's port set: fetch or create the destination group in the owner's
    /// destination; for every port reactor its handleInitialized() then handleTxMstPortStatus(its intf);
    /// then, only when the destination group's port count differs from the source group's,
    /// handleTxMstPortStatus for every destination port; then initializedIs(true).
    ///
    /// Each port reactor's full copy runs before this pass creates its destination port: a port present at
    /// the group's first copy into an empty destination copies nothing until the next full copy.
    void handleInitialized();
    /// Creates (keeps) the destination port `intf` when the source group has it, deletes it otherwise.
    /// Without a destination group: nothing.
    void handleTxMstPortStatus(IntfId intf);

    /// Deletes the port reactor of `intf` (zombie, back pointer cleared, released) and returns the port it
    /// watched, null when there was none. The destination port stays.
    virtual Zek::Ptr<TxMstPortStatus const> txMstPortStatusDel(IntfId intf);
    /// Create-or-return of the port reactor for `port`, keyed by its IntfId. A new one runs its full copy;
    /// an existing one that watches another port object is re-pointed; either way it then gets this
    /// reactor's zombie state. Null `port`: Zek::MutatorArgNullPointerException.
    virtual Zek::Ptr<ZekTxMstPortStatusSm> txMstPortStatusIs(const Zek::Ptr<TxMstPortStatus const>& port);
    /// txMstPortStatusDel for every port reactor, in the collection's order.
    void txMstPortStatusDelAll();
    /// The port reactor of `intf`, or null.
    ZekTxMstPortStatusSm* zekTxMstPortStatus(const IntfId& intf) const;
    std::size_t zekTxMstPortStatusCount() const;

    /// `txMstPortStatus` with a key: handleTxMstPortStatus(intf) unless a zombie; then, while bound and
    /// owned, the port reactor created (present port) or deleted (absent port).
    void onAttribute(Zek::AttributeId id, const void* key) override;
    /// Re-points at another group object of the same name: bind only. The port reactors keep the ports
    /// they watch, and nothing is written or traced; handleInitialized() is the full copy. No-op when `p`
    /// is already watched.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

   protected:
    void passNotificationActive(bool active) override;
    void passZombie(bool zombie) override;

   private:
    void mirrorPorts(const TxMstStatus& group);

    Zek::Name name_;
    Zek::ChildSet<IntfId, ZekTxMstPortStatusSm> zekTxMstPortStatus_{4};
    Zek::Ptr<TxMstStatus> dest_;

    ZEK_TYPE(ZekTxMstStatusSm);
  };

  /// Builds the syncer (its constructor does the whole initial copy) and switches its notifications on.
  /// `source` may be null (see the class comment).
  static Ptr TxStatusToTxSyncerIs(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<TxStatus>& dest);

  /// The source read; null when there is none or after sourceDel().
  Zek::Ptr<TxStatus const> source() const { return source_.source(); }
  /// The source reactor, or null.
  ZekSource* zekSource() const { return source_.get(); }
  /// The destination written (as given at construction; may be null).
  const Zek::Ptr<TxStatus>& dest() const { return dest_; }
  /// Empty: the top-level syncer has no key.
  static const char* keyInfo() { return ""; }

  /// Full copy of the group set: for every group reactor its own handleInitialized(), then
  /// handleTxMstStatus(its name); then, only when the destination's group count differs from the
  /// source's, handleTxMstStatus for every destination group (deleting those the source lacks); then
  /// initializedIs(true). `heartbeatTimeout` is not copied here.
  void handleInitialized();
  /// Creates (keeps) the destination group `name` when the source has it, deletes it otherwise (with no
  /// source, every group is absent). Only the empty group: its content is the group reactor's work.
  /// Without a destination: nothing.
  void handleTxMstStatus(Zek::String name);

  /// Create-or-return of the group reactor for `group`, keyed by its name. A new one runs its full copy;
  /// an existing one that watches another group object is re-pointed. Either way it then gets this
  /// syncer's zombie state. Null `group`: Zek::MutatorArgNullPointerException.
  Zek::Ptr<ZekTxMstStatusSm> txMstStatusIs(const Zek::Ptr<TxMstStatus const>& group);
  /// Deletes the group reactor under `name` (zombie, back pointer cleared, released) and returns the
  /// group it watched, null when there was none. The destination group stays.
  Zek::Ptr<TxMstStatus const> txMstStatusDel(Zek::Name name);
  /// txMstStatusDel for every group reactor, in the collection's order.
  void txMstStatusDelAll();
  /// The group reactor under `name`, or null.
  ZekTxMstStatusSm* zekTxMstStatusSm(const Zek::Name& name) const;
  std::size_t zekTxMstStatusSmCount() const;

  /// Disconnects the source (its reactor made a zombie, detached, switched off, released) and returns it,
  /// null when there was none. What stops: following the source itself (groups added or removed, the
  /// heartbeat timeout). What keeps running: the group and port reactors already built, which go on
  /// following their own source group and port (ports, counters, records) until they are deleted or the
  /// syncer is destroyed. The destination keeps what it holds.
  Zek::Ptr<TxStatus const> sourceDel();

 protected:
  /// Makes every reactor below it a zombie and releases them; the destination keeps what it holds.
  ~TxStatusToTxSyncer() override;
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  TxStatusToTxSyncer(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<TxStatus>& dest);

  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<TxStatus> dest_;
  Zek::ChildSet<Zek::Name, ZekTxMstStatusSm> zekTxMstStatusSm_{4};

  ZEK_TYPE(TxStatusToTxSyncer);
};

/// TxStatusToTxSyncer::TxStatusToTxSyncerIs(source, dest).
STPTXRX_EXPORT TxStatusToTxSyncer::Ptr txStatusToTxSyncerFactory(const Zek::Ptr<TxStatus const>& source,
                                                                 const Zek::Ptr<TxStatus>& dest);

}  // namespace StpTxRx
