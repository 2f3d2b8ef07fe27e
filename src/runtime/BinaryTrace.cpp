// The binary trace ring and its call-site registry.
#include <stptxrx/runtime/BinaryTrace.h>

#include <chrono>
#include <deque>
#include <ostream>
#include <string>

namespace Zek::BinaryTrace {

bool enabled_ = true;
RingState ring_{};

namespace {

struct Registry {
  std::deque<std::string> messages;  // index = message id
};

Registry& registry() {
  static Registry* r = new Registry;  // never destroyed: handlers may run from static destructors
  return *r;
}

// True when pretty[i] ('<', '>', '(' or ')') belongs to an operator's name ("operator<", "operator->",
// "operator<=>", "operator()") rather than to template arguments or parameters.
bool inOperatorName(std::string_view pretty, std::size_t i) {
  std::size_t j = i;
  while (j > 0 && std::string_view("<>=-!()").find(pretty[j - 1]) != std::string_view::npos && i - j < 3) --j;
  if (j < 8 || pretty.substr(j - 8, 8) != "operator") return false;
  // "operator()" names a call operator; a '(' after it opens the parameters.
  std::string_view symbol = pretty.substr(j, i - j + 1);
  if (pretty[i] == '(' || pretty[i] == ')') return symbol == "(" || symbol == "()";
  return symbol.find('(') == std::string_view::npos;
}

// "void StpTxRx::IntxInfoSyncer::handleMstiN(Stp::BridgeSystemId)" -> "StpTxRx::IntxInfoSyncer::handleMstiN".
// Template arguments stay ("Ns::Box<T>::put"); the return type, parameters and qualifiers go. Both
// spellings of the anonymous namespace ("{anonymous}", "(anonymous namespace)") are kept whole.
std::string qualifiedName(std::string_view pretty) {
  static constexpr std::string_view anonymous = "(anonymous namespace)";
  int depth = 0;
  std::size_t open = std::string_view::npos;
  for (std::size_t i = 0; i < pretty.size(); ++i) {
    char c = pretty[i];
    if (pretty.substr(i, anonymous.size()) == anonymous) {
      i += anonymous.size() - 1;
      continue;
    }
    if ((c == '<' || c == '>' || c == '(') && inOperatorName(pretty, i)) continue;
    if (c == '<') ++depth;
    if (c == '>') --depth;
    if (c == '(' && depth == 0) {
      open = i;
      break;
    }
  }
  std::string_view head = pretty.substr(0, open);
  depth = 0;
  std::size_t start = 0;
  for (std::size_t i = head.size(); i-- > 0;) {
    char c = head[i];
    if ((c == '>' || c == '<' || c == '(' || c == ')') && inOperatorName(head, i)) continue;
    if (c == '>' || c == ')') ++depth;
    if (c == '<' || c == '(') --depth;
    if (c == ' ' && depth == 0) {
      start = i + 1;
      break;
    }
  }
  // Some compilers attach the return type's '&' or '*' to the name ("W &W::operator<<(int)").
  while (start < head.size() && (head[start] == '&' || head[start] == '*')) ++start;
  return std::string(head.substr(start));
}

}  // namespace

std::uint64_t nowSteady() noexcept {
  return static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
}

std::uint32_t callSiteIs(const char* prettyFunction, const char*, int line) {
  Registry& r = registry();
  r.messages.push_back(qualifiedName(prettyFunction) + "():" + std::to_string(line));
  return static_cast<std::uint32_t>(r.messages.size() - 1);
}

const std::string& messageText(std::uint32_t id) {
  static const std::string none;
  Registry& r = registry();
  return id < r.messages.size() ? r.messages[id] : none;
}

std::uint64_t recordCount() noexcept { return ring_.written; }

void clear() noexcept { ring_.written = 0; }

bool recent(std::uint32_t back, Record& out) noexcept {
  const RingState& r = ring_;
  if (back >= r.written || back >= ringSize) return false;
  out = r.records[(r.written - 1 - back) & (ringSize - 1)];
  return true;
}

void dump(std::ostream& os) {
  const RingState& r = ring_;
  std::uint64_t n = r.written < ringSize ? r.written : ringSize;
  for (std::uint64_t i = r.written - n; i < r.written; ++i) {
    const Record& rec = r.records[i & (ringSize - 1)];
    os << messageText(rec.message) << " start=" << rec.start << " elapsed=" << rec.elapsed << '\n';
  }
}

}  // namespace Zek::BinaryTrace
