// Packets: head data on the shared buffer, the recycling pool, the live limit and reference counting.
#include <stptxrx/net/Pkt.h>

#include "support/AllocCounter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <numeric>
#include <thread>
#include <vector>

namespace Nelk {
namespace {

void fill(std::uint8_t* p, std::size_t n, std::uint8_t first) {
  for (std::size_t i = 0; i < n; ++i) p[i] = static_cast<std::uint8_t>(first + i);
}

TEST(PktHeadDataTest, NewPacketIsEmptyWithDefaultHeadRoom) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  ASSERT_TRUE(p);
  EXPECT_EQ(p->size(), 0u);
  EXPECT_EQ(p->headRoom(), PktManager::defaultHeadRoom);
  EXPECT_GE(p->headRoom(), 21u + 36u);
  ASSERT_TRUE(p->buffer());
  EXPECT_EQ(p->data(), p->buffer()->bytes() + p->headRoom());
  EXPECT_EQ(p->manager(), &m);
}

TEST(PktHeadDataTest, PrependWithinHeadRoomStaysInTheBuffer) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  const PktBuffer* buffer = p->buffer().get();
  std::uint8_t* body = p->headDataIs(36);
  fill(body, 36, 100);
  std::uint8_t* frame = p->headDataIs(17);
  EXPECT_EQ(p->buffer().get(), buffer) << "no new buffer while the head room suffices";
  EXPECT_EQ(frame, p->data());
  EXPECT_EQ(frame + 17, body) << "the earlier data stays where it was";
  EXPECT_EQ(p->size(), 53u);
  EXPECT_EQ(p->headRoom(), PktManager::defaultHeadRoom - 53);
  EXPECT_EQ(body[0], 100);
  EXPECT_EQ(body[35], 135);
  EXPECT_EQ(p->headDataIs(0), frame);
  EXPECT_EQ(p->size(), 53u);
}

TEST(PktHeadDataTest, PrependExactlyTheHeadRoom) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  const PktBuffer* buffer = p->buffer().get();
  p->headDataIs(PktManager::defaultHeadRoom);
  EXPECT_EQ(p->buffer().get(), buffer);
  EXPECT_EQ(p->headRoom(), 0u);
  EXPECT_EQ(p->data(), p->buffer()->bytes());
}

TEST(PktHeadDataTest, PrependBeyondHeadRoomReplacesTheBufferAndKeepsTheData) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  fill(p->headDataIs(100), 100, 1);
  PktBuffer::Ptr old = p->buffer();  // another holder of the old buffer
  const std::size_t oldCapacity = old->capacity();
  const std::size_t headRoomBefore = p->headRoom();  // 28
  std::uint8_t* start = p->headDataIs(53);
  ASSERT_NE(p->buffer(), old);
  EXPECT_EQ(p->buffer()->capacity(), oldCapacity + 53);
  EXPECT_EQ(p->size(), 153u);
  EXPECT_EQ(start, p->data());
  EXPECT_EQ(p->headRoom(), headRoomBefore);
  for (std::size_t i = 0; i < 100; ++i) ASSERT_EQ(start[53 + i], static_cast<std::uint8_t>(1 + i)) << i;
  // The other holder's buffer is untouched.
  EXPECT_EQ(old->references(), 1u);
  EXPECT_EQ(old->bytes()[headRoomBefore], 1);
  EXPECT_EQ(old->bytes()[headRoomBefore + 99], 100);
}

TEST(PktHeadDataTest, PrependLargerThanTheWholeBufferOfAnEmptyPacket) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  std::uint8_t* start = p->headDataIs(1000);
  EXPECT_EQ(p->size(), 1000u);
  EXPECT_EQ(p->buffer()->capacity(), PktManager::defaultHeadRoom + 1000);
  EXPECT_EQ(start + 1000, p->buffer()->bytes() + p->buffer()->capacity());
  fill(start, 1000, 0);  // the whole window is writable (ASan)
}

