#pragma once
#include <stptxrx/runtime/Export.h>

#include <cstdint>
#include <iosfwd>
#include <string>

#if defined(__x86_64__) || defined(__i386__)
#include <x86intrin.h>
#endif

namespace Zek {

/// The binary trace: a fixed-size ring of records (call-site message id, start time, elapsed time) filled
/// by block timers at the start of every syncer handler. Call sites register once; recording is a few
/// stores and two time-stamp reads. It can be switched off at run time and dumped as text.
namespace BinaryTrace {

STPTXRX_EXPORT std::uint64_t nowSteady() noexcept;

/// Time stamp in ticks of the cheapest monotonic counter the machine has.
///
/// These two reads per block, not the ring, are what a timed handler pays when its data is cold: the
/// counter read does not overlap freely with outstanding cache misses, so fewer of them are in flight at
/// once. The ring stores hit (one first-level refill per four records). A stronger-ordered read (the
/// variant that waits for earlier instructions) costs far more; do not switch to it.
inline std::uint64_t now() noexcept {
#if defined(__x86_64__) || defined(__i386__)
  return __rdtsc();
#else
  return nowSteady();
#endif
}

/// One timed block. 16 octets, so that the ring stays small enough to live in the first-level caches
/// next to the data the handlers touch.
struct Record {
  std::uint32_t message;
  std::uint32_t elapsed;  ///< ticks; saturates at 2^32 - 1
  std::uint64_t start;
};
static_assert(sizeof(Record) == 16);

inline constexpr std::uint32_t ringSize = 1024;  // records; a power of two

STPTXRX_EXPORT extern bool enabled_;

/// Registers a call site; `prettyFunction` is the compiler's full signature, from which the message text
/// "Qualified::name():line" is made (return type and parameters dropped). Returns the message id.
STPTXRX_EXPORT std::uint32_t callSiteIs(const char* prettyFunction, const char* file, int line);

/// Text of a registered message ("" for an unknown id).
STPTXRX_EXPORT const std::string& messageText(std::uint32_t id);

/// The ring itself: plain data with a trivial destructor, so that handlers running from static destructors
/// can still record. Written in line by every block timer (no call, no initialisation guard); read by the
/// functions below.
struct alignas(64) RingState {
  Record records[ringSize];
  std::uint64_t written;  ///< records written since the last clear
};
STPTXRX_EXPORT extern RingState ring_;

inline void record(std::uint32_t message, std::uint64_t start, std::uint64_t elapsed) noexcept {
  const std::uint64_t w = ring_.written;
  const auto ticks = static_cast<std::uint32_t>(elapsed > 0xffffffffu ? 0xffffffffu : elapsed);
  ring_.records[w & (ringSize - 1)] = Record{message, ticks, start};
  ring_.written = w + 1;
}

inline bool enabled() noexcept { return enabled_; }
inline void enabledIs(bool on) noexcept { enabled_ = on; }

/// Number of records written since the last clear (may exceed ringSize; the ring keeps the latest).
STPTXRX_EXPORT std::uint64_t recordCount() noexcept;
STPTXRX_EXPORT void clear() noexcept;
/// Copies the record `back` places before the newest (0 = newest); false when there is none.
STPTXRX_EXPORT bool recent(std::uint32_t back, Record& out) noexcept;
/// Writes the ring, oldest first, one line per record: message text, start and elapsed ticks.
STPTXRX_EXPORT void dump(std::ostream& os);

/// Records the time from its construction to its destruction under one message id.
class BlockTimer {
 public:
  explicit BlockTimer(std::uint32_t message) noexcept
      : message_(message), start_(enabled_ ? now() : 0), on_(enabled_) {}
  BlockTimer(const BlockTimer&) = delete;
  BlockTimer& operator=(const BlockTimer&) = delete;
  ~BlockTimer() {
    if (on_) record(message_, start_, now() - start_);
  }

 private:
  std::uint32_t message_;
  std::uint64_t start_;
  bool on_;
};

}  // namespace BinaryTrace
}  // namespace Zek

/// First statement of every syncer handler: registers the call site once and times the enclosing block.
#define ZEK_BINARY_TRACE()                                                                                 \
  static const std::uint32_t zekBinaryTraceId_ =                                                           \
      ::Zek::BinaryTrace::callSiteIs(__PRETTY_FUNCTION__, __FILE__, __LINE__);                             \
  ::Zek::BinaryTrace::BlockTimer zekBinaryTraceTimer_(zekBinaryTraceId_)
