// The shared test helpers: every other test relies on them, so their restoring and counting is checked.
#include "TestEntities.h"
#include "support/AllocCounter.h"
#include "support/LiveCounts.h"
#include "support/RecordingReactor.h"
#include "support/TraceCapture.h"

#include <gtest/gtest.h>
#include <gtest/gtest-spi.h>
#include <stptxrx/runtime/TypeRegistry.h>

#include <memory>

namespace Zek::test {
namespace {

TEST(TraceCaptureTest, CapturesWhileAliveAndRestoresLevelsAndSink) {
  TraceHandle* h = traceHandleIs("SupportTestHandle");
  h->levelsIs(1u << 4);
  CapturingTraceSink outer;
  traceSinkIs(&outer);
  {
    TraceCapture cap({"SupportTestHandle/8", "SupportTestLater/2-3"});
    EXPECT_TRUE(h->enabled(8));
    EXPECT_TRUE(traceHandleIs("SupportTestLater")->enabled(3));
    ZEK_TRACE(h, 8, "eight " << 8);
    ZEK_TRACE(h, 4, "four");
    ASSERT_EQ(cap.lines().size(), 2u);
    EXPECT_EQ(cap.texts(), (std::vector<std::string>{"eight 8", "four"}));
    EXPECT_EQ(cap.texts(4), (std::vector<std::string>{"four"}));
    EXPECT_EQ(cap.lines()[0].handle, "SupportTestHandle");
    EXPECT_EQ(cap.lines()[0].level, 8);
    cap.clear();
    EXPECT_TRUE(cap.lines().empty());
  }
  EXPECT_EQ(h->levels(), 1u << 4) << "levels before the capture come back";
  EXPECT_EQ(traceHandleIs("SupportTestLater")->levels(), 0u) << "handles named by the capture go off";
  EXPECT_EQ(traceSink(), &outer) << "the previous sink comes back";
  ZEK_TRACE(h, 4, "after");
  EXPECT_EQ(outer.texts(), (std::vector<std::string>{"after"}));
  traceSinkIs(nullptr);
  h->levelsIs(0);
}

TEST(TraceCaptureTest, WildcardDoesNotOutliveTheCapture) {
  { TraceCapture cap({"*/5"}); }
  EXPECT_EQ(traceHandleIs("SupportTestCreatedAfterWildcard")->levels(), 0u);
}

TEST(TraceCaptureTest, MalformedSpecFailsTheTest) {
  EXPECT_NONFATAL_FAILURE({ TraceCapture cap({"SupportTestHandle/12"}); }, "malformed trace level spec");
}

TEST(RecordingReactorTest, RecordsIdsAndDecodedKeysInOrderUntilReleased) {
  Ptr<Shelf> shelf(new Shelf);
  auto rec = RecordingReactor::RecordingReactorIs(shelf, [](AttributeId id, const void* key) {
    return id == Shelf::binId ? std::to_string(*static_cast<const int*>(key))
                              : static_cast<const Name*>(key)->str();
  });
  EXPECT_TRUE(rec->isRegisteredNotifiee());
  EXPECT_TRUE(rec->hasNotificationActive());
  shelf->labelIs("a");
  shelf->itemIs("x");
  shelf->binIs(7);
  EXPECT_EQ(rec->ids(), (std::vector<AttributeId>{Shelf::labelId, Shelf::itemId, Shelf::binId}));
  EXPECT_EQ(rec->keys(), (std::vector<std::string>{"", "x", "7"}));
  EXPECT_FALSE(rec->notifications()[0].hasKey);
  EXPECT_TRUE(rec->notifications()[1].hasKey);
  EXPECT_EQ(rec->count(Shelf::binId), 1u);
  rec->clear();
  EXPECT_EQ(rec->count(), 0u);

  auto typed = RecordingReactor::RecordingReactorIs(shelf, RecordingReactor::keyAs<Name>());
  shelf->itemIs("y");
  EXPECT_EQ(typed->keys(), (std::vector<std::string>{"y"}));

  ASSERT_EQ(shelf->notifieeList()->size(), 2u);
  rec = nullptr;
  typed = nullptr;
  EXPECT_TRUE(shelf->notifieeList()->empty()) << "a released recorder unregisters";
}

TEST(AllocCounterTest, CountsAllocationsInsideTheLibraryAndTheTest) {
  static std::unique_ptr<int> escaped;  // kept beyond the test: the allocation cannot be elided
  AllocScope scope;
  escaped = std::make_unique<int>(1);
  EXPECT_EQ(scope.count(), 1u);
  Ptr<Shelf> shelf(new Shelf);  // allocated here
  const std::string label = "a label long enough to need the heap";
  shelf->labelIs(label);  // copied into a std::string inside the library
  EXPECT_GE(scope.count(), 3u);
  scope.restart();
  shelf->labelIs(label);  // equal: no write, no allocation
  EXPECT_EQ(scope.count(), 0u);
}

TEST(LiveCountsTest, NamesTheTypesThatDidNotReturn) {
  TypeNode* node = typeNodeIs("Zek::test::SupportCounted");
  LiveCounts before;
  EXPECT_TRUE(before.unchanged());
  node->trackAllocation();
  auto result = before.unchanged();
  EXPECT_FALSE(result);
  EXPECT_NE(std::string(result.message()).find("Zek::test::SupportCounted: 1 live, expected 0"),
            std::string::npos)
      << result.message();
  EXPECT_EQ(LiveCounts::now("Zek::test::SupportCounted"), 1);
  EXPECT_FALSE(LiveCounts::allZero());
  node->trackDeallocation();
  EXPECT_TRUE(before.unchanged());
}

}  // namespace
}  // namespace Zek::test
