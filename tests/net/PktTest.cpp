// Packets: head data on the shared buffer, the recycling pool, the live limit and reference counting.
#include <stptxrx/net/Pkt.h>

#include "support/AllocCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>
#include <utility>
#include <vector>

namespace Nelk {
namespace {

constexpr std::size_t room = PktManager::defaultHeadRoom;

/// `n` packets of `m`, held.
std::vector<Pkt::Ptr> taken(PktManager& m, std::size_t n) {
  std::vector<Pkt::Ptr> held(n);
  for (auto& p : held) p = m.newPkt();
  return held;
}

TEST(PktHeadDataTest, PrependStaysInTheBufferWhileTheHeadRoomSufficesAndMovesToALargerOneBeyond) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  EXPECT_TRUE(p->size() == 0 && p->data() == p->buffer()->bytes() + room) << "empty, with the default head room";
  const PktBuffer* buffer = p->buffer().get();
  std::uint8_t* body = p->headDataIs(36);
  std::iota(body, body + 36, std::uint8_t{100});
  std::uint8_t* frame = p->headDataIs(17);
  EXPECT_TRUE(frame == p->data() && frame + 17 == body) << "the earlier data stays where it was";
  EXPECT_EQ(p->headDataIs(0), frame);
  p->headDataIs(room - 53);
  EXPECT_TRUE(p->size() == room && p->headRoom() == 0 && p->buffer().get() == buffer);
  // One octet more: a buffer of the old capacity plus the request, the data copied behind the new head, the
  // head room there was before, and the old buffer untouched for its other holders.
  PktBuffer::Ptr old = p->buffer();
  std::uint8_t* start = p->headDataIs(53);
  EXPECT_TRUE(p->buffer()->capacity() == room + 53 && p->size() == room + 53 && start == p->data() && !p->headRoom());
  for (std::size_t i = 0; i < 36; ++i) ASSERT_EQ(start[53 + room - 36 + i], 100 + i) << i;
  EXPECT_TRUE(old->references() == 1 && old->bytes()[room - 36] == 100);
  Pkt::Ptr empty = m.newPkt();
  std::fill_n(empty->headDataIs(1000), 1000, 0);  // the whole window is writable (ASan)
  EXPECT_TRUE(empty->headRoom() == room && empty->data() + 1000 == empty->buffer()->bytes() + room + 1000);
}

// A warm pool allocates nothing; a buffer held elsewhere or grown past the bound is not recycled; the pool is
// bounded; the manager frees its pool when it goes.
TEST(PktPoolTest, RecyclesEmptyPacketsWithTheirOwnBuffersWithinItsBounds) {
  Zek::test::countBytesIs(true);
  const std::int64_t before = Zek::test::liveBytes();
  {
    PktManager m;
    const Pkt* first = m.newPkt().get();  // released at once
    const PktBuffer* buffer = m.newPkt()->buffer().get();
    Zek::test::AllocScope scope;
    for (int i = 0; i < 1000; ++i) {
      Pkt::Ptr p = m.newPkt();
      ASSERT_TRUE(p.get() == first && p->buffer().get() == buffer && p->data() == buffer->bytes() + room);
      std::fill_n(p->headDataIs(53), 53, 0);
    }
    EXPECT_TRUE(scope.count() == 0 && m.pooledCount() == 1u);
    const PktBuffer::Ptr kept = m.newPkt()->buffer();  // the packet goes back to the pool, its buffer held here
    Pkt::Ptr p = m.newPkt();
    EXPECT_NE(p->buffer(), kept);
    p->headDataIs(room + 200);
    p = nullptr;
    p = m.newPkt();
    EXPECT_EQ(p->headRoom(), 2 * room + 200) << "a grown buffer within the bound is recycled";
    p->headDataIs(PktManager::maxPooledBufferSize);
    p = nullptr;
    EXPECT_EQ(m.newPkt()->headRoom(), room) << "an oversized buffer is dropped";
    m.pooledLimitIs(3);
    taken(m, 5);
    EXPECT_EQ(m.pooledCount(), 3u);
    m.pooledLimitIs(1);
    EXPECT_EQ(m.pooledCount(), 1u);
    const auto held = taken(m, 3);
  }
  EXPECT_EQ(Zek::test::liveBytes(), before);
  Zek::test::countBytesIs(false);
}

TEST(PktLiveLimitTest, NoPacketWhileTheLimitIsReached) {
  PktManager m;
  m.liveLimitIs(2);
  Pkt::Ptr a = m.newPkt(), b = m.newPkt();
  ASSERT_TRUE(a && b && !m.newPkt() && m.liveCount() == 2u) << "refused at the limit, and not counted";
  Pkt::Ptr copyOfA = std::exchange(a, nullptr);
  EXPECT_FALSE(m.newPkt()) << "a packet is live while any pointer holds it";
  copyOfA = nullptr;
  EXPECT_TRUE(m.newPkt());
  m.liveLimitIs(1);
  EXPECT_FALSE(m.newPkt()) << "lowered below the live count: still refused";
  m.liveLimitIs(0);
  EXPECT_TRUE(taken(m, 1000).back()) << "0: no limit";
}

struct PktRefCountTest : ::testing::TestWithParam<bool> {
  void SetUp() override { Zek::threadSafePointers_ = GetParam(); }
  void TearDown() override { Zek::threadSafePointers_ = false; }
};

TEST_P(PktRefCountTest, PacketReturnsToThePoolExactlyOnceAtTheLastRelease) {
  PktManager m;
  std::vector<Pkt::Ptr> shared = taken(m, 8);
  std::vector<std::thread> workers;  // packets copied, taken and released on several threads at once
  for (int t = 0; Zek::threadSafePointers_ && t < 4; ++t) {
    workers.emplace_back([&, t] {
      for (int r = 0; r < 20000; ++r) {
        Pkt::Ptr copy = shared[static_cast<std::size_t>((r + t) % 8)];
        m.newPkt()->headDataIs(53)[0] = static_cast<std::uint8_t>(r);
      }
    });
  }
  for (auto& w : workers) w.join();
  for (const auto& p : shared) EXPECT_EQ(p->references(), 1u);
  const std::size_t pooledBefore = m.pooledCount();
  EXPECT_EQ(m.liveCount(), 8u);
  shared.clear();
  EXPECT_TRUE(m.liveCount() == 0 && m.pooledCount() == pooledBefore + 8);
}

INSTANTIATE_TEST_SUITE_P(BothPointerModes, PktRefCountTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

TEST(PktDeathTest, ManagerDestroyedWithLivePacketsAborts) {
  EXPECT_DEATH(([] { Pkt::Ptr p = (new PktManager)->newPkt(); delete p->manager(); }()), "Assertion `live_ == 0' failed");
}

}  // namespace
}  // namespace Nelk
