#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

#include "platform/vcc/api/types/entity_info.h"
#include "platform/vcc/traffic/traffic_ctrl_policy.h"
#include "platform/vcc/utils/stats.h"
#include "platform/vcc/utils/thread_pool.h"
#include "platform/vcc/utils/tlv_helper.h"
#include "tests/support/memory_log.h"

namespace {

using wardend::test::LogLevel;

TEST(BasicPolicyTest, CountPassesPerWindowThenTheNextWindowOpens) {
    std::uint64_t now = 1000;
    vesk::BasicPolicy sut(100, 3, [&now] { return now; });
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(sut.IsPassed(sut.GetTime())) << "pass " << i;
    }
    now += 99;
    EXPECT_FALSE(sut.IsPassed(sut.GetTime())) << "the fourth in the same window";
    now += 1;
    EXPECT_TRUE(sut.IsPassed(sut.GetTime())) << "the window of 100 ms has ended";
    EXPECT_TRUE(sut.IsPassed(now - 50)) << "a time read before the window counts in it";
    EXPECT_TRUE(sut.IsPassed(now));
    EXPECT_FALSE(sut.IsPassed(now));
}

TEST(EntityInfoTest, IdentifierAndDriverNames) {
    lumo::vcc::api::types::MethodInfo info;
    info.serviceId = 0xFFFF;
    info.instanceId = "1";
    info.entityId = 4000000000U;
    // The service id takes the signed conversion, the entity id the unsigned one.
    EXPECT_EQ(info.GetEntityIdentifier(), "65535_1_4000000000");
    using lumo::vcc::api::types::DriverType;
    EXPECT_STREQ(DriverTypeName(DriverType::kProloc), "PROLOC");
    EXPECT_STREQ(DriverTypeName(DriverType::kDds), "DDS");
    EXPECT_STREQ(DriverTypeName(DriverType::kSomeip), "SOMEIP");
}

TEST(TlvHelperTest, TimeStampRecordIsNineteenBytesAndReadsBack) {
    unsigned char buffer[lumo::vcc::utils::TlvHelper::kTimeStampSize + 1] = {};
    buffer[19] = 0xAB;
    const timespec time{0x0102030405060708, 999999999};
    lumo::vcc::utils::TlvHelper::AddTlvTimeStamp(buffer, time);
    EXPECT_EQ(buffer[0], 0x5F);
    EXPECT_EQ(buffer[1], 0xFF);
    EXPECT_EQ(buffer[2], 16);
    EXPECT_EQ(buffer[3], 0x01);
    EXPECT_EQ(buffer[10], 0x08);
    EXPECT_EQ(buffer[19], 0xAB) << "nothing written past the record";
    timespec back{};
    ASSERT_TRUE(lumo::vcc::utils::TlvHelper::ReadTlvTimeStamp(buffer, 19, back));
    EXPECT_EQ(back.tv_sec, time.tv_sec);
    EXPECT_EQ(back.tv_nsec, time.tv_nsec);
    EXPECT_FALSE(lumo::vcc::utils::TlvHelper::ReadTlvTimeStamp(buffer, 18, back));
}

TEST(StatsTest, TextShowsNamesAndCountersOnlyOnceSomethingCounted) {
    lumo::vcc::utils::stats::DataStatistician statistician;
    auto stats = std::make_shared<lumo::vcc::utils::stats::MethodSkeletonStats>(
        lumo::vcc::utils::stats::EntityIdentifier{22273, "1", 32777});
    stats->SetEntityName(lumo::vcc::api::types::DriverType::kSomeip, "Tools/QueryDataType");
    statistician.Add(stats);
    EXPECT_EQ(statistician.Text(), "");
    ++stats->requestsHandled;
    ++stats->trafficControlled;
    EXPECT_EQ(statistician.Text(),
              "[22273_1_32777 SOMEIP:Tools/QueryDataType]\nrequestsHandled=1\nrequestsToUser=0\n"
              "e2eErrorsSeen=0\ntrafficControlled=1\n");
}

using ThreadPoolExceptionTest = wardend::test::MemoryLogTest;

TEST_F(ThreadPoolExceptionTest, AWorkerSurvivesATaskThatThrows) {
    lumo::vcc::utils::ThreadPool sut(1, 4, "wrdn_throw");
    ASSERT_TRUE(sut.Enqueue([] { throw std::runtime_error("broken task"); },
                            lumo::vcc::utils::TaskSoureceId(0x201, 7, 9)));
    std::promise<void> ran;
    ASSERT_TRUE(sut.Enqueue([&ran] { ran.set_value(); }, 0));
    EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(sut.FailedCount(), 1U);
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[ThreadPool][wrdn_throw][Task ended by exception: broken task]"
                       "[taskTypeId=513, uuidHigh=7, uuidLow=9]"))
        << LogDump();
}

}  // namespace
