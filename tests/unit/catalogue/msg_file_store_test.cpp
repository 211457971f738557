#include "catalogue/msg_file_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/unit/catalogue/catalogue_fixture.h"

namespace {

using vesk::wardend::ErrorDomainInfo;
using vesk::wardend::MsgFileStore;
using vesk::wardend::MsgTypeHead;
using vesk::wardend::ParseMsgTypeHead;
using wardend::test::CatalogueTest;
using wardend::test::LogLevel;
using wardend::test::Struct;
using wardend::test::TempDir;
using Names = std::vector<std::string>;

class MsgFileStoreTest : public CatalogueTest {};

TEST_F(MsgFileStoreTest, FileNamesKeepTheFirstSlashWhileKeysKeepThemAll) {
    EXPECT_EQ(MsgFileStore::GetInstance().DefaultDir(), "/etc/vesktools/msg/");
    defaultDir_.WriteFile("Norvane-AP-Speed.msg", Struct("/Norvane/AP/Speed", {"a/b/c"}));
    defaultDir_.WriteFile("a/b-c.msg", Struct("a/b/c", {}));
    EXPECT_EQ(store_->ReadMsgFile("a/b/c"), Struct("a/b/c", {}));
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "Search msg from default dir " + defaultDir_.Path() +
                           "/a/b-c.msg size:" + std::to_string(Struct("a/b/c", {}).size())));

    store_->LoadDataType("/Norvane/AP/Speed");
    const auto all = store_->QueryAllDataType();
    EXPECT_EQ(all, (std::map<std::string, std::string>{
                       {"/Norvane/AP/Speed", Struct("/Norvane/AP/Speed", {"a/b/c"})},
                       {"a/b/c", Struct("a/b/c", {})}}));
    // The leading slash makes a double slash in the path, which the file system reads as one.
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Search msg from userset dir " + userDir_.Path() +
                                               "//Norvane-AP-Speed.msg size:0"));
}

TEST_F(MsgFileStoreTest, UserDirectoryShadowsTheDefaultUnlessItsFileIsEmpty) {
    const struct {
        const char* user;  // nullptr: no file
        const char* fallback;
        const char* expected;
        bool userMissLogged;
        bool warned;
    } rows[] = {
        {"user", "default", "user", false, false},    {"", "default", "default", true, false},
        {nullptr, "default", "default", true, false}, {"user", nullptr, "user", false, false},
        {nullptr, nullptr, "", true, true},
    };
    for (const auto& row : rows) {
        TempDir user;
        TempDir fallback;
        if (row.user != nullptr) {
            user.WriteFile("T.msg", row.user);
        }
        if (row.fallback != nullptr) {
            fallback.WriteFile("T.msg", row.fallback);
        }
        ClearLog();
        const MsgFileStore store(fallback.Path() + "/", user.Path() + "/");
        EXPECT_EQ(store.ReadMsgFile("T"), row.expected);
        EXPECT_EQ(Logged(LogLevel::kVerbose, "Wardend cannot find msg file in userset dir"),
                  row.userMissLogged)
            << LogDump();
        EXPECT_EQ(Logged(LogLevel::kWarn, "Wardend cannot find msg file in default dir"),
                  row.warned)
            << LogDump();
    }
}

TEST_F(MsgFileStoreTest, LoadStoresEveryListedTypeAndItsReferenceListEvenWithoutAFile) {
    userDir_.WriteFile("Root.msg", Struct("Root", {"Child", "Missing", "uint8"}));
    userDir_.WriteFile("Child.msg", Struct("Child", {}));
    store_->LoadDataType("Root");

    EXPECT_EQ(store_->QueryDataTypeRefList(),
              (std::map<std::string, Names>{{"Root", {"Root", "Child", "Missing"}}}));
    const auto all = store_->QueryAllDataType();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all.at("Root"), Struct("Root", {"Child", "Missing", "uint8"}));
    EXPECT_EQ(all.at("Missing"), "") << "a missing file still leaves its key";
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend cannot find msg file in default dir"));

    // A root without a file gets an empty list and no text.
    store_->LoadDataType("Nowhere");
    EXPECT_EQ(store_->QueryDataTypeRefList().at("Nowhere"), Names{});
    EXPECT_EQ(store_->QueryAllDataType().count("Nowhere"), 0U);
}

TEST_F(MsgFileStoreTest, TheLastLoadWinsAnEmptyResultIncluded) {
    userDir_.WriteFile("Root.msg", Struct("Root", {"Child"}));
    const std::string child = userDir_.WriteFile("Child.msg", "first");
    store_->LoadDataType("Root");
    // Queries between loads must not keep answering from an older state.
    ASSERT_EQ(store_->QueryDataType("Child"), "first");

    userDir_.WriteFile("Child.msg", "second");
    store_->LoadDataType("Root");
    EXPECT_EQ(store_->QueryDataType("Child"), "second");

    std::filesystem::remove(child);
    store_->LoadDataType("Root");
    EXPECT_EQ(store_->QueryDataType("Child"), "");
    EXPECT_EQ(store_->QueryAllDataType().count("Child"), 1U);
}

