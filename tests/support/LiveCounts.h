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
///   EXPECT_TRUE(Zek::test::LiveCounts::allZero());
///
/// The checks are gtest assertion results naming every offending type with its count.
class LiveCounts {
 public:
  LiveCounts();  ///< takes the snapshot

  /// The live count of `typeName` in the snapshot (0 when it was not registered then).
  std::int64_t at(const std::string& typeName) const;
  /// The live count of `typeName` now (0 when not registered).
  static std::int64_t now(const std::string& typeName);

  /// Every registered type has its snapshot count again (types registered later: 0).
  ::testing::AssertionResult unchanged() const;
  /// Every registered type has no live object.
  static ::testing::AssertionResult allZero();

 private:
  std::map<std::string, std::int64_t> counts_;
};

}  // namespace Zek::test
