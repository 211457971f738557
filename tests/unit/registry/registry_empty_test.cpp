// Runs in a process of its own, so that every registry is still empty.
#include <gtest/gtest.h>

#include <functional>

#include "registry/event_info_manage.h"
#include "registry/method_info_manage.h"
#include "registry/node_info_manage.h"
#include "tests/support/memory_log.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the registries under test
using wardend::test::LogLevel;
using wardend::test::MemoryLogTest;

using EmptyRegistryTest = MemoryLogTest;

TEST_F(EmptyRegistryTest, AllOnEmptyRegistriesGivesNothingButTheHeadLine) {
    struct Case {
        std::function<std::size_t()> query;
        const char* headLine;
    };
    const Case cases[] = {
        {[] { return EventInfoManage::GetInstance().QueryEventInfo("ALL").size(); },
         "Wardend query eventinfo --- ALL"},
        {[] { return MethodInfoManage::GetInstance().QueryMethodInfo("ALL").size(); },
         "Wardend query methodinfo --- ALL"},
        {[] { return NodeInfoManage::GetInstance().QueryNodeInfo("ALL").size(); },
         "Wardend query nodeinfo --- ALL"},
    };
    for (const auto& c : cases) {
        ClearLog();
        EXPECT_EQ(c.query(), 0U) << c.headLine;
        const auto records = sink_->Records();
        ASSERT_EQ(records.size(), 1U) << LogDump();
        EXPECT_EQ(records[0].level, LogLevel::kInfo);
        EXPECT_EQ(records[0].text, c.headLine);
    }
}

}  // namespace
