// Text trace handles, level settings and sinks.
#include <stptxrx/runtime/Trace.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <unordered_map>
#include <utility>

namespace Zek {

namespace {

// One item of a level setting: switches the levels in `mask` on, or (for "name/-") every level off. Items
// apply in order, each deciding only the levels it names.
struct LevelRule {
  std::string name;  // "*" for every handle
  std::uint16_t mask;
  bool on;

  bool matches(const std::string& handle) const { return name == "*" || name == handle; }
  std::uint16_t applied(std::uint16_t to) const {
    return on ? static_cast<std::uint16_t>(to | mask) : static_cast<std::uint16_t>(to & ~mask);
  }
};

struct TraceState {
  std::deque<TraceHandle> handles;  // stable addresses; handles are never destroyed
  std::unordered_map<std::string, TraceHandle*> byName;
  std::vector<LevelRule> rules;  // applied in order to each handle
  TraceSink* sink = nullptr;

  TraceState() {
    if (const char* env = std::getenv("STPTXRX_TRACE")) {
      if (!parse(env, rules)) {
        std::fprintf(stderr, "STPTXRX_TRACE: cannot parse \"%s\"; tracing stays off\n", env);
        rules.clear();
      } else {
        // Handles are made on first use, so a name no handle takes is known only at the end.
        std::atexit(warnUnusedNames);
      }
    }
  }

  // At exit: each name of the environment's setting that no handle took, once.
  static void warnUnusedNames();

  std::uint16_t maskFor(const std::string& name) const {
    std::uint16_t mask = 0;
    for (const LevelRule& r : rules) {
      if (r.matches(name)) mask = r.applied(mask);
    }
    return mask;
  }

  static bool parse(std::string_view settings, std::vector<LevelRule>& out) {
    std::vector<LevelRule> parsed;
    while (!settings.empty()) {
      std::size_t comma = settings.find(',');
      std::string_view item = settings.substr(0, comma);
      settings = comma == std::string_view::npos ? std::string_view() : settings.substr(comma + 1);
      while (!item.empty() && item.front() == ' ') item.remove_prefix(1);
      while (!item.empty() && item.back() == ' ') item.remove_suffix(1);
      if (item.empty()) continue;
      std::size_t slash = item.find('/');
      std::string_view name = item.substr(0, slash);
      std::string_view levels = slash == std::string_view::npos ? std::string_view() : item.substr(slash + 1);
      if (name.empty()) return false;
      std::uint16_t mask;
      if (!traceLevelMaskOf(levels, mask)) return false;
      bool off = levels == "-";
      parsed.push_back(LevelRule{std::string(name), off ? std::uint16_t(0x3ff) : mask, !off});
    }
    out.insert(out.end(), parsed.begin(), parsed.end());
    return true;
  }
};

TraceState& state() {
  static TraceState* s = new TraceState;  // never destroyed: traces may run from static destructors
  return *s;
}

void TraceState::warnUnusedNames() {
  const TraceState& s = state();
  for (std::size_t i = 0; i < s.rules.size(); ++i) {
    const std::string& name = s.rules[i].name;
    bool earlier = false;
    for (std::size_t j = 0; j < i && !earlier; ++j) earlier = s.rules[j].name == name;
    if (name == "*" || earlier || s.byName.count(name) != 0) continue;
    std::fprintf(stderr, "STPTXRX_TRACE: no trace handle \"%s\" was used; its setting did nothing\n",
                 name.c_str());
  }
}

class StderrSink : public TraceSink {
 public:
  void write(const TraceRecord& r) override {
    std::fprintf(stderr, "%.*s/%d %.*s:%d %.*s: %.*s\n", static_cast<int>(r.handle.size()), r.handle.data(),
                 r.level, static_cast<int>(r.file.size()), r.file.data(), r.line,
                 static_cast<int>(r.function.size()), r.function.data(), static_cast<int>(r.text.size()),
                 r.text.data());
  }
};

// "…/src/Stp/StpTxStatusSyncer.cpp" -> "Stp/StpTxStatusSyncer".
std::string_view sourceName(std::string_view file) {
  for (std::string_view root : {std::string_view("/src/"), std::string_view("/include/stptxrx/")}) {
    std::size_t at = file.rfind(root);
    if (at != std::string_view::npos) {
      file.remove_prefix(at + root.size());
      break;
    }
  }
  std::size_t dot = file.rfind('.');
  if (dot != std::string_view::npos && file.find('/', dot) == std::string_view::npos) file = file.substr(0, dot);
  return file;
}

}  // namespace

bool traceLevelMaskOf(std::string_view levels, std::uint16_t& mask) {
  if (levels.empty()) {
    mask = 0x3ff;
    return true;
  }
  if (levels == "-") {
    mask = 0;
    return true;
  }
  auto number = [](std::string_view t, int& v) {
    auto [p, ec] = std::from_chars(t.data(), t.data() + t.size(), v);
    return ec == std::errc() && p == t.data() + t.size() && v >= 0 && v <= 9;
  };
  int lo, hi;
  std::size_t dash = levels.find('-');
  if (dash == std::string_view::npos) {
    if (!number(levels, lo)) return false;
    hi = lo;
  } else if (!number(levels.substr(0, dash), lo) || !number(levels.substr(dash + 1), hi) || lo > hi) {
    return false;
  }
  mask = 0;
  for (int l = lo; l <= hi; ++l) mask = static_cast<std::uint16_t>(mask | (1u << l));
  return true;
}

TraceHandle* traceHandleIs(const char* name) {
  TraceState& s = state();
  auto it = s.byName.find(name);
  if (it != s.byName.end()) return it->second;
  TraceHandle* h = &s.handles.emplace_back(name);
  h->levelsIs(s.maskFor(h->name()));
  s.byName.emplace(h->name(), h);
  return h;
}

bool traceLevelsIs(std::string_view settings) {
  TraceState& s = state();
  std::vector<LevelRule> rules;
  if (!TraceState::parse(settings, rules)) return false;
  s.rules.insert(s.rules.end(), rules.begin(), rules.end());
  // Existing handles get only the new items, on top of their current levels: levels set through the
  // API on other handles (or on other levels) stay as they are.
  for (TraceHandle& h : s.handles) {
    std::uint16_t mask = h.levels();
    for (const LevelRule& r : rules) {
      if (r.matches(h.name())) mask = r.applied(mask);
    }
    h.levelsIs(mask);
  }
  return true;
}

void traceSinkIs(TraceSink* sink) { state().sink = sink; }

TraceSink* traceSink() { return state().sink; }

void traceHandlesForEach(const std::function<void(TraceHandle&)>& visit) {
  for (TraceHandle& h : state().handles) visit(h);
}

void TraceHandle::emit(int level, const char* file, int line, const char* function, std::string_view text) const {
  static StderrSink stderrSink;
  TraceSink* sink = state().sink ? state().sink : &stderrSink;
  sink->write(TraceRecord{name_, level, sourceName(file), line, function, text});
}

void CapturingTraceSink::write(const TraceRecord& r) {
  lines_.push_back(Line{std::string(r.handle), r.level, std::string(r.file), std::string(r.function),
                        std::string(r.text), r.line});
}

std::vector<std::string> CapturingTraceSink::texts() const {
  std::vector<std::string> out;
  out.reserve(lines_.size());
  for (const Line& l : lines_) out.push_back(l.text);
  return out;
}

}  // namespace Zek
