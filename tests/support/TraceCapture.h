#pragma once
// Capturing of text trace messages in a test.
#include <stptxrx/runtime/Trace.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <sstream>
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
  explicit TraceCapture(std::initializer_list<std::string_view> settings = {}) : previousSink_(traceSink()) {
    traceHandlesForEach([this](TraceHandle& h) { saved_.emplace_back(&h, h.levels()); });
    traceSinkIs(&sink_);
    for (std::string_view item : settings) levelsIs(item);
  }
  ~TraceCapture() {
    // A "*" rule also reaches handles created later; switch those off again.
    if (wildcard_) traceLevelsIs("*/-");
    // Handles created while the capture lived, by the settings or by the code under test, go off; the
    // others get back what they had.
    traceHandlesForEach([](TraceHandle& h) { h.levelsIs(0); });
    for (auto& [handle, mask] : saved_) handle->levelsIs(mask);
    traceSinkIs(previousSink_);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  /// Applies one more level setting ("StpTxRx/8", "*/-", ...); false (and a test failure) when malformed.
  bool levelsIs(std::string_view settings) {
    if (!traceLevelsIs(settings)) {
      ADD_FAILURE() << "TraceCapture: malformed trace level setting \"" << settings << "\"";
      return false;
    }
    // A named rule stays with the trace state; creating the handle now means the rule can never reach a
    // handle created after this capture is gone (the destructor resets every existing handle).
    std::istringstream items{std::string(settings)};
    for (std::string item; std::getline(items, item, ',');) {
      const std::size_t at = item.find_first_not_of(' ');
      const std::string name = at == std::string::npos ? "" : item.substr(at, item.find('/') - at);
      wildcard_ |= name == "*";
      if (!name.empty() && name != "*") traceHandleIs(name.c_str());
    }
    return true;
  }

  /// Captured messages, oldest first, with handle, level, file, function and text.
  const std::vector<CapturingTraceSink::Line>& lines() const { return sink_.lines(); }
  /// Only the texts, oldest first.
  std::vector<std::string> texts() const { return sink_.texts(); }
  /// Texts of the messages traced at `level` only.
  std::vector<std::string> texts(int level) const {
    std::vector<std::string> out;
    for (const auto& line : lines()) if (line.level == level) out.push_back(line.text);
    return out;
  }
  /// The texts in one string, separated by "|", each prefixed with its level when it is not `usualLevel`
  /// ("7 ...") and with the first matching prefix of `abbreviations` replaced by its short form:
  ///   EXPECT_EQ(cap.brief({{"TxToTx::ZekTxMstStatusSm[g1]::", "G:"}}), "G:handleInitialized() |...");
  using Abbreviations = std::vector<std::pair<std::string, std::string>>;
  std::string brief(const Abbreviations& abbreviations = {}, int usualLevel = 8) const {
    std::string out;
    for (const auto& line : lines()) {
      std::string text = line.text;
      const auto hit = std::find_if(abbreviations.begin(), abbreviations.end(),
                                    [&](const auto& a) { return text.starts_with(a.first); });
      if (hit != abbreviations.end()) text = hit->second + text.substr(hit->first.size());
      out += (out.empty() ? "" : "|") + (line.level == usualLevel ? "" : std::to_string(line.level) + " ") + text;
    }
    return out;
  }
  void clear() { sink_.clear(); }

 private:
  CapturingTraceSink sink_;
  TraceSink* previousSink_;
  std::vector<std::pair<TraceHandle*, std::uint16_t>> saved_;  // levels of every handle at construction
  bool wildcard_ = false;
};

}  // namespace Zek::test
