#pragma once
// The thirteen per-field handlers of an instance reactor, in the declaration order of IntxMstiInfo's
// fields (IntxMstiInfo::fieldIndex): the per-instance syncer and the change counter's instance reactor
// dispatch through this one table by attribute id, and re-pointing replays it whole. Private to the
// library.
#include <stptxrx/state/IntxInfo.h>

#include <array>

namespace StpTxRx {

template <class Sm>
inline constexpr std::array<void (Sm::*)(), IntxMstiInfo::fieldCount> mstiFieldHandlers = {
#define STPTXRX_HANDLER_OF(name) &Sm::zek_handleMstiN_##name,
    STPTXRX_MSTI_FIELDS(STPTXRX_HANDLER_OF)
#undef STPTXRX_HANDLER_OF
};

/// The handler of attribute `id`, run unless `sm` is marked for deletion; the key and unknown ids run none.
template <class Sm>
void dispatchMstiField(Sm& sm, Zek::AttributeId id) {
  if (sm.zekMarkedForDeletion()) return;
  const int field = IntxMstiInfo::fieldIndex(id);
  if (field >= 0) (sm.*mstiFieldHandlers<Sm>[field])();
}

/// Every handler in order, as if each field had been written; the mark is tested before each one, since a
/// handler's write may reach a reader that makes `sm` a zombie midway.
template <class Sm>
void replayMstiFields(Sm& sm) {
  for (auto handler : mstiFieldHandlers<Sm>) {
    if (!sm.zekMarkedForDeletion()) (sm.*handler)();
  }
}

}  // namespace StpTxRx
