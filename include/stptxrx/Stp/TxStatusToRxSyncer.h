#pragma once
// The transmit-to-receive status syncer: gives a receive status the group and port shape of a transmit
// status.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/RxStatus.h>
#include <stptxrx/state/TxStatus.h>

namespace StpTxRx {

/// Keeps the shape of a destination `RxStatus` equal to that of a source `TxStatus`: one
/// `rxMstStatus(name)` per source group `txMstStatus(name)`, and in it one `rxMstPortStatus(intf)` per
/// port of that source group. No values are copied: entries are created empty and filled by other
/// writers (the receive dynamic syncers), which write only into entries that exist. Groups and ports that
/// leave the source leave the destination too.
///
/// Ownership: the syncer owns its source reactor (`ZekSource`) and one `ZekTxMstStatusSm` per source
/// group, held by counted pointer; they point back to it with a plain pointer that the syncer clears
/// before it releases them. It holds the destination for its whole life and never deletes the
/// destination's content except through the handlers (a source group or port that goes, or a stale entry
/// found by a full pass); destroying the syncer or deleting a reactor leaves the destination as it is.
///
/// Null input: a null source is legal and counts as an empty one (as in TxStatusToTxSyncer): there is no
/// reactor, `handleInitialized()` visits no group and its stale pass deletes every destination group, and
/// `handleTxMstStatus(name)` deletes the group. The same holds after sourceDel() once a pass runs again,
/// and for a group reactor whose source group is gone (every destination port is deleted). The
/// destination must be non-null whenever there is a source or a handler runs; with no source, a null
/// destination is tolerated by `handleInitialized()` (nothing to clean).
///
/// Tracing: handle "StpTxStatusSyncer", level 8, label "TxToRx" with an empty keyInfo; the group reactors
/// use "TxToRx::ZekTxMstStatusSm" and "[" + group name + "]".
class STPTXRX_EXPORT TxStatusToRxSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  using Ptr = Zek::Ptr<TxStatusToRxSyncer>;

  /// Watches the source `TxStatus`: its `txMstStatus` collection creates and deletes destination groups
  /// and group reactors; every other attribute is ignored.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<TxStatus, TxStatusToRxSyncer> {
   public:
    ZekSource(const Zek::Ptr<TxStatus const>& source, TxStatusToRxSyncer* owner) : Reactor(source, owner) {}

    /// A `txMstStatus` change with its key: unless marked for deletion, the owner's
    /// `handleTxMstStatus(name)`; then, while bound and owned, the group reactor is created for a present
    /// group or deleted for an absent one (this step ignores the deletion mark). A null key is dropped.
    void onAttribute(Zek::AttributeId id, const void* key) override;

