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

// Each node name walks one path; the table and the log lines tell the paths apart.
TEST_F(NodeInfoManageTest, RegisterUpdateAndUnregisterPaths) {
    const struct {
        const char* node;
        std::int32_t pid;
        bool isRegister;
        bool result;
    } steps[] = {
        {"nodeNew", 123, true, true},   {"nodeSame", 55, true, true},
        {"nodeSame", 55, true, true},   {"nodeMoved", 100, true, true},
        {"nodeMoved", 200, true, true}, {"nodeNever", 1, false, false},
        {"nodeGone", 9, true, true},    {"nodeGone", 9, false, true},
        {"nodeOther", 9, true, true},   {"nodeOther", 10, false, true},
    };
    for (const auto& s : steps) {
        EXPECT_EQ(sut_.UpdateNodeInfo(s.node, s.pid, s.isRegister), s.result) << s.node;
    }
    const auto nodes = sut_.Nodes();
    EXPECT_EQ(nodes.at("nodeNew"), 123);
    EXPECT_EQ(nodes.at("nodeSame"), 55);
    EXPECT_EQ(nodes.at("nodeMoved"), 200);
    // Unregistering with another pid still removes the node.
    for (const char* gone : {"nodeNever", "nodeGone", "nodeOther"}) {
        EXPECT_EQ(nodes.count(gone), 0U) << gone;
    }
    const std::pair<LogLevel, const char*> lines[] = {
        {LogLevel::kInfo, "Wardend register nodeinfo --- nodeNew"},
        {LogLevel::kInfo, "Wardend new node nodeNew123 register succeeded"},
        {LogLevel::kInfo, "Wardend register node nodeSame55 repeated, cover old noderegisterinfo."},
        // The new pid shows twice.
        {LogLevel::kInfo, "Wardend node nodeMoved200 update to 200"},
        {LogLevel::kInfo, "Wardend unregister nodeinfo --- nodeNever"},
        {LogLevel::kWarn, "Wardend unregister node does not exist"},
        {LogLevel::kInfo, "Wardend node nodeGone is removed successfully"},
        {LogLevel::kWarn, "Pid in nodeOther is different from that stored in NodeInfoManage"},
    };
    for (const auto& [level, text] : lines) {
        EXPECT_TRUE(Logged(level, text)) << text << "\n" << LogDump();
    }
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend node nodeOther is removed successfully"));
}

// The liveness check looks at /proc, with a line of its own for each answer.
TEST_F(NodeInfoManageTest, IsNodeAliveTellsUnknownGoneAndAlive) {
    EXPECT_FALSE(sut_.IsNodeAlive("nodeUnknown"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend node nodeUnknown is unexisted"));

    const pid_t dead = MakeDeadPid();
    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeDead", dead, true));
    EXPECT_FALSE(sut_.IsNodeAlive("nodeDead"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node is gone.[pid=" + std::to_string(dead) + "]"));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend node nodeDead is gone"));

    ASSERT_TRUE(sut_.UpdateNodeInfo("nodeLive", getpid(), true));
    EXPECT_TRUE(sut_.IsNodeAlive("nodeLive"));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Node is alive.[pid=" + std::to_string(getpid()) + "]"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend node nodeLive is alive"));
}

}  // namespace
