#include "registry/node_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/memory_log.h"
#include "tests/support/process.h"

namespace {

using vesk::wardend::NodeInfoManage;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;
using wardend::test::MemoryLogTest;

// The registry is a process-wide singleton: every test uses node names of its own.
class NodeInfoManageTest : public MemoryLogTest {
protected:
    NodeInfoManage& sut_ = NodeInfoManage::GetInstance();
};

TEST_F(NodeInfoManageTest, RegisteringANewNodeStoresItsPid) {
    EXPECT_TRUE(sut_.UpdateNodeInfo("nodeNew", 123, true));
    EXPECT_EQ(sut_.Nodes().at("nodeNew"), 123);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register nodeinfo --- nodeNew"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend new node nodeNew123 register succeeded"))
        << LogDump();
}

TEST_F(NodeInfoManageTest, RegisteringAgainWithTheSamePidKeepsTheEntry) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeSame", 55, true));
    EXPECT_TRUE(sut_.UpdateNodeInfo("nodeSame", 55, true));
    EXPECT_EQ(sut_.Nodes().at("nodeSame"), 55);
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend register node nodeSame55 repeated, cover old noderegisterinfo."));
}

TEST_F(NodeInfoManageTest, ANewPidReplacesTheOldAndTheLineShowsTheNewTwice) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeMoved", 100, true));
    EXPECT_TRUE(sut_.UpdateNodeInfo("nodeMoved", 200, true));
    EXPECT_EQ(sut_.Nodes().count("nodeMoved"), 1U);
    EXPECT_EQ(sut_.Nodes().at("nodeMoved"), 200);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend node nodeMoved200 update to 200")) << LogDump();
}

TEST_F(NodeInfoManageTest, UnregisteringAnUnknownNodeFails) {
    EXPECT_FALSE(sut_.UpdateNodeInfo("nodeNever", 1, false));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister nodeinfo --- nodeNever"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister node does not exist"));
}

TEST_F(NodeInfoManageTest, UnregisteringWithTheStoredPidRemovesTheNode) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeGone", 9, true));
    EXPECT_TRUE(sut_.UpdateNodeInfo("nodeGone", 9, false));
    EXPECT_EQ(sut_.Nodes().count("nodeGone"), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend node nodeGone is removed successfully"));
}

TEST_F(NodeInfoManageTest, UnregisteringWithAnotherPidStillRemovesTheNode) {
    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeOther", 9, true));
    EXPECT_TRUE(sut_.UpdateNodeInfo("nodeOther", 10, false));
    EXPECT_EQ(sut_.Nodes().count("nodeOther"), 0U);
    EXPECT_TRUE(Logged(LogLevel::kWarn,
                       "Pid in nodeOther is different from that stored in NodeInfoManage"));
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend node nodeOther is removed successfully"));
}

TEST_F(NodeInfoManageTest, IsProcessAliveLooksAtProc) {
    const pid_t self = getpid();
    EXPECT_TRUE(NodeInfoManage::IsProcessAlive(self));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node is alive.[pid=" + std::to_string(self) + "]"));

    const pid_t dead = MakeDeadPid();
    EXPECT_FALSE(NodeInfoManage::IsProcessAlive(dead));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node is gone.[pid=" + std::to_string(dead) + "]"));
}

TEST_F(NodeInfoManageTest, IsNodeAliveTellsUnknownGoneAndAlive) {
    EXPECT_FALSE(sut_.IsNodeAlive("nodeUnknown"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend node nodeUnknown is unexisted"));

    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeDead", MakeDeadPid(), true));
    EXPECT_FALSE(sut_.IsNodeAlive("nodeDead"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend node nodeDead is gone"));

    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeLive", getpid(), true));
    EXPECT_TRUE(sut_.IsNodeAlive("nodeLive"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend node nodeLive is alive"));
}

}  // namespace
