#pragma once
// Capturing of text trace messages in a test.
#include <stptxrx/runtime/Trace.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zek::test {

/// RAII: installs a Zek::CapturingTraceSink and switches trace levels on for the life of the object.
///
///   Zek::test::TraceCapture cap({"StpTxStatusSyncer/8", "StpTxRx/2-3"});
///   ... run the code ...
///   EXPECT_EQ(cap.texts(), (std::vector<std::string>{"..."}));
///
/// Each item uses the STPTXRX_TRACE syntax (Zek::traceLevelsIs); a malformed item fails the current
/// test. On destruction the previous sink is reinstalled and every handle gets back the levels it had at
/// construction; handles that did not exist then are switched off, and so are handles created later
/// when a "*" item was given. Captures may nest; the inner one sees the messages while it lives.
class TraceCapture {
 public:
  explicit TraceCapture(std::initializer_list<std::string_view> settings = {});
  ~TraceCapture();
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  /// Applies one more level setting ("StpTxRx/8", "*/-", ...); false (and a test failure) when malformed.
  bool levelsIs(std::string_view settings);
  /// Sets the levels of handle `name` to `mask` (bit n = level n), creating the handle if needed.
  void levelMaskIs(const char* name, std::uint16_t mask);

  /// Captured messages, oldest first, with handle, level, file, function and text.
  const std::vector<CapturingTraceSink::Line>& lines() const { return sink_.lines(); }
  /// Only the texts, oldest first.
  std::vector<std::string> texts() const { return sink_.texts(); }
  /// Texts of the messages traced at `level` only.
  std::vector<std::string> texts(int level) const;
  void clear() { sink_.clear(); }

 private:
  CapturingTraceSink sink_;
  TraceSink* previousSink_;
  std::vector<std::pair<TraceHandle*, std::uint16_t>> saved_;  // levels of every handle at construction
  bool wildcard_ = false;
};

}  // namespace Zek::test