    /// Re-points at another `TxStatus`. When it differs: bind, then (with an owner and a non-null new
    /// source) `txMstStatusIs` for every group of the new source and `txMstStatusDel` for every reactor
    /// whose group the new source lacks. Destination groups are not deleted by this step.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    ZEK_TYPE(ZekSource);
  };

  /// Watches one source group (`TxMstStatus`) and keeps the ports of the destination group of the same
  /// name. Its constructor creates (or fetches) that destination group and runs the port pass, so the
  /// group and its ports exist as soon as the reactor does.
  ///
  /// Holds the destination group by counted pointer from its first pass on. Re-pointing it at another
  /// group object (`notifierIs`) only reconnects; it does not rerun the port pass.
  class STPTXRX_EXPORT ZekTxMstStatusSm : public Zek::Reactor<TxMstStatus, TxStatusToRxSyncer>,
                                          public Zek::Initializable {
   public:
    using Ptr = Zek::Ptr<ZekTxMstStatusSm>;

    /// Binds to `group` and runs handleInitialized(); `owner` must be non-null and hold a destination.
    ZekTxMstStatusSm(const Zek::Ptr<TxMstStatus const>& group, TxStatusToRxSyncer* owner);

    static Zek::Name keyOf(const TxMstStatus& group) { return group.name(); }
    /// The key under which the owner holds this reactor: the group name.
    const Zek::Name& fwkKey() const { return name_; }
    /// "[" + group name + "]".
    Zek::String keyInfo() const;

    /// The source group watched (null once unbound).
    Zek::Ptr<TxMstStatus const> txMstStatus() const { return watchedPtr(); }
    /// The destination group written (null before the first pass).
    const Zek::Ptr<RxMstStatus>& rxMstStatus() const { return rxMstStatus_; }

    /// Full pass over the group: fetch or create the destination group, `handleTxMstPortStatus` for every
    /// source port, then, only when the port counts differ, delete (untraced) every destination port the
    /// source group lacks. No `initialized` guard: each call does the full pass. Once unbound (no source
    /// group) the group counts as empty: every destination port is deleted. Without an owner, and before
    /// any destination group was fetched, it only traces.
    void handleInitialized();
    /// Creates the destination port when the source group has `intf`, deletes it otherwise.
    void handleTxMstPortStatus(const IntfId& intf);

    /// A `txMstPortStatus` change with its key runs handleTxMstPortStatus unless marked for deletion.
    void onAttribute(Zek::AttributeId id, const void* key) override;

   private:
    Zek::Name name_;
    Zek::Ptr<RxMstStatus> rxMstStatus_;

    ZEK_TYPE(ZekTxMstStatusSm);
  };

  /// Builds the syncer and switches its notifications on. The constructor creates a group reactor for
  /// every source group (each creating its destination group and ports), then runs handleInitialized().
  static Ptr TxStatusToRxSyncerIs(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);

  /// The source read (null when there is none or after sourceDel()).
  Zek::Ptr<TxStatus const> source() const { return source_.source(); }
  /// The destination written.
  const Zek::Ptr<RxStatus>& rxStatus() const { return rxStatus_; }
  /// Empty: the top-level syncer has no key.
  static const char* keyInfo() { return ""; }

  /// The group reactor under `name`, or null.
  ZekTxMstStatusSm* zekTxMstStatus(const Zek::Name& name) const { return zekTxMstStatus_.find(name); }
  std::size_t zekTxMstStatusCount() const { return zekTxMstStatus_.size(); }

  /// Creates or re-points the reactor for `group` (keyed by its name). A new reactor runs its first pass
  /// at once; a re-pointed one only reconnects. Either way it gets this syncer's deletion mark as its
  /// zombie state. A null `group` raises the null-pointer exception for `txMstStatus`.
  ZekTxMstStatusSm::Ptr txMstStatusIs(const Zek::Ptr<TxMstStatus const>& group);
  /// Deletes the reactor under `name` (zombie, back pointer cleared, released) and returns the group it
  /// watched, or null. The destination group is not touched.
  Zek::Ptr<TxMstStatus const> txMstStatusDel(const Zek::Name& name);
  /// txMstStatusDel for every reactor, in iteration order.
  void txMstStatusDelAll();

  /// Creates the destination group `name` when the source has it, deletes it otherwise. With no source
  /// every group counts as absent.
  void handleTxMstStatus(const Zek::Name& name);
  /// Full pass: handleTxMstStatus for every source group, then, only when the group counts differ, the
  /// untraced deletion of every destination group the source lacks; then initializedIs(true). No
  /// `initialized` guard. With no source the source counts as empty: no group is visited and every
  /// destination group is deleted.
  void handleInitialized();

  /// Disconnects the source (reactor made a zombie, back pointer cleared, released) and returns it (null
  /// when there was none). What stops: following the set of groups. What keeps running: the group
  /// reactors already built, each following its own source group's ports. The destination keeps its shape.
  Zek::Ptr<TxStatus const> sourceDel();

 protected:
  /// Zombies everything it owns and releases it; the destination keeps what it holds.
  ~TxStatusToRxSyncer() override;
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  TxStatusToRxSyncer(const Zek::Ptr<TxStatus const>& source, const Zek::Ptr<RxStatus>& rxStatus);

  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<RxStatus> rxStatus_;
  Zek::ChildSet<Zek::Name, ZekTxMstStatusSm> zekTxMstStatus_{4};

  ZEK_TYPE(TxStatusToRxSyncer);
};

/// Creates a TxStatusToRxSyncer from `source` (may be null) into `rxStatus` (non-null when `source` is).
STPTXRX_EXPORT TxStatusToRxSyncer::Ptr txStatusToRxSyncerFactory(const Zek::Ptr<TxStatus const>& source,
                                                                 const Zek::Ptr<RxStatus>& rxStatus);

}  // namespace StpTxRx
