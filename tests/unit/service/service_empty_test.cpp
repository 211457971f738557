#include <gtest/gtest.h>

#include "tests/unit/service/service_fixture.h"

namespace wardend::test {
namespace {

// Its own program, so that the registries are empty when it runs.
using EmptyDaemonTest = ServiceTest;

TEST_F(EmptyDaemonTest, AllQueriesOnEmptyRegistriesAnswerEmptyAndStillLog) {
    EXPECT_TRUE(tools_->QueryNodeInfo("ALL").get().nodeInfos.empty());
    EXPECT_TRUE(tools_->QueryEventInfo("ALL").get().eventInfos.empty());
    EXPECT_TRUE(tools_->QueryMethodInfo("ALL").get().methodInfos.empty());
    EXPECT_TRUE(tools_->QueryAllDataType().get().dataTypes.empty());
    EXPECT_TRUE(tools_->QueryDataTypeRefList().get().refList.empty());
    for (const char* line :
         {"Wardend query node info finished", "Wardend query event info finished",
          "Wardend query method info finished", "Wardend query all datatype finished",
          "Wardend query datatype list finished"}) {
        EXPECT_TRUE(Logged(LogLevel::kInfo, line)) << line;
    }
}

}  // namespace
}  // namespace wardend::test
