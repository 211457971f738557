#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "binding/proloc/proloc_memory_factory.h"
#include "platform/driver/proloc/spare_nodes.h"
#include "platform/error/com_error_domain.h"
#include "platform/error/future_error_domain.h"
#include "tests/support/memory_log.h"

namespace {

using lumo::driver::proloc::ProlocEntityIndex;
using lumo::driver::proloc::ProlocEventMemory;
using lumo::driver::proloc::ProlocReplyMemory;
using lumo::driver::proloc::ProlocRequestMemory;
using wardend::test::LogLevel;

struct Sample {
    int value{0};
};

const ProlocEntityIndex kIndex{0x5700, "1", 30161};
const std::string kInfo = "serviceId=22272, instanceId=1, entityId=30161";

class ProlocEventMemoryTest : public wardend::test::MemoryLogTest {
protected:
    int ValueAt(const unsigned char* sample) const {
        return reinterpret_cast<const Sample*>(sample)->value;
    }

    ProlocEventMemory<Sample> sut_;
};

TEST_F(ProlocEventMemoryTest, AFieldKeepsItsLastValueForALateClientAnEventKeepsNothing) {
    const ProlocEntityIndex event{0x5700, "1", 1};
    sut_.AddProlocData(Sample{1}, kIndex, true);
    sut_.AddProlocData(Sample{2}, kIndex, true);
    sut_.AddProlocData(Sample{7}, event, false);
    EXPECT_TRUE(Logged(LogLevel::kDebug, "[ProlocEventMemory][Can't find event with client][" +
                                             event.GetProlocInfo() + "]"));

    int handled = 0;
    sut_.EnableClient(kIndex, 1, 4, true, [&handled] { ++handled; });
    sut_.EnableClient(event, 1, 4, true, [] {});
    EXPECT_EQ(handled, 1) << "the late field client is told of its first sample";
    auto samples = sut_.ReadSamples(kIndex, 1, 10);
    ASSERT_EQ(samples.size(), 1U);
    EXPECT_EQ(ValueAt(samples[0]), 2);
    EXPECT_EQ(sut_.GetSampleCount(event, 1), 0U);
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Proloc field not have a init value client [" +
                                            event.GetProlocInfo() + ", clientUid=1]"));
}

TEST_F(ProlocEventMemoryTest, OverflowDropsTheOldestSampleOfThatClientAloneAndReadsAreBounded) {
    sut_.EnableClient(kIndex, 1, 2, false, nullptr);
    sut_.EnableClient(kIndex, 2, 3, false, nullptr);
    for (int i = 1; i <= 3; ++i) {
        sut_.AddProlocData(Sample{i}, kIndex, false);
    }
    EXPECT_EQ(LogCount(LogLevel::kWarn,
                       "[ProlocEventMemory][Proloc event msg is full, oldest data wii be "
                       "discard][prolocInfo=" +
                           kInfo + ", clientUid=1]"),
              1U);
    EXPECT_TRUE(sut_.ReadSamples(kIndex, 1, 0).empty());
    EXPECT_TRUE(sut_.ReadSamples(kIndex, 1, -1).empty());
    EXPECT_TRUE(sut_.ReadSamples(kIndex, 9, 5).empty());
    EXPECT_EQ(sut_.GetSampleCount(kIndex, 9), 0U);
    auto first = sut_.ReadSamples(kIndex, 1, 10);
    auto second = sut_.ReadSamples(kIndex, 2, 2);
    ASSERT_EQ(first.size(), 2U);
    EXPECT_EQ(ValueAt(first[0]), 2);
    EXPECT_EQ(ValueAt(first[1]), 3);
    ASSERT_EQ(second.size(), 2U);
    EXPECT_EQ(ValueAt(second[0]), 1) << "the dropped sample lives on for the other client";
    EXPECT_EQ(sut_.GetSampleCount(kIndex, 2), 1U);
}

