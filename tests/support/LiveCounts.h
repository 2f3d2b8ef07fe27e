#pragma once
// Live-object counts of the registered runtime types, to prove that releasing a syncer or a subtree
// leaves nothing behind.
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
  LiveCounts();  ///< takes the snapshot

  /// Every registered type has its snapshot count again (types registered later: 0); a failure names
  /// every offending type with its count.
  ::testing::AssertionResult unchanged() const;

 private:
  std::map<std::string, std::int64_t> counts_;
};

}  // namespace Zek::test
