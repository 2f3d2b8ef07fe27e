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
/// Its two reads per block are most of what a timed handler pays, so a block keeps its other stores
/// few, and the read is the unordered one: the variant that waits for earlier instructions costs more
/// everywhere. What each costs on a given machine is measured by stptxrx_bench_Runtime (a timed empty
/// block beside two bare reads), not stated here.
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
class BlockTimer;

/// The ring itself: plain data with a trivial destructor, so that handlers running from static destructors
/// can still record. Written in line by every block timer (no call, no initialisation guard); read by the
/// functions below.
struct alignas(64) RingState {
  Record records[ringSize];
  std::uint64_t written;       ///< records written since the last clear
  Run* run;                    ///< the innermost open run, or null
  const BlockTimer* givenFor;  ///< the block whose end a closing run handed over, or null
  std::uint64_t givenEnd;      ///< that end stamp
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
///
/// Lean on purpose: a block that is not one of a run's keeps only its start and its message, and at its
/// end writes one ring record and the count. Its stores wait until the handler's earlier loads retire,
/// which on a large switch are cache misses; run state lives in the Run and the ring instead.
class BlockTimer {
 public:
  explicit BlockTimer(std::uint32_t message) noexcept;
  BlockTimer(const BlockTimer&) = delete;
  BlockTimer& operator=(const BlockTimer&) = delete;
  ~BlockTimer();

 private:
  friend class Run;
  std::uint64_t begin() noexcept;  // the start stamp of a recording block; claims an open run it starts in

  std::uint64_t start_;  // 0: recording was off when the block started, and the block records nothing
  std::uint32_t message_;
};

/// Blocks timed back to back: while a run is open, a block that its opener starts directly (at the run's
/// nesting level) right after another such block ended starts at the stamp that ended that block,
/// instead of reading the counter again. A full copy that walks n entries with two handlers each thus
/// reads the counter about 2n times rather than 4n. Blocks nested inside them (a destination reader's
/// handler, say) read the counter as usual and hand nothing on.
///
/// The opener promises that only trivial steps (a loop increment, a lookup) separate the blocks of the
/// run; their time counts to the later block. With `enclosing` (the block the run is opened
/// in), that block ends at the stamp that ended the run's last block (when there was one), so the opener
/// also promises that only trivial steps follow the run inside it.
///
/// Runs nest (each restores the one it found) and follow the recording switch: flipping it drops every
/// open run's hand-off, so no block starts or ends at a stamp read before the switch.
class Run {
 public:
  explicit Run(BlockTimer* enclosing = nullptr) noexcept : outer_(ring_.run), enclosing_(enclosing) {
    ring_.run = this;
  }
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  ~Run() {
    ring_.run = outer_;
    // Read by the enclosing block when it ends, right after this.
    if (enclosing_ && enclosing_->start_ && handOff_) {
      ring_.givenFor = enclosing_;
      ring_.givenEnd = stamp_;
    }
  }

 private:
  friend class BlockTimer;
  friend void enabledIs(bool on) noexcept;

  Run* outer_;
  BlockTimer* enclosing_;
  const BlockTimer* current_ = nullptr;  // the run's own block open now; blocks starting meanwhile nest in it
  std::uint64_t stamp_ = 0;              // when handOff_: the stamp that ended the run's latest block
  bool handOff_ = false;
};

inline void enabledIs(bool on) noexcept {
  enabled_ = on;
  ring_.givenFor = nullptr;
  for (Run* run = ring_.run; run; run = run->outer_) run->handOff_ = false;
}

inline BlockTimer::BlockTimer(std::uint32_t message) noexcept
    : start_(enabled_ ? begin() : 0), message_(message) {}

inline std::uint64_t BlockTimer::begin() noexcept {
  Run* run = ring_.run;
  if (run && !run->current_) {
    run->current_ = this;
    if (run->handOff_) {
      run->handOff_ = false;
      return run->stamp_;
    }
  }
  return now();
}

inline BlockTimer::~BlockTimer() {
  if (!start_) return;
  std::uint64_t end;
  if (ring_.givenFor == this) {
    ring_.givenFor = nullptr;
    end = ring_.givenEnd;
  } else {
    end = now();
  }
  record(message_, start_, end - start_);
  Run* run = ring_.run;
  if (run && run->current_ == this) {
    run->current_ = nullptr;
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
