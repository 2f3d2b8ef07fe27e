#include <stptxrx/runtime/BlockPool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <set>
#include <vector>

namespace {

using Zek::BlockPool;

// A seeded model: random allocate/free steps over several chunks; every live block is distinct, aligned,
// keeps what was written into it until it is freed, and the pool's live count follows the model's.
TEST(BlockPool, RandomAllocateAndFreeKeepsBlocksDistinctAlignedAndIntact) {
  struct Shape {
    std::size_t size, alignment;
  };
  for (const Shape shape : {Shape{24, 8}, Shape{40, 16}, Shape{8, 8}, Shape{100, 4}}) {
    BlockPool pool(shape.size, shape.alignment);
    EXPECT_GE(pool.blockSize(), shape.size);
    EXPECT_EQ(pool.blockSize() % shape.alignment, 0u);
    const unsigned seed = 0x5eedu + static_cast<unsigned>(shape.size);
    std::mt19937 rng(seed);
    struct Live {
      void* p;
      unsigned char tag;
    };
    std::vector<Live> live;
    for (int step = 0; step < 3000; ++step) {
      // Grows past several chunks, then drains to zero once midway and at the end.
      const bool drain = step == 1500 || step == 2999;
      const auto intact = [&](const Live& l) {
        auto* bytes = static_cast<unsigned char*>(l.p);
        return std::all_of(bytes, bytes + shape.size, [&](unsigned char b) { return b == l.tag; });
      };
      if (drain) {
        std::set<void*> distinct;
        for (const Live& l : live) {
          ASSERT_TRUE(intact(l) && distinct.insert(l.p).second) << "seed " << seed << " step " << step;
        }
        for (const Live& l : live) pool.deallocate(l.p);
        live.clear();
      } else if (live.empty() || rng() % 3 != 0) {
        void* p = pool.allocate();
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(p) % shape.alignment, 0u) << "seed " << seed;
        const auto tag = static_cast<unsigned char>(rng());
        std::memset(p, tag, shape.size);
        live.push_back({p, tag});
      } else {
        const std::size_t i = rng() % live.size();
        ASSERT_TRUE(intact(live[i])) << "seed " << seed << " step " << step;
        pool.deallocate(live[i].p);
        live.erase(live.begin() + static_cast<std::ptrdiff_t>(i));
      }
      if (BlockPool::pooled) {
        ASSERT_EQ(pool.live(), live.size()) << "seed " << seed << " step " << step;
      }
    }
  }
}

TEST(BlockPool, LiveBlocksKeepTheirContentAcrossOtherFrees) {
  BlockPool pool(32, 8);
  std::vector<void*> blocks;
  for (int i = 0; i < 600; ++i) {  // more than two chunks
    blocks.push_back(pool.allocate());
    std::memset(blocks.back(), i & 0xff, 32);
  }
  EXPECT_EQ(std::set<void*>(blocks.begin(), blocks.end()).size(), blocks.size());
  for (std::size_t i = 0; i < blocks.size(); i += 2) pool.deallocate(blocks[i]);
  // Re-used blocks never overlap the odd ones that stayed.
  std::vector<void*> again;
  for (int i = 0; i < 300; ++i) again.push_back(pool.allocate());
  for (void* p : again) std::memset(p, 0xee, 32);
  for (std::size_t i = 1; i < blocks.size(); i += 2) {
    auto* bytes = static_cast<unsigned char*>(blocks[i]);
    EXPECT_TRUE(std::all_of(bytes, bytes + 32, [&](unsigned char b) { return b == (i & 0xff); })) << i;
  }
  for (std::size_t i = 1; i < blocks.size(); i += 2) pool.deallocate(blocks[i]);
  for (void* p : again) pool.deallocate(p);
  pool.deallocate(nullptr);
  EXPECT_EQ(pool.live(), 0u);
}

}  // namespace
