#include "platform/json/json_parser.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::jsonParser::Document;
using wardend::test::TempDir;

TEST(JsonDocumentTest, ParseFileToStringGivesTheWholeTextOrNothing) {
    TempDir dir;
    const std::string binary("a\0b{\xff}\n", 7);
    const std::string regular = dir.WriteFile("t.msg", binary);
    EXPECT_EQ(Document::ParseFileToString(regular), binary);
    EXPECT_EQ(Document::ParseFileToString(dir.WriteFile("empty.msg", "")), "");
    EXPECT_EQ(Document::ParseFileToString(dir.Path() + "/missing.msg"), "");
    EXPECT_EQ(Document::ParseFileToString(dir.Path()), "");  // a directory
    EXPECT_EQ(Document::ParseFileToString(""), "");

    // A FIFO in place of a file must neither block nor be read.
    const std::string fifo = dir.Path() + "/fifo.msg";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_EQ(Document::ParseFileToString(fifo), "");
}

TEST(JsonDocumentTest, MalformedOrTooDeepTextIsRefusedAndLeavesAnEmptyDocument) {
    const std::string deepest(Document::kMaxDepth, '[');
    const std::string tooDeep(Document::kMaxDepth + 1, '[');
    const struct {
        std::string text;
        bool ok;
    } rows[] = {
        {R"({"Type": "TYPE_STRUCT"})", true},
        {"[1, 2]", true},
        {R"("just a string")", true},
        {"", false},
        {"{", false},
        {R"({"a": 1} trailing)", false},
        {"{\"a\": \"\xff\"}", false},  // not UTF-8
        {deepest + std::string(Document::kMaxDepth, ']'), true},
        {tooDeep + std::string(Document::kMaxDepth + 1, ']'), false},
        // Brackets inside strings are not nesting.
        {R"([")" + tooDeep + R"(\""])", true},
    };
    for (const auto& row : rows) {
        Document document;
        ASSERT_TRUE(document.ParseStringToDocument(R"({"Type": "x"})"));
        EXPECT_EQ(document.ParseStringToDocument(row.text), row.ok) << row.text.substr(0, 40);
        EXPECT_EQ(document.IsValid(), row.ok);
        if (!row.ok) {
            EXPECT_FALSE(document.HasMember("Type")) << "a failed parse keeps old content";
        }
    }
}

TEST(JsonDocumentTest, LookupsOfMissingOrMistypedMembersGiveEmptyValues) {
    Document document;
    ASSERT_TRUE(document.ParseStringToDocument(
        R"({"Name": "/A", "Size": 4, "Members": [{"Type": "uint8"}], "Nested": {"Type": 1}})"));
    EXPECT_TRUE(document.HasMember("Name"));
    EXPECT_TRUE(document["Name"].IsString());
    EXPECT_EQ(document["Name"].GetString(), "/A");

    EXPECT_FALSE(document.HasMember("Missing"));
    EXPECT_FALSE(document["Missing"].IsString());
    EXPECT_EQ(document["Missing"].GetString(), "");
    EXPECT_EQ(document["Size"].GetString(), "");
    EXPECT_EQ(document["Size"].GetUint64(), 4U);
    EXPECT_EQ(document["Nested"]["Type"].GetString(), "");
    EXPECT_EQ(document["Name"]["Type"].GetString(), "");  // member of a string
    EXPECT_FALSE(document["Name"].HasMember("Type"));

    EXPECT_EQ(document["Members"].Size(), 1U);
    EXPECT_EQ(document["Members"].At(0)["Type"].GetString(), "uint8");
    EXPECT_TRUE(document["Members"].At(1).IsNull());
    EXPECT_TRUE(document["Name"].At(0).IsNull());

    Document notAnObject;
    ASSERT_TRUE(notAnObject.ParseStringToDocument("[\"Type\"]"));
    EXPECT_FALSE(notAnObject.HasMember("Type"));
    EXPECT_FALSE(notAnObject["Type"].IsString());
}

}  // namespace
