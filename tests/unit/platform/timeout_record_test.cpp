#include "platform/tlog/timeout_record.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace {

using kbr::tlog::MsgInfo;
using kbr::tlog::TimeoutRecord;
using wardend::test::TempDir;

TEST(TimeoutRecordTest, OnlyAPlainFileNameIsAGuid) {
    TempDir dir;
    dir.WriteFile("secret.tlog", "record\n");
    const TimeoutRecord sut(dir.Path() + "/tlog");
    const struct {
        std::string guid;
        bool valid;
    } rows[] = {
        {"0a1b-2c3d_4e.5f:6", true},
        {"", false},
        {"../secret", false},
        {".hidden", false},
        {"a b", false},
        {std::string(TimeoutRecord::kMaxGuidLength, 'g'), true},
        {std::string(TimeoutRecord::kMaxGuidLength + 1, 'g'), false},
    };
    for (const auto& row : rows) {
        dir.WriteFile("tlog/" + row.guid + ".tlog", "record\n");
        EXPECT_EQ(TimeoutRecord::IsValidGuid(row.guid), row.valid) << row.guid;
        EXPECT_EQ(sut.GetTimeoutRecordInfo({row.guid, 1, 2}).size(), row.valid ? 1U : 0U)
            << row.guid;
    }
}

TEST(TimeoutRecordTest, RecordsAreTheNonEmptyLinesBoundedInLengthAndCount) {
    TempDir dir;
    std::string text = std::string(TimeoutRecord::kMaxRecordLength + 700, 'a') + "\r\n\nnext\r\n";
    for (std::size_t i = 0; i <= TimeoutRecord::kMaxRecords; ++i) {
        text += "r" + std::to_string(i) + "\n";
    }
    dir.WriteFile("big.tlog", text);
    const std::vector<std::string> records =
        TimeoutRecord(dir.Path()).GetTimeoutRecordInfo(MsgInfo{"big", 1, 2});
    ASSERT_EQ(records.size(), TimeoutRecord::kMaxRecords);
    EXPECT_EQ(records[0], std::string(TimeoutRecord::kMaxRecordLength, 'a'));
    EXPECT_EQ(records[1], "next");
    EXPECT_EQ(records.back(), "r" + std::to_string(TimeoutRecord::kMaxRecords - 3));
}

}  // namespace
