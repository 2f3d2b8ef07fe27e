#pragma once
// Incremental mirroring of one transmit record (IntxInfo) into another, attribute by attribute and entry
// by entry, as the source changes.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/String.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/IntxInfo.h>

#include <cstddef>
#include <string>

namespace StpTxRx {

/// Keeps a destination IntxInfo equal to a source IntxInfo: the six record-level attributes
/// (`neighborAddr`, `stpVersion`, `intxInfoType`, `configRevisionLevel`, `configNameString`,
/// `configDigest`, always written in this order when all are copied), the set of entries of `mstiN`, and
/// the thirteen attributes of every entry. `vlanIdOrZero` is the record's key and is never copied.
///
/// Shape: a source reactor (`ZekSource`) on the source record and one per-instance syncer (`ZekMstiNSm`)
/// per source entry, held by counted pointer in `zekMstiN`, ordered by key. Record-level changes and entry
/// additions/removals arrive at ZekSource; entry attribute changes at the ZekMstiNSm of that entry.
///
/// Writes: no step compares before it writes; every step calls the destination's setter whenever it runs
/// and the record decides whether an equal write notifies. The order of writes is part of the contract
/// (readers of the destination may react to each one).
///
/// Ownership: the syncer holds the destination by counted pointer for its whole life and never deletes
/// anything from it, not even when it is destroyed (destination entries are created and deleted only by
/// `handleMstiN`). The source is only read. Reactors hold a plain back pointer to the syncer, cleared
/// before the syncer releases them.
///
/// Null input: both records are required. IntxInfoSyncerIs (and the factory) raise
/// Zek::MutatorArgNullPointerException when the source or the destination is null, before anything is
/// built. So `dest()` is never null. The source may go away later (`sourceDel()`); a syncer without a
/// source then reads as a source with default values and no entries (`handleInitialized()` re-run would
/// delete every destination entry) and `keyInfo()` prints 0 for the VLAN. A null entry given to `mstiNIs`
/// raises Zek::MutatorArgNullPointerException.
///
/// Tracing: every handler, `handleInitialized()` and `copyAllData()` records a binary trace entry with a
/// block timer; progress messages go to the handle "StpTxStatusSyncer" at level 8 and are built only when
/// that level is on.
class STPTXRX_EXPORT IntxInfoSyncer : public Zek::Owner, public Zek::Initializable {
 public:
  /// Watches the source record: copies its record-level attributes and mirrors its entries.
  class STPTXRX_EXPORT ZekSource : public Zek::Reactor<IntxInfo, IntxInfoSyncer> {
   public:
    /// Binds and registers without running any handler; notifications stay off until switched on.
    ZekSource(const Zek::Ptr<IntxInfo const>& source, IntxInfoSyncer* owner);

    /// The watched source record, or null.
    Zek::Ptr<IntxInfo const> source() const { return watchedPtr(); }

    /// A record-level attribute: the copy step for that one attribute (while bound and owned, zombie or
    /// not). `mstiN` with a key: the owner's handleMstiN(key) unless this is a zombie, then the owner's
    /// per-instance syncer created or deleted to match the source. `vlanIdOrZero` and unknown ids are
    /// ignored.
    void onAttribute(Zek::AttributeId id, const void* key) override;

    /// Re-points at another source record: the six record-level copies, then (for a non-null `p`) a
    /// per-instance syncer for each of `p`'s entries (existing ones re-pointed) and none for keys `p`
    /// lacks. Destination entries are neither created nor deleted. No-op when `p` is already watched.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    ZEK_TYPE(ZekSource);
  };

  /// Per-instance syncer: copies the thirteen attributes of one source entry into the destination entry
  /// of the same key (`destMstiN`, looked up by copyAllData()).
  ///
  /// Invariant: `destMstiN` is whatever the last copyAllData() found; a destination entry deleted by
  /// someone else afterwards still receives the writes until the next copyAllData().
  class STPTXRX_EXPORT ZekMstiNSm : public Zek::Reactor<IntxMstiInfo, IntxInfoSyncer>, public Zek::Initializable {
   public:
    /// Binds and registers without replaying handlers, then runs handleInitialized() (which copies only
    /// if the destination entry already exists). Notifications stay off until the owner switches them on.
    ZekMstiNSm(const Zek::Ptr<IntxMstiInfo const>& entry, IntxInfoSyncer* owner);

