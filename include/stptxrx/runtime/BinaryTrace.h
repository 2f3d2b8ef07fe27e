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

class Run;

/// The ring itself: plain data with a trivial destructor, so that handlers running from static destructors
/// can still record. Written in line by every block timer (no call, no initialisation guard); read by the
/// functions below.
struct alignas(64) RingState {
  Record records[ringSize];
  std::uint64_t written;  ///< records written since the last clear
  std::uint32_t depth;    ///< recording block timers open right now
  Run* run;               ///< the innermost open run, or null
};
STPTXRX_EXPORT extern RingState ring_;

inline void record(std::uint32_t message, std::uint64_t start, std::uint64_t elapsed) noexcept {
  const std::uint64_t w = ring_.written;
  const auto ticks = static_cast<std::uint32_t>(elapsed > 0xffffffffu ? 0xffffffffu : elapsed);
  ring_.records[w & (ringSize - 1)] = Record{message, ticks, start};
  ring_.written = w + 1;
}

inline bool enabled() noexcept { return enabled_; }
/// Switches recording on or off (defined after Run: a switch drops every open run's hand-off).
inline void enabledIs(bool on) noexcept;

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
  explicit BlockTimer(std::uint32_t message) noexcept;
  BlockTimer(const BlockTimer&) = delete;
  BlockTimer& operator=(const BlockTimer&) = delete;
  ~BlockTimer();

 private:
  friend class Run;

  std::uint32_t message_;
  bool on_;
  bool endGiven_ = false;
  std::uint64_t start_;
  std::uint64_t end_ = 0;  // when endGiven_: the stamp the block ends at, read by its run's last block
};

/// Blocks timed back to back: while a run is open, a block that its opener starts directly (at the run's
/// nesting level) right after another such block ended starts at the stamp that ended that block,
/// instead of reading the counter again. A full copy that walks n entries with two handlers each thus
/// reads the counter about 2n times rather than 4n. Blocks nested inside them (a destination reader's
/// handler, say) read the counter as usual and hand nothing on.
///
/// The opener promises that only trivial steps (a loop increment, a lookup) separate the blocks of the
/// run; their few nanoseconds count to the later block. With `enclosing` (the block the run is opened
/// in), that block ends at the stamp that ended the run's last block (when there was one), so the opener
/// also promises that only trivial steps follow the run inside it.
///
/// Runs nest (each restores the one it found) and follow the recording switch: flipping it drops every
/// open run's hand-off, so no block starts at a stamp read before the switch.
class Run {
 public:
  explicit Run(BlockTimer* enclosing = nullptr) noexcept
      : outer_(ring_.run), enclosing_(enclosing), depth_(ring_.depth) {
    ring_.run = this;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() {
    ring_.run = outer_;
    if (enclosing_ && handOff_) {
      enclosing_->end_ = stamp_;
      enclosing_->endGiven_ = true;
    }
  }

 private:
  friend class BlockTimer;
  friend void enabledIs(bool on) noexcept;

  Run* outer_;
  BlockTimer* enclosing_;
  std::uint64_t stamp_ = 0;  // when handOff_: the stamp that ended the run's latest block
  std::uint32_t depth_;      // ring_.depth of the run's own blocks when they start
  bool handOff_ = false;
};

inline void enabledIs(bool on) noexcept {
  enabled_ = on;
  for (Run* run = ring_.run; run; run = run->outer_) run->handOff_ = false;
}

inline BlockTimer::BlockTimer(std::uint32_t message) noexcept : message_(message), on_(enabled_) {
  if (!on_) {
    start_ = 0;
    return;
  }
  Run* run = ring_.run;
  if (run && run->handOff_ && run->depth_ == ring_.depth) {
    start_ = run->stamp_;
    run->handOff_ = false;
  } else {
    start_ = now();
  }
  ++ring_.depth;
}

inline BlockTimer::~BlockTimer() {
  if (!on_) return;
  --ring_.depth;
  const std::uint64_t end = endGiven_ ? end_ : now();
  record(message_, start_, end - start_);
  Run* run = ring_.run;
  if (run && run->depth_ == ring_.depth) {
    run->stamp_ = end;
    run->handOff_ = true;
  }
}

}  // namespace BinaryTrace
}  // namespace Zek

/// First statement of every syncer handler: registers the call site once and times the enclosing block.
#define ZEK_BINARY_TRACE()                                                                                 \
  static const std::uint32_t zekBinaryTraceId_ =                                                           \
      ::Zek::BinaryTrace::callSiteIs(__PRETTY_FUNCTION__, __FILE__, __LINE__);                             \
  ::Zek::BinaryTrace::BlockTimer zekBinaryTraceTimer_(zekBinaryTraceId_)

/// Opens a run (BinaryTrace::Run) named `name` inside the block of the enclosing ZEK_BINARY_TRACE(): the
/// handlers it calls back to back share their time stamps, and the enclosing block ends where the last of
/// them ended.
#define ZEK_BINARY_TRACE_RUN(name) ::Zek::BinaryTrace::Run name(&zekBinaryTraceTimer_)