TEST_F(MsgFileStoreTest, ErrorDomainIsFiledUnderItsDecimalIdAndSearchedInTheUserDirFirst) {
    const std::string text = R"({"Name": "Speed", "Type": "TYPE_ENUM"})";
    defaultDir_.WriteFile("errors/error_domain-5-Speed.msg", text);
    defaultDir_.WriteFile("errors/error_domain-18446744073709551615-Max.msg", "max");
    store_->LoadErrorDomain(ErrorDomainInfo{5, "Speed"});
    store_->LoadErrorDomain(ErrorDomainInfo{UINT64_MAX, "Max"});

    EXPECT_EQ(store_->QueryAllDataType(),
              (std::map<std::string, std::string>{{"5", text}, {"18446744073709551615", "max"}}));
    EXPECT_EQ(store_->QueryDataTypeRefList(),
              (std::map<std::string, Names>{{"5", {"5"}},
                                            {"18446744073709551615", {"18446744073709551615"}}}));
    // Only in the default directory: the two user lines, then the text and no warning.
    const std::string userPath = userDir_.Path() + "/errors/error_domain-5-Speed.msg";
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Try to read " + userPath));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Read " + userPath + " failed"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "Try to search errors/error_domain-5-Speed.msg from "
                       "default directory " +
                           defaultDir_.Path() + "/"));
    EXPECT_EQ(LogCount(LogLevel::kWarn,
                       "Wardend cannot find error code msg file in default dir "
                       "errors/error_domain-5-Speed.msg"),
              0U);

    // The user directory comes first; without one, a file missing everywhere is warned about.
    userDir_.WriteFile("errors/error_domain-7-Gear.msg", "user");
    defaultDir_.WriteFile("errors/error_domain-7-Gear.msg", "default");
    EXPECT_EQ(store_->ReadErrorDomainFile("errors/error_domain-7-Gear.msg"), "user");

    const MsgFileStore noUser(defaultDir_.Path() + "/", "");
    ClearLog();
    noUser.ReadErrorDomainFile("errors/error_domain-8-None.msg");
    for (const auto& record : sink_->Records()) {
        EXPECT_NE(record.text.rfind("Try to read ", 0), 0U) << record.text;
        EXPECT_NE(record.text.rfind("Read ", 0), 0U) << record.text;
    }
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "Wardend cannot find error code msg file in default dir "
                       "errors/error_domain-8-None.msg"));
}

TEST_F(MsgFileStoreTest, DomainAndTypeWithTheSameNumberShareOneEntry) {
    userDir_.WriteFile("5.msg", Struct("5", {}));
    userDir_.WriteFile("errors/error_domain-5-Speed.msg", "domain");
    store_->LoadDataType("5");
    EXPECT_EQ(store_->QueryDataType("5"), Struct("5", {}));
    store_->LoadErrorDomain(ErrorDomainInfo{5, "Speed"});
    EXPECT_EQ(store_->QueryAllDataType(), (std::map<std::string, std::string>{{"5", "domain"}}));
    EXPECT_EQ(store_->QueryDataType("5"), "domain");
    store_->LoadDataType("5");
    EXPECT_EQ(store_->QueryDataType("5"), Struct("5", {}));
}

// Every file below sits where a name that escapes would find it, so a missed refusal reads it.
TEST_F(MsgFileStoreTest, NamesThatWouldLeaveTheMsgDirectoriesAreRefusedWithAWarning) {
    TempDir root;
    root.WriteFile("secret.msg", "secret");
    root.WriteFile("msg/secret", "cut at the NUL");
    root.WriteFile("msg/errors/error_domain-1-x/keep", "");
    root.WriteFile("msg/x/..-secret.msg", "inside");
    root.WriteFile("msg//Lead-Slash.msg", "lead");
    root.WriteFile("msg/a..b/c.msg", "dots");
    const MsgFileStore store(root.Path() + "/msg/", "");
    const std::string refusal = ": it would leave the msg directories";
    const auto refusals = [&] {
        const auto records = sink_->Records();
        return std::count_if(records.begin(), records.end(), [&](const auto& record) {
            return record.level == LogLevel::kWarn &&
                   record.text.find(refusal) != std::string::npos;
        });
    };
    const struct {
        std::string name;
        const char* expected;
        bool refused;
    } rows[] = {
        {"../secret", "", true},
        {"..", "", false},  // "...msg", inside
        {std::string("secret\0x", 8), "", true},
        {"x/../secret", "inside", false},  // later slashes become '-'
        {"/Lead/Slash", "lead", false},    // the directory goes in front of a leading '/'
        {"a..b/c", "dots", false},
    };
    for (const auto& row : rows) {
        ClearLog();
        EXPECT_EQ(store.ReadMsgFile(row.name), row.expected) << row.name;
        EXPECT_EQ(refusals(), row.refused ? 1 : 0) << LogDump();
    }
    ClearLog();
    EXPECT_EQ(store.ReadErrorDomainFile("errors/error_domain-1-x/../../../secret.msg"), "");
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "Wardend refuses msg file "
                       "errors/error_domain-1-x/../../../secret.msg" +
                           refusal));
    ClearLog();
    store.ReadMsgFile(std::string("secret\0x", 8));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend refuses msg file secret\\x00x.msg" + refusal));
}

TEST(ParseMsgTypeHeadTest, ReadsTypeAndOnlyAReferenceReadsDefinition) {
    const struct {
        const char* json;
        const char* type;
        const char* definition;
    } rows[] = {
        {R"({"Type": "TYPE_REFERENCE", "Definition": "B"})", "TYPE_REFERENCE", "B"},
        {R"({"Type": "TYPE_STRUCT", "Definition": "B"})", "TYPE_STRUCT", ""},
        {R"({"Type": "TYPE_REFERENCE", "Definition": 3})", "TYPE_REFERENCE", ""},
        {R"({"Type": 1})", "", ""},
        {R"({"Definition": "B"})", "", ""},
        {R"(["Type"])", "", ""},
        {"not json", "", ""},
        {"", "", ""},
    };
    for (const auto& row : rows) {
        const MsgTypeHead head = ParseMsgTypeHead(row.json);
        EXPECT_EQ(head.type, row.type) << row.json;
        EXPECT_EQ(head.definition, row.definition) << row.json;
    }
}

}  // namespace