TEST(PktPoolTest, ReleasedPacketsAreRecycledWithTheirBuffer) {
  PktManager m;
  Pkt* first;
  const PktBuffer* firstBuffer;
  {
    Pkt::Ptr p = m.newPkt();
    first = p.get();
    firstBuffer = p->buffer().get();
    p->headDataIs(53);
    EXPECT_EQ(m.liveCount(), 1u);
    EXPECT_EQ(m.pooledCount(), 0u);
  }
  EXPECT_EQ(m.liveCount(), 0u);
  EXPECT_EQ(m.pooledCount(), 1u);
  Pkt::Ptr again = m.newPkt();
  EXPECT_EQ(again.get(), first);
  EXPECT_EQ(again->buffer().get(), firstBuffer);
  EXPECT_EQ(again->size(), 0u) << "a recycled packet is empty";
  EXPECT_EQ(again->headRoom(), PktManager::defaultHeadRoom) << "with its full head room";
  EXPECT_EQ(m.pooledCount(), 0u);
}

TEST(PktPoolTest, WarmPoolAllocatesNothingPerPacket) {
  PktManager m;
  m.newPkt()->headDataIs(53);  // warm: one packet and its buffer exist
  Zek::test::AllocScope scope;
  for (int i = 0; i < 1000; ++i) {
    Pkt::Ptr p = m.newPkt();
    ASSERT_TRUE(p);
    fill(p->headDataIs(53), 53, 0);
  }
  EXPECT_EQ(scope.count(), 0u);
}

TEST(PktPoolTest, BufferStillHeldElsewhereIsNotRecycled) {
  PktManager m;
  PktBuffer::Ptr kept;
  {
    Pkt::Ptr p = m.newPkt();
    fill(p->headDataIs(4), 4, 7);
    kept = p->buffer();
  }
  Pkt::Ptr again = m.newPkt();
  EXPECT_NE(again->buffer(), kept);
  again->headDataIs(PktManager::defaultHeadRoom);
  fill(again->data(), again->size(), 0);
  EXPECT_EQ(kept->bytes()[PktManager::defaultHeadRoom - 4], 7) << "the kept buffer is not overwritten";
}

TEST(PktPoolTest, GrownBufferIsRecycledUpToTheBound) {
  PktManager m;
  {
    Pkt::Ptr p = m.newPkt();
    p->headDataIs(200);
  }
  Pkt::Ptr again = m.newPkt();
  EXPECT_EQ(again->buffer()->capacity(), PktManager::defaultHeadRoom + 200);
  EXPECT_EQ(again->headRoom(), again->buffer()->capacity());
  again->headDataIs(PktManager::maxPooledBufferSize);
  again = nullptr;
  Pkt::Ptr third = m.newPkt();
  EXPECT_EQ(third->buffer()->capacity(), PktManager::defaultHeadRoom) << "an oversized buffer is dropped";
}

TEST(PktPoolTest, PoolIsBounded) {
  PktManager m;
  m.pooledLimitIs(3);
  {
    std::vector<Pkt::Ptr> held;
    for (int i = 0; i < 5; ++i) held.push_back(m.newPkt());
    EXPECT_EQ(m.liveCount(), 5u);
  }
  EXPECT_EQ(m.liveCount(), 0u);
  EXPECT_EQ(m.pooledCount(), 3u);
  m.pooledLimitIs(1);
  EXPECT_EQ(m.pooledCount(), 1u);
  m.pooledLimitIs(0);
  m.newPkt();
  EXPECT_EQ(m.pooledCount(), 0u);
}

TEST(PktLiveLimitTest, NullWhenReachedAndAgainAfterARelease) {
  PktManager m;
  EXPECT_EQ(m.liveLimit(), 0u) << "unlimited by default";
  m.liveLimitIs(2);
  Pkt::Ptr a = m.newPkt();
  Pkt::Ptr b = m.newPkt();
  ASSERT_TRUE(a);
  ASSERT_TRUE(b);
  EXPECT_FALSE(m.newPkt());
  EXPECT_EQ(m.liveCount(), 2u) << "a refused packet is not counted";
  Pkt::Ptr copyOfA = a;
  a = nullptr;
  EXPECT_FALSE(m.newPkt()) << "a packet is live while any pointer holds it";
  copyOfA = nullptr;
  Pkt::Ptr c = m.newPkt();
  EXPECT_TRUE(c);
  EXPECT_FALSE(m.newPkt());
  m.liveLimitIs(1);
  b = nullptr;
  EXPECT_FALSE(m.newPkt()) << "lowered limit: still one live";
  m.liveLimitIs(0);
  EXPECT_TRUE(m.newPkt());
}

