#include "support/LiveCounts.h"

#include <stptxrx/runtime/TypeRegistry.h>

namespace Zek::test {

namespace {
std::map<std::string, std::int64_t> currentCounts() {
  std::map<std::string, std::int64_t> counts;
  typeNodesForEach([&](const TypeNode& n) { counts[n.name()] = n.liveCount(); });
  return counts;
}

::testing::AssertionResult compare(const std::map<std::string, std::int64_t>& expected, bool zero) {
  std::string offenders;
  for (const auto& [name, live] : currentCounts()) {
    auto it = expected.find(name);
    std::int64_t want = zero || it == expected.end() ? 0 : it->second;
    if (live != want) {
      offenders += "\n  " + name + ": " + std::to_string(live) + " live, expected " + std::to_string(want);
    }
  }
  if (offenders.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "live object counts differ:" << offenders;
}
}  // namespace

LiveCounts::LiveCounts() : counts_(currentCounts()) {}

std::int64_t LiveCounts::at(const std::string& typeName) const {
  auto it = counts_.find(typeName);
  return it == counts_.end() ? 0 : it->second;
}

std::int64_t LiveCounts::now(const std::string& typeName) {
  const TypeNode* n = typeNode(typeName.c_str());
  return n ? n->liveCount() : 0;
}

::testing::AssertionResult LiveCounts::unchanged() const { return compare(counts_, false); }

::testing::AssertionResult LiveCounts::allZero() { return compare({}, true); }

}  // namespace Zek::test
