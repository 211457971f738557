#include "platform/memory/memcpy_s.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>

namespace {

TEST(MemcpySTest, RefusesWithoutCopyingWhenTheCopyDoesNotFit) {
    const std::array<char, 4> source{'a', 'b', 'c', 'd'};
    struct Row {
        bool nullDest;
        bool nullSource;
        std::size_t destSize;
        std::size_t count;
        bool copies;
    };
    const Row rows[] = {
        {false, false, 4, 4, true}, {false, false, 4, 0, true}, {false, false, 3, 4, false},
        {true, false, 4, 4, false}, {false, true, 4, 4, false}, {false, false, SIZE_MAX, 4, false},
    };
    for (const Row& row : rows) {
        std::array<char, 4> dest{'x', 'x', 'x', 'x'};
        const int rc = memcpy_s(row.nullDest ? nullptr : dest.data(), row.destSize,
                                row.nullSource ? nullptr : source.data(), row.count);
        EXPECT_EQ(rc == 0, row.copies) << "destSize " << row.destSize << " count " << row.count;
        for (std::size_t i = 0; i < dest.size(); ++i) {
            const bool copied = row.copies && i < row.count;
            EXPECT_EQ(dest[i], copied ? source[i] : 'x');
        }
    }
}

}  // namespace
