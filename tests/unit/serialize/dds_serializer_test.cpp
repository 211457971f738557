// Known answers of the packed DDS format (host order; this file assumes a little-endian host),
// and its edge cases.

#include <gtest/gtest.h>

#include <functional>

#include "binding/serialize/dds_serializer.h"
#include "tests/unit/serialize/sample_records.h"
#include "tests/unit/serialize/serialize_test_support.h"

namespace wardend::test {
namespace {

using lumo::serialize::kSizeFailure;
using lumo::serialize::SerializeConfig;
using lumo::serialize::dds::Deserializer;
using lumo::serialize::dds::Serializer;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "known answers are little-endian");

template <typename T>
Bytes Write(const T& value) {
    return Written(Serializer<T>(value, SerializeConfig{}));
}

class DdsSerializerTest : public SerializeLogTest {};

TEST_F(DdsSerializerTest, KnownAnswers) {
    EXPECT_EQ(Write(SmallIndex()),
              (Bytes{
                  0x01, 0x00, 0x00, 0x00, 0x01, 0x00,  // drivers: 1 element, SOMEIP
                  0x34, 0x12,                          // serviceId
                  0x01, 0x00,                          // instanceId
                  0x02, 0x00, 0x00, 0x00, 'a', 'b',    // topicName, no terminator
                  0x02, 0x80,                          // eventId
              }));

    EXPECT_EQ(Write(SmallField()), (Bytes{
                                       0x01, 0x00, 0x00, 0x00, 'a',  // appName
                                       0x00, 0x00, 0x00, 0x00,       // fieldType, empty
                                       0x01, 0x00, 0x00, 0x00,       // drivers: 1 pair
                                       0x00, 0x00,                   //   DDS
                                       0x01, 0x00, 0x00, 0x00, 'x',  //   "x"
                                       0x09, 0x00,                   // instanceId
                                       0x01,                         // isRegister
                                       0xFE, 0xFF, 0xFF, 0xFF,       // pid -2
                                   }));

    const std::vector<String> names = {"", "q"};
    EXPECT_EQ(Write(names), (Bytes{2, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 'q'}));
}

// The buffer is checked once, before the first copy: a null one is refused with the line of that
// copy's kind and nothing is written.
TEST_F(DdsSerializerTest, ANullBufferIsRefusedWithTheLineOfTheFirstCopy) {
    const struct {
        const char* line;
        std::function<void()> write;
    } cases[] = {
        {"[DDS Serializer String] Memory copy return error, Invalid serialization.",
         [] {
             const String value = "ab";
             Serializer<String>(value, SerializeConfig{}).Serialize(nullptr);
         }},
        {"[DDS Serializer Vector] Memory copy return error, Invalid serialization.",
         [] {
             const std::vector<std::uint16_t> value = {1};
             Serializer<std::vector<std::uint16_t>>(value, SerializeConfig{}).Serialize(nullptr);
         }},
        {"[DDS Serializer] Memory copy return error, invalid data.",
         [] {
             const LatencyIndex value;
             Serializer<LatencyIndex>(value, SerializeConfig{}).Serialize(nullptr);
         }},
    };
    for (const auto& c : cases) {
        ClearLog();
        c.write();
        EXPECT_TRUE(Logged(LogLevel::kError, c.line)) << c.line;
    }
}

TEST_F(DdsSerializerTest, ShortOrOverlongCountsFailWithoutOverflow) {
    const struct {
        const char* name;
        Bytes stream;
    } strings[] = {
        {"3 bytes: the count reads as all ones", {1, 0, 0}},
        {"count 0xFFFFFFFF", {0xFF, 0xFF, 0xFF, 0xFF, 'a'}},
        {"count past the stream", {3, 0, 0, 0, 'a', 'b'}},
    };
    for (const auto& c : strings) {
        Deserializer<String> reader(c.stream.data(), c.stream.size());
        EXPECT_TRUE(LogsPeerLine("Deserialization of String failed, insufficient data.", [&] {
            EXPECT_EQ(reader.GetSize(), kSizeFailure) << c.name;
        })) << c.name;
    }
    const Bytes huge = {0xFF, 0xFF, 0xFF, 0xFF, 0x01, 0x00};
    Deserializer<std::vector<std::uint16_t>> vector(huge.data(), huge.size());
    EXPECT_TRUE(LogsPeerLine("Deserialization[DDS] size counter failed, insufficient data.",
                             [&] { EXPECT_EQ(vector.GetSize(), kSizeFailure); }));
    EXPECT_TRUE(Logged(LogLevel::kVerbose, "Deserialization of Vector failed, insufficient data."));
    const Bytes manyStrings = {0xFE, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0};
    Deserializer<std::vector<String>> sequence(manyStrings.data(), manyStrings.size());
    EXPECT_EQ(sequence.GetSize(), kSizeFailure);
    const Bytes manyPairs = {0xFE, 0xFF, 0xFF, 0xFF, 0, 0};
    Deserializer<std::map<DriverType, String>> map(manyPairs.data(), manyPairs.size());
    EXPECT_EQ(map.GetSize(), kSizeFailure);
}

TEST_F(DdsSerializerTest, ATruncatedRecordFailsTheSizePassAndKeepsDefaultsInItsTail) {
    const LatencyQueryInfo value = MakeLatencyQueryInfo(3);
    const Bytes full = Write(value);
    // period (2) + drivers (4 + 2 * 2) + serviceId (2): cut inside instanceId.
    const std::size_t cut = 2 + 8 + 2 + 1;
    Deserializer<LatencyQueryInfo> reader(full.data(), cut);
    EXPECT_TRUE(LogsPeerLine("Deserialization[DDS] size counter failed, insufficient data.",
                             [&] { EXPECT_EQ(reader.GetSize(), kSizeFailure); }));
    LatencyQueryInfo expected;
    expected.period = value.period;
    expected.index.drivers = value.index.drivers;
    expected.index.serviceId = value.index.serviceId;
    EXPECT_TRUE(
        LogsPeerLine("Deserialization of trivially copyable type failed, insufficient data!",
                     [&] { EXPECT_EQ(reader.GetValue(), expected); }));
    // Read over a kept value, the tail still comes out as defaults, with the same line.
    LatencyQueryInfo kept = MakeLatencyQueryInfo(4);
    EXPECT_TRUE(
        LogsPeerLine("Deserialization of trivially copyable type failed, insufficient data!",
                     [&] { EXPECT_FALSE(reader.GetValue(kept)); }));
    EXPECT_EQ(kept, expected);

    for (std::size_t shorter = 0; shorter < full.size(); ++shorter) {
        Deserializer<LatencyQueryInfo> partial(full.data(), shorter);
        EXPECT_EQ(partial.GetSize(), kSizeFailure) << shorter;
    }
}

// Values are read straight into the map's nodes: a repeated key must keep the first value, and
// a pair cut short must leave nothing behind.
TEST_F(DdsSerializerTest, MapsKeepTheFirstOfARepeatedKeyAndDropAPairCutShort) {
    const Bytes repeated = {3, 0, 0, 0,                  // three pairs
                            1, 0, 1, 0, 0, 0, 'a',       // SOMEIP -> "a"
                            1, 0, 2, 0, 0, 0, 'b', 'c',  // SOMEIP again -> "bc", dropped
                            0, 0, 1, 0, 0, 0, 'z'};      // DDS, out of order -> "z"
    Deserializer<std::map<DriverType, String>> reader(repeated.data(), repeated.size());
    EXPECT_EQ(reader.GetSize(), repeated.size());
    const std::map<DriverType, String> expected = {{DriverType::DDS, "z"},
                                                   {DriverType::SOMEIP, "a"}};
    EXPECT_EQ(reader.GetValue(), expected);

    const EventRegisterInfo record = MakeEventRegister(1);
    const Bytes full = Write(record);
    Deserializer<EventRegisterInfo> whole(full.data(), full.size());
    EXPECT_EQ(whole.GetValue(), record);
    // Cut inside the second event of eventMap_: the map comes out empty, not half read.
    const std::size_t cut = 4 + record.name.size() + 4 + record.appName.size() + 4 + 2 +
                            Write(record.eventMap_.begin()->second).size() + 2 + 10;
    Deserializer<EventRegisterInfo> shortened(full.data(), cut);
    EXPECT_TRUE(LogsPeerLine("Insufficient arguments from remote end",
                             [&] { EXPECT_TRUE(shortened.GetValue().eventMap_.empty()); }));
}

}  // namespace
}  // namespace wardend::test
