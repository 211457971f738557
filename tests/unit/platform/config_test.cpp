#include "platform/config/vesk_config_parser.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/log/log.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::veskConfigParser::VeskConfigParser;
using wardend::test::TempDir;

// The instance id is read as text or number; a missing or malformed file is invalid and keeps
// the defaults.
TEST(VeskConfigParserTest, InstanceIdAndValidity) {
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

TEST(VeskConfigParserTest, TheEnvironmentVariableChoosesTheFile) {
    TempDir dir;
    const std::string path = dir.WriteFile("vesk.json", R"({"Wardend": {"instanceId": "42"}})");
    setenv("VESK_CONFIG", path.c_str(), 1);
    EXPECT_EQ(VeskConfigParser::ConfigPath(), path);
    EXPECT_EQ(vesk::veskcm::veskwardend::GetWardendInstanceId::GetInstanceId(), "42");
    unsetenv("VESK_CONFIG");
    EXPECT_EQ(VeskConfigParser::ConfigPath(), "/etc/vesk/vesk.json");
}

}  // namespace
