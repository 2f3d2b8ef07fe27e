#pragma once
// Live-object counts of the registered runtime types, to prove that releasing a syncer or a subtree
// leaves nothing behind.
#include <stptxrx/runtime/TypeRegistry.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>

namespace Zek::test {

/// A snapshot of the live count of every registered type (Zek::typeNodesForEach).
///
///   Zek::test::LiveCounts before;
///   { ... build and release a syncer ... }
///   EXPECT_TRUE(before.unchanged());
class LiveCounts {
 public:
  LiveCounts() : counts_(current()) {}  ///< takes the snapshot

  /// Every registered type has its snapshot count again (types registered later: 0); a failure names
  /// every offending type with its count.
  ::testing::AssertionResult unchanged() const {
    std::string offenders;
    for (const auto& [name, live] : current()) {
      const std::int64_t want = counts_.contains(name) ? counts_.at(name) : 0;
      if (live != want) offenders += "\n  " + name + ": " + std::to_string(live) + " live, expected " + std::to_string(want);
    }
    if (offenders.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "live object counts differ:" << offenders;
  }

 private:
  static std::map<std::string, std::int64_t> current() {
    std::map<std::string, std::int64_t> counts;
    typeNodesForEach([&](const TypeNode& n) { counts[n.name()] = n.liveCount(); });
    return counts;
  }
  std::map<std::string, std::int64_t> counts_;
};

}  // namespace Zek::test
