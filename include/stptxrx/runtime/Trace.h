#pragma once
#include <stptxrx/runtime/Export.h>

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Zek {

/// One text trace message as handed to a sink.
struct TraceRecord {
  std::string_view handle;    ///< name of the trace handle ("StpTxStatusSyncer", ...)
  int level;                  ///< 0 to 9
  std::string_view file;      ///< source file, relative to the source tree, without extension
  int line;
  std::string_view function;  ///< function as named at the call site
  std::string_view text;      ///< the message itself
};

/// Receives every emitted message. The default sink writes one line per message to stderr.
class STPTXRX_EXPORT TraceSink {
 public:
  virtual ~TraceSink() = default;
  virtual void write(const TraceRecord& record) = 0;
};

/// A named trace handle with levels 0 to 9, each switched on or off independently.
///
/// Handles are created on first use and never destroyed; their levels come from STPTXRX_TRACE when they
/// are created (see traceLevelsIs) and may be changed by API at any time. `enabled()` is one inline load,
/// so a message whose level is off costs a test and builds no text.
class STPTXRX_EXPORT TraceHandle {
 public:
  explicit TraceHandle(std::string name) : name_(std::move(name)) {}
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  const std::string& name() const { return name_; }
  bool enabled(int level) const { return (mask_ >> level) & 1u; }
  std::uint16_t levels() const { return mask_; }
  /// Bit n of `mask` switches level n.
  void levelsIs(std::uint16_t mask) { mask_ = mask; }

  /// Hands a message to the current sink (whatever the level settings; callers test enabled() first).
  void emit(int level, const char* file, int line, const char* function, std::string_view text) const;

 private:
  std::string name_;
  std::uint16_t mask_ = 0;
};

/// The handle named `name`, created on first use with the levels that STPTXRX_TRACE (or the last
/// traceLevelsIs) gives that name.
STPTXRX_EXPORT TraceHandle* traceHandleIs(const char* name);

/// Sets trace levels from a text such as "StpTxStatusSyncer/8,StpTxRx/2-3": a comma-separated list of
/// `name` (all levels), `name/N` (level N) or `name/A-B` (levels A to B); `*` as the name means every
/// handle, present and future. Later items override earlier ones for the levels they name; "name/-"
/// switches a handle off. Applies to existing handles at once and to handles created later. Returns false
/// (and changes nothing) when the text does not parse.
STPTXRX_EXPORT bool traceLevelsIs(std::string_view settings);

/// Parses one level setting ("8", "2-3", "" for all, "-" for none) into a level mask; false when malformed.
STPTXRX_EXPORT bool traceLevelMaskOf(std::string_view levels, std::uint16_t& mask);

/// Replaces the sink; null restores the stderr sink. The sink is not owned.
STPTXRX_EXPORT void traceSinkIs(TraceSink* sink);

/// The sink installed by traceSinkIs, or null while the stderr sink is in use.
STPTXRX_EXPORT TraceSink* traceSink();

/// Visits every trace handle created so far, in creation order (tests save and restore their levels).
STPTXRX_EXPORT void traceHandlesForEach(const std::function<void(TraceHandle&)>& visit);

/// A sink that keeps the messages (tests, tools). Install with traceSinkIs, read `lines()`.
class STPTXRX_EXPORT CapturingTraceSink : public TraceSink {
 public:
  struct Line {
    std::string handle;
    int level;
    std::string file;
    std::string function;
    std::string text;
    int line = 0;  ///< last, so that code listing the other members keeps compiling
  };
  void write(const TraceRecord& record) override;
  const std::vector<Line>& lines() const { return lines_; }
  /// Only the texts, in order.
  std::vector<std::string> texts() const;
  void clear() { lines_.clear(); }

 private:
  std::vector<Line> lines_;
};

/// Runs `build` out of line: the text a trace builds when its level is on (a string stream and its
/// clean-up) stays out of the traced function, whose frame then costs what it would without the trace.
template <class F>
[[gnu::noinline, gnu::cold]] void traceCold(const F& build) noexcept {
  build();
}

}  // namespace Zek

/// Traces the streamed expression `msg` (e.g. "a" << x << "b") on `handle` at `level` when that level is
/// on; builds nothing otherwise. An exception while the message is built or written ends the process.
#define ZEK_TRACE(handle, level, msg) ZEK_TRACE_FROM(handle, level, __FILE__, msg)

/// As ZEK_TRACE, naming the source file of the record explicitly (code split over several files that
/// reports as one module).
#define ZEK_TRACE_FROM(handle, level, file, msg) ZEK_TRACE_AT(handle, level, file, __func__, msg)

/// As ZEK_TRACE_FROM, naming the function of the record explicitly too (a helper tracing on behalf of
/// the handler that called it).
#define ZEK_TRACE_AT(handle, level, file, function, msg) ZEK_TRACE_AT_LINE(handle, level, file, __LINE__, function, msg)

/// As ZEK_TRACE_AT, naming the line of the record explicitly too: a helper that traces on behalf of its
/// caller passes the caller's line (taken as a default argument), so that the
/// record points at the code that asked for it. `line` is read only when the level is on.
#define ZEK_TRACE_AT_LINE(handle, level, file, line, function, msg)                      \
  do {                                                                                 \
    ::Zek::TraceHandle* zekTraceHandle_ = (handle);                                    \
    if (zekTraceHandle_->enabled(level)) {                                             \
      const char* zekTraceFunction_ = (function);                                      \
      const int zekTraceLine_ = static_cast<int>(line);                                \
      ::Zek::traceCold([&]() noexcept {                                                \
        std::ostringstream zekTraceOs_;                                                \
        zekTraceOs_ << msg;                                                            \
        zekTraceHandle_->emit(level, file, zekTraceLine_, zekTraceFunction_, zekTraceOs_.view()); \
      });                                                                              \
    }                                                                                  \
  } while (0)
