#include "registry/field_info_manage.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/record_builders.h"

namespace {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): the records under test
using wardend::test::Field;
using wardend::test::LogLevel;

class FieldInfoManageTest : public wardend::test::RegistryTest {
protected:
    FieldRegisterInfo Dds(const std::string& app, std::uint16_t instance,
                          const std::string& name = "/f") const {
        return Field(app, type_, self_, instance, {{DriverType::DDS, name}});
    }
    FieldRegisterInfo Someip(const std::string& app, std::uint16_t instance) const {
        return Field(app, type_, self_, instance, {{DriverType::SOMEIP, "/f"}});
    }

    FieldInfoManage& sut_ = FieldInfoManage::GetInstance();
    const std::string type_ = "Field" + svc_;
};

TEST_F(FieldInfoManageTest, AnEmptyDriverMapChangesNothingAnEmptyNameGivesTheBareTag) {
    EXPECT_FALSE(sut_.RegisterFieldInfo(Field("none", type_, self_, 1, {}), true));
    EXPECT_EQ(sut_.DdsFields().count(type_), 0U);
    EXPECT_EQ(sut_.SomeipFields().count(type_), 0U);

    // A client with an empty name gets the bare driver tag.
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("bareClient", 1, ""), false));
    ASSERT_TRUE(sut_.RegisterFieldInfo(
        Field("bareClient", type_, self_, 1, {{DriverType::SOMEIP, ""}}), false));
    EXPECT_EQ(sut_.DdsFields().at(type_).at(1).subInstanceShortNames.at("bareClient"), "[DDS]");
    EXPECT_EQ(sut_.SomeipFields().at(type_).at(1).subInstanceShortNames.at("bareClient"),
              "[SOME/IP]");
}

TEST_F(FieldInfoManageTest, RegistrationPathsAndTheirWords) {
    FieldRegisterInfo both = Dds("server", 1);
    both.drivers[DriverType::SOMEIP] = "/s";
    ASSERT_TRUE(sut_.RegisterFieldInfo(both, true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend new field register succeeded"));
    // Both drivers' names stay in each record.
    EXPECT_EQ(sut_.DdsFields().at(type_).at(1).registerInfo.drivers.size(), 2U);

    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("server", 2), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend pub app server is online"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend new field instance register succeeded"));
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("server", 2), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend register pub app serverrepeated, cover old fieldregisterinfo."));
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("client", 2), false));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend sub app client add new one"));
}

TEST_F(FieldInfoManageTest, UnregisterTriesBothMapsWithMissesAtDifferentLevels) {
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("ddsOnly", 1), true));
    EXPECT_TRUE(sut_.UnregisterFieldInfo(type_, true, Dds("ddsOnly", 1), 1));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend unregister field-SOMEIP does not exist"));
    EXPECT_FALSE(sut_.DdsFields().at(type_).at(1).isOnline);

    const std::string someipType = type_ + "S";
    FieldRegisterInfo someip = Someip("someipOnly", 1);
    someip.fieldType = someipType;
    ASSERT_TRUE(sut_.RegisterFieldInfo(someip, true));
    EXPECT_TRUE(sut_.UnregisterFieldInfo(someipType, true, someip, 1));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister field-DDS does not exist"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Field type " + someipType +
                                            " InstanceId 1 the pub app someipOnly is offline"));
}

TEST_F(FieldInfoManageTest, TheLastClientsRemoveFirstTheInstanceThenTheType) {
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("c1", 1), false));
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("c2", 2), false));
    EXPECT_TRUE(sut_.UnregisterFieldInfo(type_, false, Dds("c1", 1), 1));
    EXPECT_TRUE(Logged(LogLevel::kInfo,
                       "Wardend field apps c1 remove with fieldType " + type_ + "InstanceId 1"));
    EXPECT_EQ(sut_.DdsFields().at(type_).count(1), 0U);

    EXPECT_TRUE(sut_.UnregisterFieldInfo(type_, false, Dds("c2", 2), 2));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend field sub apps are null and " + type_ +
                                            " is removed successfully"));
    EXPECT_EQ(sut_.DdsFields().count(type_), 0U);
}

TEST_F(FieldInfoManageTest, UnregisteringAMissingInstanceLeavesAnEmptyRecord) {
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("server", 1), true));
    EXPECT_FALSE(sut_.UnregisterFieldInfo(type_, true, Dds("server", 9), 9));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Wardend unregister field pub app is not found"));
    EXPECT_EQ(sut_.DdsFields().at(type_).at(9), FieldRecord{});

    ClearLog();
    ASSERT_TRUE(sut_.RegisterFieldInfo(Dds("server", 9), true));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend register field existed"));
    EXPECT_TRUE(Logged(LogLevel::kInfo, "Wardend pub app server update"));
}

}  // namespace
