#include "registry/method_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>

#include "tests/support/process.h"
#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::FreshServiceId;
using wardend::test::LogLevel;
using wardend::test::MakeDeadPid;
using wardend::test::Method;
using wardend::test::MethodShape;

class MethodInfoManageTest : public wardend::test::RegistryTest {
protected:
    MethodShape Shape(const std::string& app, std::int32_t pid) const {
        return MethodShape{app, name_, pid, service_};
    }
    MethodRegisterInfo Mine(const std::string& app, bool dds, bool someip) const {
        return Method(Shape(app, self_), dds, someip);
    }
    DDSMethodKey DdsKey() const { return DDSMethodKey{service_, 1, "req", "rep", "m", 0}; }
    SomeipMethodKey SomeipKey() const { return SomeipMethodKey{service_, 1, 3, 0}; }
    std::size_t Listed(const std::vector<MethodRegisterInfo>& rows) const {
        return static_cast<std::size_t>(
            std::count_if(rows.begin(), rows.end(),
                          [this](const auto& row) { return row.serviceId == service_; }));
    }

    MethodInfoManage& sut_ = MethodInfoManage::GetInstance();
    const String name_ = "Method" + svc_;
};

TEST_F(MethodInfoManageTest, ClientsAloneNeverMakeAMethodVisibleALiveServerDoes) {
    ASSERT_TRUE(sut_.RegisterMethodInfo(Mine("client", true, true), false));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register method DDS:1 SOMEIP:1"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend sub app client is registered"));
    ClearLog();
    EXPECT_EQ(Listed(sut_.QueryMethodInfo("ALL")), 0U);
    EXPECT_TRUE(sut_.QueryMethodInfo(name_).empty());
    // A record without a server fails the liveness check on the by-name path.
    EXPECT_FALSE(Logged(LogLevel::kVerbose, "Wardend pushing DDS methodinfo"));

    MethodInfoWithPubSub out;
    EXPECT_FALSE(sut_.QueryMethodInfoByType(name_, out));

    // A live server is listed by name and in "ALL", on its own driver only.
    ASSERT_TRUE(sut_.RegisterMethodInfo(Mine("server", true, false), true));
    const auto rows = sut_.QueryMethodInfo(name_);
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].appName, "server");
    EXPECT_TRUE(Logged(LogLevel::kInfo, "DDS Method type is Method" + svc_ + " InstanceID is 1"));
    EXPECT_EQ(Listed(sut_.QueryMethodInfo("ALL")), 1U);
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend pushing DDS methodinfo"));
}

TEST_F(MethodInfoManageTest, ADeadServerIsReportedGoneOnceThenSkippedSilently) {
    ASSERT_TRUE(
        sut_.RegisterMethodInfo(Method(Shape("deadServer", MakeDeadPid()), true, false), true));
    EXPECT_EQ(Listed(sut_.QueryMethodInfo("ALL")), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "DDS pub is offline"));
    EXPECT_EQ(LogCount(LogLevel::kInfo, "Wardend DDS methodinfo is gone"), 1U);
    ClearLog();
    EXPECT_TRUE(sut_.QueryMethodInfo(name_).empty());
    EXPECT_FALSE(Logged(LogLevel::kInfo, "Wardend DDS methodinfo is gone"));
}

TEST_F(MethodInfoManageTest, BothDriversRegisterTwoRecordsAndUnregisterOnlyDds) {
    const MethodRegisterInfo info = Mine("twoServer", true, true);
    ASSERT_TRUE(sut_.RegisterMethodInfo(info, true));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend register method unexisted"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register method unexisted"));
    EXPECT_EQ(sut_.DdsMethods().count(DdsKey()), 1U);
    EXPECT_EQ(sut_.SomeipMethods().count(SomeipKey()), 1U);

    EXPECT_TRUE(sut_.UnregisterMethodInfo(info, true));
    EXPECT_FALSE(sut_.DdsMethods().at(DdsKey()).info.isOnline);
    EXPECT_TRUE(sut_.SomeipMethods().at(SomeipKey()).info.isOnline);
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Method type Method" + svc_ +
                                            " InstanceId 1 the pub app twoServer is offline"));
}

TEST_F(MethodInfoManageTest, UnregisterMissesUseOneWarnTextOnBothDrivers) {
    EXPECT_FALSE(sut_.UnregisterMethodInfo(Mine("nobody", true, false), true));
    EXPECT_FALSE(sut_.UnregisterMethodInfo(Mine("nobody", false, true), false));
    EXPECT_EQ(LogCount(LogLevel::kWarn, "Wardend unregister method does not exist"), 2U);

    // The SOME/IP path logs the DDS word too.
    ASSERT_TRUE(sut_.RegisterMethodInfo(Mine("someipClient", false, true), false));
    ASSERT_TRUE(sut_.RegisterMethodInfo(Mine("otherClient", false, true), false));
    EXPECT_TRUE(sut_.UnregisterMethodInfo(Mine("someipClient", false, true), false));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Wardend unregister method-DDS"));
    EXPECT_FALSE(sut_.UnregisterMethodInfo(Mine("someipClient", false, true), false));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister method sub app is not found"));
    EXPECT_TRUE(sut_.UnregisterMethodInfo(Mine("otherClient", false, true), false));
    EXPECT_EQ(sut_.SomeipMethods().count(SomeipKey()), 0U);
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend method sub apps are null and otherClient is removed successfully"));
}

TEST_F(MethodInfoManageTest, AClientThatRegistersAgainIsListedOnceWithTheLaterPid) {
    ASSERT_TRUE(sut_.RegisterMethodInfo(Method(Shape("again", getppid()), false, true), false));
    ASSERT_TRUE(sut_.RegisterMethodInfo(Mine("again", false, true), false));
    const MethodRecord record = sut_.SomeipMethods().at(SomeipKey());
    EXPECT_EQ(record.info.subApps, std::vector<String>{"again"});
    EXPECT_EQ(record.subPids.at("again"), self_);

    NodeInfo node;
    node.pid = getppid();
    std::set<String> instances;
    sut_.GetNodeMethodInfo("again", node, instances);
    EXPECT_TRUE(node.methods.empty());
    node.pid = self_;
    sut_.GetNodeMethodInfo("again", node, instances);
    EXPECT_EQ(node.methods, std::vector<String>{name_});
    EXPECT_EQ(instances, std::set<String>{"/UnnamedSOMEIPServiceInstance_" + svc_ + "_1"});
}

TEST_F(MethodInfoManageTest, TheExemptDdsServiceKeepsAnEmptyShortName) {
    MethodShape shape = Shape("exemptServer", self_);
    shape.serviceId = 0xE002;
    shape.instanceId = FreshServiceId();
    ASSERT_TRUE(sut_.RegisterMethodInfo(Method(shape, true, false), true));
    const DDSMethodKey key{0xE002, shape.instanceId, "req", "rep", "m", 0};
    EXPECT_EQ(sut_.DdsMethods()
                  .at(key)
                  .info.registerInfo.methodMap_.at(DriverType::DDS)
                  .dds.instanceShortName,
              "");
}

}  // namespace