    static BridgeSystemId keyOf(const IntxMstiInfo& entry) { return entry.key(); }
    /// Key under which the owner holds this syncer (the key of the entry it was built for).
    BridgeSystemId fwkKey() const { return key_; }
    /// The watched source entry, or null.
    Zek::Ptr<IntxMstiInfo const> mstiN() const { return watchedPtr(); }
    /// Re-points at another source entry (notifierIs).
    void mstiNIs(const Zek::Ptr<IntxMstiInfo const>& entry) { notifierIs(entry); }
    /// The destination entry written, or null.
    const Zek::Ptr<IntxMstiInfo>& destMstiN() const { return destMstiN_; }

    /// "[" + key + "]", for trace messages.
    std::string keyInfo() const;

    /// Traces, copyAllData(), then marks itself initialized (even when nothing could be copied).
    void handleInitialized();
    /// Looks the destination entry up again (releasing the one held); when there is one, traces and
    /// writes all thirteen attributes in declaration order. Without an owner nothing is found.
    void copyAllData();

    /// `zek_handleMstiN_<attribute>` for each of the thirteen: that attribute copied into `destMstiN`
    /// (nothing when it is null; the type's zero when the source entry is absent). No text trace.
    STPTXRX_MSTI_FIELDS(STPTXRX_MSTI_FIELD_HANDLER)

    /// The thirteen entry attributes: the matching per-field copy unless this is a zombie. Other ids are
    /// ignored. Allocates nothing and builds no text.
    void onAttribute(Zek::AttributeId id, const void* key) override;

    /// Re-points at another entry: the thirteen per-field copies in declaration order, each only while
    /// this is no zombie. `destMstiN` is not looked up again. No-op when `p` is already watched.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    /// One of these exists per mirrored entry, built and released by the tens of thousands with the
    /// records: they come from a pool of fixed-size blocks rather than the general heap. Ownership is
    /// unchanged (the last counted reference deletes); the pool hands its memory back to the heap when
    /// its last block is freed.
    static void* operator new(std::size_t size);
    static void operator delete(void* p, std::size_t size) noexcept;

   private:
    template <auto Get, auto Set>
    void copyField();
    void copyAllFields(IntxMstiInfo& dst);

    BridgeSystemId key_;
    Zek::Ptr<IntxMstiInfo> destMstiN_;

    ZEK_TYPE(ZekMstiNSm);
  };

  /// Builds a syncer: source reactor on `source`, the six record-level attributes copied into `dest`, a
  /// per-instance syncer for every source entry, then the full copy (handleInitialized()); finally the
  /// syncer's notifications are switched on. `vlanIdOrZero` is the syncer's key in its owner's collection
  /// and `parentId` names the owner in trace messages; neither is used in copying. A null `source` or
  /// `dest` raises Zek::MutatorArgNullPointerException and builds nothing.
  static Zek::Ptr<IntxInfoSyncer> IntxInfoSyncerIs(const Zek::Ptr<IntxInfo const>& source,
                                                  const Zek::Ptr<IntxInfo>& dest, VlanIdOrNone vlanIdOrZero,
                                                  Zek::String parentId);

  /// Makes everything it owns a zombie, detaches and releases it; the destination keeps its content.
  ~IntxInfoSyncer() override;

  /// The watched source record; null after sourceDel().
  Zek::Ptr<IntxInfo const> source() const { return source_.source(); }
  /// The source reactor, or null after sourceDel(). Re-pointing it (`notifierIs`) moves the syncer to
  /// another source record.
  ZekSource* zekSource() const { return source_.get(); }
  /// The destination record; never null.
  const Zek::Ptr<IntxInfo>& dest() const { return dest_; }
  VlanIdOrNone vlanIdOrZero() const { return vlanIdOrZero_; }
  const Zek::String& parentId() const { return parentId_; }