TEST(PktLiveLimitTest, LimitZeroAllowsManyPackets) {
  PktManager m;
  std::vector<Pkt::Ptr> held;
  for (int i = 0; i < 1000; ++i) held.push_back(m.newPkt());
  EXPECT_EQ(m.liveCount(), 1000u);
  for (const auto& p : held) ASSERT_TRUE(p);
}

TEST(PktGlobalManagerTest, IsOneProcessWideManager) {
  PktManager& g = globalPktManager();
  EXPECT_EQ(&g, &globalPktManager());
  const std::size_t before = g.liveCount();
  Pkt::Ptr p = g.newPkt();
  EXPECT_EQ(g.liveCount(), before + 1);
  EXPECT_EQ(p->manager(), &g);
}

class PktRefCountTest : public ::testing::TestWithParam<bool> {
 protected:
  void SetUp() override { Zek::threadSafePointers_ = GetParam(); }
  void TearDown() override { Zek::threadSafePointers_ = false; }
};

TEST_P(PktRefCountTest, PacketReturnsToThePoolExactlyOnceAtTheLastRelease) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  EXPECT_EQ(p->references(), 1u);
  {
    Pkt::Ptr copy = p;
    Zek::Ptr<const Pkt> view = copy;
    EXPECT_EQ(p->references(), 3u);
  }
  EXPECT_EQ(p->references(), 1u);
  EXPECT_EQ(m.pooledCount(), 0u);
  Pkt::Ptr moved = std::move(p);
  EXPECT_EQ(moved->references(), 1u);
  moved = nullptr;
  EXPECT_EQ(m.liveCount(), 0u);
  EXPECT_EQ(m.pooledCount(), 1u);
}

TEST_P(PktRefCountTest, BufferCountFollowsItsHolders) {
  PktManager m;
  Pkt::Ptr p = m.newPkt();
  EXPECT_EQ(p->buffer()->references(), 1u);
  PktBuffer::Ptr b = p->buffer();
  EXPECT_EQ(b->references(), 2u);
  p->headDataIs(PktManager::defaultHeadRoom + 1);  // replaced: the packet lets go of b
  EXPECT_EQ(b->references(), 1u);
}

INSTANTIATE_TEST_SUITE_P(BothPointerModes, PktRefCountTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "ThreadSafe" : "Plain"; });

// With thread-safe pointers, packets may be copied and released on several threads at once.
TEST(PktThreadSafeTest, ConcurrentCopiesAndReleasesKeepCountsExact) {
  Zek::threadSafePointers_ = true;
  {
    PktManager m;
    constexpr int threads = 4;
    constexpr int rounds = 20000;
    std::vector<Pkt::Ptr> shared;
    for (int i = 0; i < 8; ++i) shared.push_back(m.newPkt());
    std::atomic<bool> go{false};
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t) {
      workers.emplace_back([&, t] {
        while (!go.load()) {
        }
        for (int r = 0; r < rounds; ++r) {
          Pkt::Ptr copy = shared[static_cast<std::size_t>((r + t) % 8)];
          Pkt::Ptr own = m.newPkt();  // taken from and returned to the pool concurrently
          own->headDataIs(53)[0] = static_cast<std::uint8_t>(r);
        }
      });
    }
    go = true;
    for (auto& w : workers) w.join();
    for (const auto& p : shared) EXPECT_EQ(p->references(), 1u);
    EXPECT_EQ(m.liveCount(), 8u);
    shared.clear();
    EXPECT_EQ(m.liveCount(), 0u);
    EXPECT_LE(m.pooledCount(), 8u + threads);
  }
  Zek::threadSafePointers_ = false;
}

using PktDeathTest = ::testing::Test;

TEST(PktDeathTest, ManagerDestroyedWithLivePacketsAborts) {
  EXPECT_DEATH(
      {
        auto* m = new PktManager;
        Pkt::Ptr p = m->newPkt();
        delete m;
      },
      "Assertion `live_ == 0' failed");
}

}  // namespace
}  // namespace Nelk
