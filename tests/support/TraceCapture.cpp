#include "support/TraceCapture.h"

#include <gtest/gtest.h>

namespace Zek::test {

TraceCapture::TraceCapture(std::initializer_list<std::string_view> settings) : previousSink_(traceSink()) {
  traceHandlesForEach([this](TraceHandle& h) { saved_.emplace_back(&h, h.levels()); });
  traceSinkIs(&sink_);
  for (std::string_view item : settings) levelsIs(item);
}

TraceCapture::~TraceCapture() {
  // A "*" rule also reaches handles created later; switch those off again.
  if (wildcard_) traceLevelsIs("*/-");
  // Handles created while the capture lived, by the settings or by the code under test, go off; the
  // others get back what they had.
  traceHandlesForEach([](TraceHandle& h) { h.levelsIs(0); });
  for (auto& [handle, mask] : saved_) handle->levelsIs(mask);
  traceSinkIs(previousSink_);
}

bool TraceCapture::levelsIs(std::string_view settings) {
  if (!traceLevelsIs(settings)) {
    ADD_FAILURE() << "TraceCapture: malformed trace level setting \"" << settings << "\"";
    return false;
  }
  for (std::size_t at = 0; at <= settings.size();) {
    std::size_t comma = settings.find(',', at);
    std::string_view item = settings.substr(at, comma == std::string_view::npos ? std::string_view::npos : comma - at);
    while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
    std::string_view name = item.substr(0, item.find('/'));
    // A named rule stays with the trace state; creating the handle now means the rule can never reach a
    // handle created after this capture is gone (the destructor resets every existing handle).
    if (name == "*") {
      wildcard_ = true;
    } else {
      traceHandleIs(std::string(name).c_str());
    }
    if (comma == std::string_view::npos) break;
    at = comma + 1;
  }
  return true;
}

void TraceCapture::levelMaskIs(const char* name, std::uint16_t mask) { traceHandleIs(name)->levelsIs(mask); }

std::vector<std::string> TraceCapture::texts(int level) const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    if (line.level == level) out.push_back(line.text);
  }
  return out;
}

}  // namespace Zek::test