  /// "[" + parentId + "|" + the SOURCE record's vlanIdOrZero (0 without a source) + "]".
  std::string keyInfo() const;

  /// Disconnects the source: the source reactor is made a zombie, detached, switched off and released.
  /// What stops: following the record itself (its scalars, entries added or removed). What keeps running:
  /// the per-instance syncers already built, each following its own source entry until it is deleted or
  /// the syncer destroyed. The destination keeps what it holds. Returns the former source (null when
  /// there was none).
  Zek::Ptr<IntxInfo const> sourceDel();

  /// The full copy: for each source entry in key order, handleMstiN(key) then that entry's
  /// copyAllData(); then, only when the destination's entry count differs from the source's,
  /// handleMstiN(key) for every destination key (removing those the source lacks); then initialized.
  void handleInitialized();
  /// Makes the destination's entry `mstiId` exist exactly when the source has it (creates or deletes the
  /// entry; writes none of its attributes), with a "setting"/"deleting" trace.
  void handleMstiN(BridgeSystemId mstiId);

  /// The record-level copy steps: the source's value (the default without a source) written to the
  /// destination by its setter. No text trace.
  void zek_handleIntxInfo_neighborAddr();
  void zek_handleIntxInfo_stpVersion();
  void zek_handleIntxInfo_intxInfoType();
  void zek_handleIntxInfo_configRevisionLevel();
  void zek_handleIntxInfo_configNameString();
  void zek_handleIntxInfo_configDigest();

  /// Create-or-return of the per-instance syncer for `entry` (see Zek::ChildSet::is); a new one runs its
  /// own full copy. Null `entry`: Zek::MutatorArgNullPointerException.
  Zek::Ptr<ZekMstiNSm> mstiNIs(const Zek::Ptr<IntxMstiInfo const>& entry);
  /// Deletes the per-instance syncer of `key` (never the destination entry); returns its source entry,
  /// null when there was none.
  Zek::Ptr<IntxMstiInfo const> mstiNDel(BridgeSystemId key);
  /// mstiNDel for every per-instance syncer, in key order.
  void mstiNDelAll();
  /// The per-instance syncer of `key`, or null.
  ZekMstiNSm* zekMstiN(BridgeSystemId key) const { return zekMstiN_.find(key); }
  std::size_t zekMstiNCount() const { return zekMstiN_.size(); }

 protected:
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  IntxInfoSyncer(const Zek::Ptr<IntxInfo const>& source, const Zek::Ptr<IntxInfo>& dest, VlanIdOrNone vlanIdOrZero,
                 Zek::String parentId);

  const IntxInfo* sourceRecord() const { return source_ ? source_.get()->watched() : nullptr; }
  template <auto Get, auto Set>
  void copyRecordField();
  void copyRecordFields();
  /// One per-instance syncer per entry of `record`, in key order; those of keys `record` lacks deleted.
  void mirrorMstiN(const IntxInfo& record);

  Zek::SourceSlot<ZekSource> source_;
  Zek::Ptr<IntxInfo> dest_;
  VlanIdOrNone vlanIdOrZero_;
  Zek::String parentId_;
  Zek::ChildSet<BridgeSystemId, ZekMstiNSm, Zek::OrderedMap> zekMstiN_;

  ZEK_TYPE(IntxInfoSyncer);
};

/// IntxInfoSyncer::IntxInfoSyncerIs(source, dest, vlanIdOrZero, parentId).
STPTXRX_EXPORT Zek::Ptr<IntxInfoSyncer> intxInfoSyncerFactory(const Zek::Ptr<IntxInfo const>& source,
                                                              const Zek::Ptr<IntxInfo>& dest,
                                                              VlanIdOrNone vlanIdOrZero, Zek::String parentId);

}  // namespace StpTxRx
