#include "platform/msg/vesk_msg_manager.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "platform/json/json_parser.h"
#include "tests/support/msg_documents.h"
#include "tests/support/temp_dir.h"

namespace {

using ara::tessel::common::jsonParser::Document;
using vesk::VeskMsgManager::VeskMsgManager;
using wardend::test::Struct;
using wardend::test::TempDir;
using Names = std::vector<std::string>;

std::string ExampleDir() {
    return WARDEND_EXAMPLES_MSG_DIR;
}

Names Walk(VeskMsgManager& manager, const std::string& json) {
    Names list;
    EXPECT_TRUE(manager.UpdateJsonStringList(json, list));
    return list;
}

TEST(VeskMsgManagerTest, FileNameKeepsTheFirstSlashOnly) {
    const struct {
        const char* type;
        const char* file;
    } rows[] = {
        {"/Norvane/AP/Speed", "/Norvane-AP-Speed.msg"},
        {"a/b/c", "a/b-c.msg"},
        {"plain", "plain.msg"},
        {"//x", "/-x.msg"},
        {"", ".msg"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(VeskMsgManager::MsgFileName(row.type), row.file) << row.type;
    }
}

TEST(VeskMsgManagerTest, ListsTheExampleTrajectoryDepthFirstInDocumentOrder) {
    VeskMsgManager manager("/nonexistent/", ExampleDir(), {});
    const std::string root =
        Document::ParseFileToString(ExampleDir() + "Norvane-AP-Trajectory.msg");
    ASSERT_FALSE(root.empty());
    EXPECT_EQ(Walk(manager, root),
              (Names{"/Norvane/AP/Trajectory", "/Norvane/AP/Path", "/Norvane/AP/Pose",
                     "/Norvane/AP/Point3D", "/Norvane/AP/Quaternion", "/Norvane/AP/Speed",
                     "/Norvane/AP/VehicleSpeed", "/Norvane/AP/Float32", "/Norvane/AP/GearState"}));
}

TEST(VeskMsgManagerTest, UserDirectoryShadowsDefaultUnlessItsFileIsEmpty) {
    TempDir user;
    TempDir fallback;
    user.WriteFile("A.msg", Struct("A", {"FromUser"}));
    fallback.WriteFile("A.msg", Struct("A", {"FromDefault"}));
    user.WriteFile("B.msg", "");
    fallback.WriteFile("B.msg", Struct("B", {"BFromDefault"}));
    VeskMsgManager manager(fallback.Path() + "/", user.Path() + "/", {});
    EXPECT_EQ(Walk(manager, Struct("R", {"A", "B"})),
              (Names{"R", "A", "FromUser", "B", "BFromDefault"}));
}

// Every reference key is followed and primitives and repeats are skipped; a cycle, a missing
// file and a broken one end their branch of the walk but are listed.
TEST(VeskMsgManagerTest, FollowsEveryReferenceKeyToACycleOrAMissingOrBrokenFile) {
    TempDir dir;
    dir.WriteFile("M.msg", R"({"Name": "M", "Type": "TYPE_MAP", "Key": "K", "Value": "V"})");
    dir.WriteFile("A.msg", R"({"Name": "A", "Type": "TYPE_ARRAY", "Size": 3, "Element": "K"})");
    dir.WriteFile("C.msg", Struct("C", {"D"}));
    dir.WriteFile("D.msg", Struct("D", {"C", "R", "Broken", "Gone"}));
    dir.WriteFile("Broken.msg", R"({"Name": "Broken", "Members": [)");
    VeskMsgManager manager(dir.Path() + "/", "", {});
    EXPECT_EQ(Walk(manager, Struct("R", {"uint8", "M", "string", "A", "M", "float64"})),
              (Names{"R", "M", "K", "V", "A"}));
    EXPECT_EQ(Walk(manager, Struct("R", {"C"})), (Names{"R", "C", "D", "Broken", "Gone"}));
    EXPECT_EQ(manager.JsonCache().at("Gone"), "");
}

TEST(VeskMsgManagerTest, RefusesARootThatIsNotADocumentAndWalksOneWithoutName) {
    VeskMsgManager manager("/nonexistent/", "", {});
    Names list{"kept"};
    EXPECT_FALSE(manager.UpdateJsonStringList("", list));
    EXPECT_FALSE(manager.UpdateJsonStringList("{oops", list));
    EXPECT_EQ(list, Names{"kept"});
    EXPECT_TRUE(manager.UpdateJsonStringList(R"({"Type": "TYPE_VECTOR", "Element": "E"})", list));
    EXPECT_EQ(list, (Names{"kept", "E"}));
}

TEST(VeskMsgManagerTest, LongChainsAreWalkedWithoutRecursion) {
    // Seeded through the cache: 20000 files would be slow; the walk is the same.
    constexpr int kLinks = 20000;
    std::map<std::string, std::string> cache;
    for (int i = 1; i < kLinks; ++i) {
        cache["T" + std::to_string(i)] =
            Struct("T" + std::to_string(i), {"T" + std::to_string(i + 1)});
    }
    VeskMsgManager manager("/nonexistent/", "", cache);
    const Names list = Walk(manager, Struct("T0", {"T1"}));
    ASSERT_EQ(list.size(), static_cast<std::size_t>(kLinks + 1));
    EXPECT_EQ(list.back(), "T" + std::to_string(kLinks));
}

}  // namespace
