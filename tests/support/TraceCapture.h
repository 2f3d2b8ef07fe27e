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

  /// Captured messages, oldest first, with handle, level, file, function and text.
  const std::vector<CapturingTraceSink::Line>& lines() const { return sink_.lines(); }
  /// Only the texts, oldest first.
  std::vector<std::string> texts() const { return sink_.texts(); }
  /// Texts of the messages traced at `level` only.
  std::vector<std::string> texts(int level) const;
  /// The texts in one string, separated by "|", each prefixed with its level when it is not `usualLevel`
  /// ("7 ...") and with the first matching prefix of `abbreviations` replaced by its short form:
  ///   EXPECT_EQ(cap.brief({{"TxToTx::ZekTxMstStatusSm[g1]::", "G:"}}), "G:handleInitialized() |...");
  using Abbreviations = std::vector<std::pair<std::string, std::string>>;
  std::string brief(const Abbreviations& abbreviations = {}, int usualLevel = 8) const;
  void clear() { sink_.clear(); }

 private:
  CapturingTraceSink sink_;
  TraceSink* previousSink_;
  std::vector<std::pair<TraceHandle*, std::uint16_t>> saved_;  // levels of every handle at construction
  bool wildcard_ = false;
};

}  // namespace Zek::test
