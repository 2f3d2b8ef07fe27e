#include "support/LiveCounts.h"

#include <stptxrx/runtime/TypeRegistry.h>

namespace Zek::test {

namespace {
std::map<std::string, std::int64_t> currentCounts() {
  std::map<std::string, std::int64_t> counts;
  typeNodesForEach([&](const TypeNode& n) { counts[n.name()] = n.liveCount(); });
  return counts;
}
}  // namespace

LiveCounts::LiveCounts() : counts_(currentCounts()) {}

::testing::AssertionResult LiveCounts::unchanged() const {
  std::string offenders;
  for (const auto& [name, live] : currentCounts()) {
    const auto it = counts_.find(name);
    const std::int64_t want = it == counts_.end() ? 0 : it->second;
    if (live != want) offenders += "\n  " + name + ": " + std::to_string(live) + " live, expected " + std::to_string(want);
  }
  if (offenders.empty()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "live object counts differ:" << offenders;
}

}  // namespace Zek::test
