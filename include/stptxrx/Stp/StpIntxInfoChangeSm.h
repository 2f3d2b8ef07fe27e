#pragma once
// Change counting of one transmit record: how many field updates of an IntxInfo (and of its instance
// entries) a creator has not yet looked at.
#include <stptxrx/runtime/Export.h>
#include <stptxrx/runtime/Reactor.h>
#include <stptxrx/runtime/TypeRegistry.h>
#include <stptxrx/state/IntxInfo.h>

#include <cstddef>

namespace StpTxRx {

/// Counts the updates of one IntxInfo record in `updatedFieldCount()`.
///
/// Built from the common reactor pieces: a record reactor (`ZekIntxInfo`, owned through the source slot)
/// and one instance reactor (`ZekMstiN`) per entry of the record's `mstiN`, held by counted pointer in a
/// collection ordered by key. It copies nothing, writes nothing but its own counter and traces nothing.
///
/// What counts (one notification that reaches a handler counts, whether or not the value changed):
///   - one of the six record-level attributes written: 1; `vlanIdOrZero`: 0;
///   - one of the thirteen attributes of an entry written: 1;
///   - an entry added to `mstiN`: 0 (13 when a reactor under that key was re-pointed at the new entry);
///   - an entry removed: 1 (its reactor turned into a zombie);
///   - the record reactor re-pointed at another non-null record: 1, plus 13 per instance reactor
///     re-pointed and 1 per instance reactor removed;
///   - the machine made a zombie, or brought back: 1 per instance reactor;
///   - `intxInfoDel()`: 0.
/// Adding counts 0 and removing counts 1 on purpose; creators rely on it.
///
/// The counter starts at 1, not 0 (a new machine reports one update before anything changed), and wraps
/// modulo 2^32. Nothing here ever resets it; the creator may, with `updatedFieldCountIs`.
///
/// Null input: a null record is legal and gives a machine that watches nothing and reports 1. A null entry
/// given to `mstiNIs` raises Zek::MutatorArgNullPointerException.
///
/// Ownership: the machine owns its reactors; each reactor holds its watched object by counted pointer and
/// a plain back pointer to the machine, which the machine clears before it releases the reactor. The
/// watched record is only read.
class STPTXRX_EXPORT IntxInfoChangeSm : public Zek::Owner {
 public:
  /// Watches the record itself: counts its record-level writes and keeps one instance reactor per entry.
  class STPTXRX_EXPORT ZekIntxInfo : public Zek::Reactor<IntxInfo, IntxInfoChangeSm> {
   public:
    /// Binds and registers without counting; notifications stay off until the owner switches them on.
    ZekIntxInfo(const Zek::Ptr<IntxInfo const>& intxInfo, IntxInfoChangeSm* owner);

    /// Record-level attributes count 1 unless this reactor is a zombie; `vlanIdOrZero` and unknown ids
    /// are ignored. An `mstiN` change (with a key, while bound and owned) creates or deletes the instance
    /// reactor of that key, zombie or not, and counts nothing by itself.
    void onAttribute(Zek::AttributeId id, const void* key) override;

    /// Re-points at another record: counts 1 (when `p` is non-null and this is no zombie), then mirrors
    /// `p`'s entries in the instance reactors (re-pointing counts 13 each, removal 1 each). No-op when
    /// `p` is already watched. Null `p` unbinds and counts nothing.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

    ZEK_TYPE(ZekIntxInfo);
  };

  /// Watches one instance entry and counts each write of its thirteen attributes.
  class STPTXRX_EXPORT ZekMstiN : public Zek::Reactor<IntxMstiInfo, IntxInfoChangeSm> {
   public:
    /// Binds and registers without counting; notifications stay off until the owner switches them on.
    ZekMstiN(const Zek::Ptr<IntxMstiInfo const>& entry, IntxInfoChangeSm* owner);

    /// Key under which the owner holds this reactor (the key of the entry it was built for).
    static BridgeSystemId keyOf(const IntxMstiInfo& entry) { return entry.key(); }
    BridgeSystemId fwkKey() const { return key_; }
    /// The watched entry, or null.
    Zek::Ptr<IntxMstiInfo const> mstiN() const { return watchedPtr(); }

    /// The one counting body: the owner's incUpdatedFieldCount(). A reactor whose back pointer was
    /// cleared (it was deleted) counts nothing.
    void zek_handleMstiN();
    /// `zek_handleMstiN_<attribute>` for each of the thirteen: zek_handleMstiN().
    STPTXRX_MSTI_FIELDS(STPTXRX_MSTI_FIELD_HANDLER)

