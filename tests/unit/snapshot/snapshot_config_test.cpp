#include <gtest/gtest.h>

#include <string>

#include "platform/config/vesk_config_parser.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::veskConfigParser::SnapshotConfig;
using ara::tessel::common::veskConfigParser::VeskConfigParser;
using wardend::test::TempDir;

SnapshotConfig Parse(const std::string& text) {
    TempDir dir;
    return VeskConfigParser(dir.WriteFile("vesk.json", text)).GetSnapshotConfig();
}

TEST(SnapshotConfigTest, EveryKeyIsRead) {
    const SnapshotConfig config = Parse(R"({"SnapshotConfig": {"threshold": 4294967295,
        "enable_sched_trace": true, "time_delay": true, "cpu_usage": true,
        "net_statistics": true, "path": "/data/snap"}})");
    EXPECT_EQ(config.threshold, 4294967295U);
    EXPECT_TRUE(config.enable_sched_trace);
    EXPECT_TRUE(config.time_delay);
    EXPECT_TRUE(config.cpu_usage);
    EXPECT_TRUE(config.net_statistics);
    EXPECT_EQ(config.path, "/data/snap");
}

class SnapshotConfigDefaultTest : public ::testing::TestWithParam<const char*> {};

// A damaged section must leave the function off rather than half on.
TEST_P(SnapshotConfigDefaultTest, AbsentOrMistypedKeysKeepTheirDefaults) {
    const SnapshotConfig config = Parse(GetParam());
    EXPECT_EQ(config.threshold, 0U);
    EXPECT_FALSE(config.enable_sched_trace || config.time_delay || config.cpu_usage ||
                 config.net_statistics);
    EXPECT_EQ(config.path, "/tmp");
}

INSTANTIATE_TEST_SUITE_P(
    Sections, SnapshotConfigDefaultTest,
    ::testing::Values("not json", R"({})", R"({"SnapshotConfig": [1, 2]})",
                      R"({"SnapshotConfig": {"threshold": -1, "enable_sched_trace": 1,
                          "time_delay": "true", "cpu_usage": null, "path": 5}})",
                      R"({"SnapshotConfig": {"threshold": 4294967296}})",
                      R"({"SnapshotConfig": {"threshold": 2.5}})"));

}  // namespace
