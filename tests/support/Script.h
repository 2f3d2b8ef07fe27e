#pragma once
// Table-driven exact tests: a script of steps, each with the trace lines and the destination's view it must
// produce.
#include <stptxrx/runtime/Entity.h>
#include <stptxrx/runtime/Exception.h>

#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace Zek::test {

/// What a step does, then the traces it causes (TraceCapture::brief) and what the destination shows.
struct Step {
  const char* what;
  std::function<void()> op;
  std::string traces, shows;
};

/// Runs each step of `script` with `cap` capturing and notifyEqualWrites_ on (every write shows, equal or
/// not), expects its traces and `shows()`, then clears the capture; `shows` starts each step afresh. Every
/// line must come from `origin` ("handle file", as "StpTxStatusSyncer Stp/StpTxStatusSyncer").
inline void play(TraceCapture& cap, const char* origin, const TraceCapture::Abbreviations& abbreviations,
                 const std::function<std::string()>& shows, const std::vector<Step>& script) {
  notifyEqualWrites_ = true;
  for (const Step& s : script) {
    SCOPED_TRACE(s.what);
    s.op();
    EXPECT_EQ(cap.brief(abbreviations), s.traces);
    EXPECT_EQ(shows(), s.shows);
    for (const auto& line : cap.lines()) EXPECT_EQ(line.handle + " " + line.file, origin);
    cap.clear();
  }
  notifyEqualWrites_ = false;
}

/// What a reinstantiation error raised by `call` names ("Type::attribute"), or "no exception".
template <class Call>
std::string reinstantiationOf(Call&& call) try {
  return call(), "no exception";
} catch (const MutatorReinstantiatingException& e) {
  const std::string what = e.what();
  return what.substr(0, what.find(": "));
}

}  // namespace Zek::test
