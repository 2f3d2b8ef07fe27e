#include "support/TraceCapture.h"

#include <gtest/gtest.h>

#include <sstream>

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
  // A named rule stays with the trace state; creating the handle now means the rule can never reach a
  // handle created after this capture is gone (the destructor resets every existing handle).
  std::istringstream items{std::string(settings)};
  for (std::string item; std::getline(items, item, ',');) {
    const std::size_t at = item.find_first_not_of(' ');
    if (at == std::string::npos) continue;
    const std::string name = item.substr(at, item.find('/') - at);
    if (name == "*") wildcard_ = true;
    if (name != "*") traceHandleIs(name.c_str());
  }
  return true;
}

std::vector<std::string> TraceCapture::texts(int level) const {
  std::vector<std::string> out;
  for (const auto& line : lines()) {
    if (line.level == level) out.push_back(line.text);
  }
  return out;
}

std::string TraceCapture::brief(const Abbreviations& abbreviations, int usualLevel) const {
  std::string out;
  for (const auto& line : lines()) {
    std::string text = line.text;
    for (const auto& [prefix, shortForm] : abbreviations) {
      if (text.starts_with(prefix)) {
        text = shortForm + text.substr(prefix.size());
        break;
      }
    }
    out += (out.empty() ? "" : "|") + (line.level == usualLevel ? "" : std::to_string(line.level) + " ") + text;
  }
  return out;
}

}  // namespace Zek::test
