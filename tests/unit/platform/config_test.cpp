#include "platform/config/vesk_config_parser.h"

#include <gtest/gtest.h>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "platform/log/log.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::veskConfigParser::SnapshotConfig;
using ara::tessel::common::veskConfigParser::VeskConfigParser;
using wardend::test::TempDir;

// The instance id is read as text or number; a missing or malformed file is invalid and keeps
// the defaults. Without VESK_CONFIG the file is the system one.
TEST(VeskConfigParserTest, InstanceIdAndValidity) {
    EXPECT_EQ(VeskConfigParser::ConfigPath(), "/etc/vesk/vesk.json");
    TempDir dir;
    const struct {
        const char* json;  // nullptr: no file
        bool valid;
        const char* id;
    } rows[] = {
        {R"({"Wardend": {"instanceId": "7"}})", true, "7"},
        {R"({"Wardend": {"instanceId": 12}})", true, "12"},
        {R"({"Wardend": {"instanceId": [1]}})", true, "1"},
        {R"({"Wardend": {}})", true, "1"},
        {R"({"Other": {}})", true, "1"},
        {"{not json", false, "1"},
        {"[1, 2]", false, "1"},
        {"", false, "1"},
        {nullptr, false, "1"},
    };
    for (const auto& row : rows) {
        const VeskConfigParser parser(row.json == nullptr ? dir.Path() + "/none.json"
                                                          : dir.WriteFile("vesk.json", row.json));
        const char* name = row.json == nullptr ? "(no file)" : row.json;
        EXPECT_EQ(parser.IsValid(), row.valid) << name;
        EXPECT_EQ(parser.GetWardendInstanceId(), row.id) << name;
        if (!row.valid) {
            EXPECT_FALSE(parser.GetLogConfig().has_value()) << name;
        }
    }
}

TEST(VeskConfigParserTest, LogSectionGivesLevelSinksAndFile) {
    TempDir dir;
    const VeskConfigParser parser(dir.WriteFile(
        "vesk.json", R"({"Log": {"level": 5, "sinks": ["console", "dlt", 3], "file": "/x.log"}})"));
    const auto config = parser.GetLogConfig();
    ASSERT_TRUE(config.has_value());
    EXPECT_EQ(config->level, 5);
    EXPECT_EQ(config->sinks, (std::vector<std::string>{"console", "dlt"}));
    EXPECT_EQ(config->filePath, "/x.log");

    const VeskConfigParser named(dir.WriteFile("named.json", R"({"Log": {"level": "verbose"}})"));
    EXPECT_EQ(named.GetLogConfig()->level, 6);
    EXPECT_FALSE(named.GetLogConfig()->sinks.has_value());
}

// A key that is absent or of the wrong type keeps its default, so that a damaged section leaves
// the snapshot function off rather than half on.
TEST(VeskConfigParserTest, SnapshotSectionReadsEveryKeyAndKeepsDefaultsForDamagedOnes) {
    TempDir dir;
    const SnapshotConfig defaults;
    const SnapshotConfig full{4294967295U, true, true, true, true, "/data/snap"};
    const struct {
        const char* json;
        const SnapshotConfig& expected;
    } rows[] = {
        {R"({"SnapshotConfig": {"threshold": 4294967295, "enable_sched_trace": true,
             "time_delay": true, "cpu_usage": true, "net_statistics": true, "path": "/data/snap"}})",
         full},
        {"not json", defaults},
        {"{}", defaults},
        {R"({"SnapshotConfig": [1, 2]})", defaults},
        {R"({"SnapshotConfig": {"threshold": -1, "enable_sched_trace": 1, "time_delay": "true",
             "cpu_usage": null, "path": 5}})",
         defaults},
        {R"({"SnapshotConfig": {"threshold": 4294967296}})", defaults},
        {R"({"SnapshotConfig": {"threshold": 2.5}})", defaults},
    };
    const auto fields = [](const SnapshotConfig& c) {
        return std::tie(c.threshold, c.enable_sched_trace, c.time_delay, c.cpu_usage,
                        c.net_statistics, c.path);
    };
    for (const auto& row : rows) {
        const SnapshotConfig config =
            VeskConfigParser(dir.WriteFile("vesk.json", row.json)).GetSnapshotConfig();
        EXPECT_EQ(fields(config), fields(row.expected)) << row.json;
    }
}

}  // namespace