TEST_F(ProlocEventMemoryTest, TwoClientsShareOneSampleAndReturnTheirLoansApart) {
    sut_.EnableClient(kIndex, 1, 4, false, nullptr);
    sut_.EnableClient(kIndex, 2, 4, false, nullptr);
    sut_.AddProlocData(Sample{5}, kIndex, false);
    auto first = sut_.ReadSamples(kIndex, 1, 1);
    auto second = sut_.ReadSamples(kIndex, 2, 1);
    ASSERT_EQ(first.size(), 1U);
    ASSERT_EQ(second.size(), 1U);
    EXPECT_EQ(first[0], second[0]);

    sut_.ReturnLoan(kIndex, 1, first[0]);
    EXPECT_EQ(ValueAt(second[0]), 5) << "the other client's loan keeps the sample alive";
    sut_.ReturnLoan(kIndex, 2, second[0]);
    EXPECT_EQ(
        LogCount(LogLevel::kDebug, "Event release memory successful[" + kInfo + ", clientUid=1]"),
        1U);

    sut_.ReturnLoan(kIndex, 1, first[0]);
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Event [" + kInfo + ", clientUid=1] release memory failed"));
}

TEST_F(ProlocEventMemoryTest, HandlersRunWithoutLocksAndErasingTheLastClientDropsTheGroup) {
    std::vector<int> seen;
    sut_.EnableClient(kIndex, 1, 4, false, [&] {
        // Reading from the handler would deadlock if a store lock were still held.
        for (const auto* sample : sut_.ReadSamples(kIndex, 1, 4)) {
            seen.push_back(ValueAt(sample));
            sut_.ReturnLoan(kIndex, 1, sample);
        }
    });
    sut_.AddProlocData(Sample{3}, kIndex, false);
    EXPECT_EQ(seen, std::vector<int>{3});

    sut_.EraseClient(kIndex, 1);
    EXPECT_TRUE(Logged(LogLevel::kVerbose,
                       "Proloc event client [" + kInfo + ", clientUid=1] erase successful"));
    EXPECT_TRUE(
        Logged(LogLevel::kVerbose, "Proloc event client [" + kInfo + "] all erase successful"));
    sut_.AddProlocData(Sample{4}, kIndex, false);
    EXPECT_TRUE(Logged(LogLevel::kDebug,
                       "[ProlocEventMemory][Can't find event with client][" + kInfo + "]"));
}

using ProlocMethodMemoryTest = wardend::test::MemoryLogTest;

TEST_F(ProlocMethodMemoryTest, RequestsAreHeldUntilTheirLoanIsReturned) {
    ProlocRequestMemory<std::string, int> sut;
    const auto* key = sut.AddRequest(kIndex, "node", 7);
    EXPECT_EQ(*sut.GetRequest(kIndex, key), std::make_tuple(std::string("node"), 7));
    EXPECT_EQ(sut.Count(kIndex), 1U);
    sut.ReturnLoan(key, kIndex);
    EXPECT_EQ(sut.Count(kIndex), 0U);

    EXPECT_EQ(*sut.GetRequest(kIndex, key), std::make_tuple(std::string(), 0));
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Proloc get unknow request value [" + kInfo + "]"));
    const ProlocEntityIndex other{1, "1", 1};
    (void)sut.GetRequest(other, key);
    EXPECT_TRUE(Logged(LogLevel::kWarn, "Proloc get request value cannot find index [" +
                                            other.GetProlocInfo() + "]"));

    // An entity unregistered with a request still held is gone, also for the store's look-up
    // of the entity it served last.
    const auto* held = sut.AddRequest(kIndex, "held", 8);
    sut.UnRegisterMethod(kIndex);
    EXPECT_EQ(*sut.GetRequest(kIndex, held), std::make_tuple(std::string(), 0));
    EXPECT_TRUE(
        Logged(LogLevel::kWarn, "Proloc get request value cannot find index [" + kInfo + "]"));
}

