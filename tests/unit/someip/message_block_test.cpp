#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/driver/someip/message_block.h"

namespace lumo::driver::someip {
namespace {

using Clock = std::chrono::steady_clock;

class MessageBlockTest : public ::testing::Test {
protected:
    // Blocks that earlier tests left are gone.
    void SetUp() override { ReleaseIdleBlocks(Clock::now() + std::chrono::hours(1)); }
    void TearDown() override { SetUp(); }
};

bool AllZero(const unsigned char* block, std::size_t size) {
    return std::all_of(block, block + size, [](unsigned char b) { return b == 0; });
}

TEST_F(MessageBlockTest, ALargeBlockIsKeptAndReusedZeroedWhenAskedAndASmallOneIsNot) {
    constexpr std::size_t kSize = std::size_t{3} * 1024 * 1024;
    unsigned char* first = AllocateBlock(kSize, true);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(AllZero(first, kSize));
    std::memset(first, 0xAB, kSize);
    FreeBlock(first);
    EXPECT_EQ(KeptLargeBlocks().count, 1U);

    // A little larger still fits the room the block was mapped with.
    unsigned char* again = AllocateBlock(kSize + 4096, true);
    EXPECT_EQ(again, first);
    EXPECT_TRUE(AllZero(again, kSize + 4096));
    EXPECT_EQ(KeptLargeBlocks().count, 0U);
    std::memset(again, 0xCD, kSize);
    FreeBlock(again);
    unsigned char* unzeroed = AllocateBlock(kSize, false);
    EXPECT_EQ(unzeroed, first);
    EXPECT_EQ(unzeroed[kSize - 1], 0xCD);  // not zeroed: the writer fills it
    FreeBlock(unzeroed);

    unsigned char* small = AllocateBlock(kLargeBlockBytes - 1, true);
    ASSERT_NE(small, nullptr);
    EXPECT_TRUE(AllZero(small, kLargeBlockBytes - 1));
    FreeBlock(small);
    FreeBlock(nullptr);
    EXPECT_EQ(KeptLargeBlocks().count, 1U);
}

TEST_F(MessageBlockTest, AtMostAFewBlocksAreKeptAndIdleOnesGoBack) {
    std::vector<unsigned char*> blocks;
    for (std::size_t i = 0; i < kMaxKeptLargeBlocks + 2; ++i) {
        blocks.push_back(AllocateBlock(kLargeBlockBytes, true));
        ASSERT_NE(blocks.back(), nullptr);
    }
    for (unsigned char* block : blocks) {
        FreeBlock(block);
    }
    const KeptBlocks kept = KeptLargeBlocks();
    EXPECT_EQ(kept.count, kMaxKeptLargeBlocks);
    EXPECT_GE(kept.bytes, kMaxKeptLargeBlocks * kLargeBlockBytes);

    ReleaseIdleBlocks(Clock::now());
    EXPECT_EQ(KeptLargeBlocks().count, kMaxKeptLargeBlocks);  // just used
    ReleaseIdleBlocks(Clock::now() + kLargeBlockKeep);
    EXPECT_EQ(KeptLargeBlocks().count, 0U);
    EXPECT_EQ(KeptLargeBlocks().bytes, 0U);
}

#if defined(__SANITIZE_ADDRESS__)
TEST_F(MessageBlockTest, AddressSanitizerSeesPastTheSizeAndAfterTheFreeOfALargeBlock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    volatile unsigned char* block = AllocateBlock(kLargeBlockBytes, false);
    block[kLargeBlockBytes - 1] = 1;
    EXPECT_DEATH(block[kLargeBlockBytes + 8] = 1, "use-after-poison");
    FreeBlock(const_cast<unsigned char*>(block));
    EXPECT_DEATH(block[0] = 1, "use-after-poison");
}
#endif

}  // namespace
}  // namespace lumo::driver::someip
