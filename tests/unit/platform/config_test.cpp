#include "platform/config/vesk_config_parser.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include "platform/log/log.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::veskConfigParser::VeskConfigParser;
using wardend::test::TempDir;

TEST(VeskConfigParserTest, MissingOrMalformedFilesAreInvalidWithDefaults) {
    TempDir dir;
    const VeskConfigParser missing(dir.Path() + "/none.json");
    EXPECT_FALSE(missing.IsValid());
    EXPECT_EQ(missing.GetWardendInstanceId(), "1");
    EXPECT_FALSE(missing.GetLogConfig().has_value());

    for (const char* text : {"{not json", "[1, 2]", ""}) {
        const VeskConfigParser bad(dir.WriteFile("bad.json", text));
        EXPECT_FALSE(bad.IsValid()) << text;
        EXPECT_EQ(bad.GetWardendInstanceId(), "1") << text;
    }
}

TEST(VeskConfigParserTest, InstanceIdIsReadAsTextOrNumber) {
    TempDir dir;
    const struct {
        const char* json;
        const char* id;
    } rows[] = {
        {R"({"Wardend": {"instanceId": "7"}})", "7"},
        {R"({"Wardend": {"instanceId": 12}})", "12"},
        {R"({"Wardend": {"instanceId": [1]}})", "1"},
        {R"({"Wardend": {}})", "1"},
        {R"({"Other": {}})", "1"},
    };
    for (const auto& row : rows) {
        const VeskConfigParser parser(dir.WriteFile("vesk.json", row.json));
        EXPECT_TRUE(parser.IsValid());
        EXPECT_EQ(parser.GetWardendInstanceId(), row.id) << row.json;
    }
}

TEST(VeskConfigParserTest, LogSectionGivesLevelSinksAndFile) {
    TempDir dir;
    const VeskConfigParser parser(dir.WriteFile(
        "vesk.json", R"({"Log": {"level": 5, "sinks": ["console", "dlt", 3], "file": "/x.log"}})"));
    const auto config = parser.GetLogConfig();
    ASSERT_TRUE(config.has_value());
    EXPECT_EQ(config->level, 5);
    using namespace ara::tessel::common::log;
    EXPECT_EQ(config->mode, kModeConsole | kModeDlt);
    EXPECT_EQ(config->filePath, "/x.log");

    const VeskConfigParser named(dir.WriteFile("named.json", R"({"Log": {"level": "verbose"}})"));
    EXPECT_EQ(named.GetLogConfig()->level, 6);
    EXPECT_FALSE(named.GetLogConfig()->mode.has_value());
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