// The stores reuse the nodes of the entries they remove.
TEST(SpareNodesTest, NodesAreReusedAndAMapKeepsOneValuePerKey) {
    using Map = std::map<int, std::string>;
    Map map;
    lumo::driver::proloc::SpareNodes<Map> spares;
    const auto* node = &*spares.Insert(map, 1, "a");
    EXPECT_EQ(spares.Take(map, map.find(1)), "a");
    EXPECT_TRUE(map.empty());
    EXPECT_EQ(&*spares.Insert(map, 2, "b"), node) << "the removed entry's node is used again";
    spares.Erase(map, spares.Insert(map, 3, "c"));
    (void)spares.Insert(map, 2, "B");
    EXPECT_EQ(map, (Map{{2, "B"}})) << "a key held already gets the new value";

    using Multi = std::multimap<int, std::string>;
    Multi multi;
    lumo::driver::proloc::SpareNodes<Multi> multiSpares;
    multiSpares.Erase(multi, multiSpares.Insert(multi, 5, "x"));
    (void)multiSpares.Insert(multi, 5, "y");
    (void)multiSpares.Insert(multi, 5, "z");
    EXPECT_EQ(multi, (Multi{{5, "y"}, {5, "z"}}));
}

TEST_F(ProlocMethodMemoryTest, ReturningAnUnknownLoanWarnsInEachStore) {
    ProlocRequestMemory<int> requests;
    ProlocReplyMemory<int> replies;
    lumo::vcc::api::types::MethodMsg msg;
    const auto* requestKey = requests.AddRequest(kIndex, 1);
    const auto* replyKey = replies.AddReply(ara::core::Result<int>(2), kIndex, msg);
    const ProlocEntityIndex other{1, "1", 1};
    struct Case {
        lumo::driver::proloc::ProlocMethodManager* store;
        const unsigned char* key;
        std::string noIndex;
        std::string noAddress;
    };
    const Case cases[] = {
        {&requests, requestKey, "Proloc request return loan cannot find index [",
         "Proloc request return loan unknon address["},
        {&replies, replyKey, "Proloc reply return loan cannot find index [",
         "Proloc reply return loan unknon address["},
    };
    for (const auto& c : cases) {
        c.store->ReturnLoan(c.key, other);
        EXPECT_TRUE(Logged(LogLevel::kWarn, c.noIndex + other.GetProlocInfo() + "]")) << c.noIndex;
        c.store->ReturnLoan(c.key, kIndex);
        c.store->ReturnLoan(c.key, kIndex);
        EXPECT_EQ(LogCount(LogLevel::kWarn, c.noAddress + kInfo + "]"), 1U) << c.noAddress;
    }
}

TEST_F(ProlocMethodMemoryTest, RepliesMarkErrorsAndRefuseFutureDomainErrors) {
    ProlocReplyMemory<int> sut;
    lumo::vcc::api::types::MethodMsg msg;
    const auto* value = sut.AddReply(ara::core::Result<int>(4), kIndex, msg);
    EXPECT_FALSE(msg.isErrorReply);
    const auto* error =
        sut.AddReply(ara::core::Result<int>::FromError(lumo::vcc::api::types::MakeErrorCode(
                         lumo::vcc::api::types::ComErrc::kMaxSamplesExceeded, 0)),
                     kIndex, msg);
    EXPECT_TRUE(msg.isErrorReply);

    EXPECT_THROW((void)sut.AddReply(ara::core::Result<int>::FromError(ara::core::MakeErrorCode(
                                        ara::core::future_errc::broken_promise, 0)),
                                    kIndex, msg),
                 ara::core::FutureException);
    EXPECT_EQ(sut.Count(kIndex), 2U);

    // A reply is taken once: the take returns its loan.
    const auto taken = sut.TakeReply(kIndex, value);
    ASSERT_TRUE(taken.has_value());
    EXPECT_EQ(taken->Value(), 4);
    EXPECT_FALSE(sut.TakeReply(kIndex, value).has_value());
    EXPECT_FALSE(sut.TakeReply(ProlocEntityIndex{9, "1", 1}, error).has_value());
    EXPECT_FALSE(sut.TakeReply(kIndex, error)->HasValue());
    EXPECT_EQ(sut.Count(kIndex), 0U);

    (void)sut.AddReply(ara::core::Result<int>(5), kIndex, msg);
    sut.UnRegisterMethod(kIndex);
    EXPECT_EQ(sut.Count(kIndex), 0U);
    EXPECT_TRUE(Logged(LogLevel::kDebug, "Proloc unregister method server index [" + kInfo + "]"));
}

}  // namespace