    /// The thirteen entry attributes count 1 each unless this reactor is a zombie; other ids are ignored.
    void onAttribute(Zek::AttributeId id, const void* key) override;

    /// Re-points at another entry: the thirteen per-field handlers in declaration order, each only while
    /// this reactor is no zombie (so 13). No-op when `p` is already watched; null `p` unbinds, counts 0.
    void notifierIs(const Zek::Ptr<Zek::PtrInterface const>& p) override;

   protected:
    /// Entering or leaving the zombie state counts 1 (after notifications were switched).
    void zombieStateChanging(bool zombie) override;

   private:
    BridgeSystemId key_;

    ZEK_TYPE(ZekMstiN);
  };

  /// Allocates the machine, runs the constructor (which counts nothing) and switches notifications on.
  /// `intxInfo` may be null (nothing is watched). `vlanIdOrZero` is stored, never used in counting.
  static Zek::Ptr<IntxInfoChangeSm> IntxInfoChangeSmIs(const Zek::Ptr<IntxInfo const>& intxInfo,
                                                      VlanIdOrNone vlanIdOrZero);

  ~IntxInfoChangeSm() override;

  unsigned updatedFieldCount() const { return updatedFieldCount_; }
  /// A plain store; notifies nobody.
  void updatedFieldCountIs(unsigned count) { updatedFieldCount_ = count; }
  /// updatedFieldCountIs(updatedFieldCount() + 1), wrapping at 2^32.
  void incUpdatedFieldCount() { updatedFieldCountIs(updatedFieldCount() + 1u); }

  VlanIdOrNone vlanIdOrZero() const { return vlanIdOrZero_; }

  /// The watched record, or null (none given, or released by intxInfoDel()).
  Zek::Ptr<IntxInfo const> intxInfo() const { return intxInfo_.source(); }
  /// The record reactor, or null. Re-pointing it (`notifierIs`) moves the machine to another record.
  ZekIntxInfo* zekIntxInfo() const { return intxInfo_.get(); }
  /// Stops watching the record, counting nothing: the record reactor is made a zombie, detached, switched
  /// off and released. The instance reactors stay and go on counting the field writes of their entries;
  /// record-level writes and entries added or removed later are no longer seen. Returns the record that
  /// was watched (null when none).
  Zek::Ptr<IntxInfo const> intxInfoDel();

  /// Create-or-return of the instance reactor for `entry` (see Zek::ChildSet::is): a new one counts 0; an
  /// existing one watching another entry is re-pointed (13). Null `entry`: MutatorArgNullPointerException.
  Zek::Ptr<ZekMstiN> mstiNIs(const Zek::Ptr<IntxMstiInfo const>& entry);
  /// Deletes the instance reactor of `key` (counts 1 when there was one) and returns its entry (null when
  /// there was none).
  Zek::Ptr<IntxMstiInfo const> mstiNDel(BridgeSystemId key);
  /// mstiNDel for every instance reactor, in key order.
  void mstiNDelAll();
  /// The instance reactor of `key`, or null.
  ZekMstiN* zekMstiN(BridgeSystemId key) const { return zekMstiN_.find(key); }
  std::size_t zekMstiNCount() const { return zekMstiN_.size(); }

 protected:
  void passNotificationActive(bool active) override;
  void passZombie(bool zombie) override;

 private:
  IntxInfoChangeSm(const Zek::Ptr<IntxInfo const>& intxInfo, VlanIdOrNone vlanIdOrZero);

  /// One instance reactor per entry of `record`, in key order; reactors of keys `record` lacks removed.
  void mirrorMstiN(const IntxInfo& record);

  Zek::SourceSlot<ZekIntxInfo> intxInfo_;
  VlanIdOrNone vlanIdOrZero_;
  unsigned updatedFieldCount_ = 1;
  Zek::ChildSet<BridgeSystemId, ZekMstiN, Zek::OrderedMap> zekMstiN_;

  ZEK_TYPE(IntxInfoChangeSm);
};

static_assert(sizeof(unsigned) == 4, "updatedFieldCount wraps at 2^32");

/// IntxInfoChangeSm::IntxInfoChangeSmIs(intxInfo, vlanIdOrZero).
STPTXRX_EXPORT Zek::Ptr<IntxInfoChangeSm> intxInfoChangeSmFactory(const Zek::Ptr<IntxInfo const>& intxInfo,
                                                                  VlanIdOrNone vlanIdOrZero);

}  // namespace StpTxRx
