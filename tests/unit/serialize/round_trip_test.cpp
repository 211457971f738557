// Every record and service input/output, filled with non-default values, written and read back
// equal in each family and under each configuration shape.

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <vector>

#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "tests/unit/serialize/node_builder.h"
#include "tests/unit/serialize/sample_records.h"
#include "tests/unit/serialize/serialize_test_support.h"

namespace wardend::test {
namespace {

using lumo::serialize::kSizeMax;
using lumo::serialize::SerializeConfig;

// A SOME/IP configuration: plain, or a node tree.
struct Settings {
    const char* name;
    SerializeConfig config;
    std::shared_ptr<SerializationNode> node;
};

template <typename T>
Bytes SomeipBytesOf(const T& value, const Settings& s) {
    return Written(lumo::serialize::someip::Serializer<T>(value, s.config, s.node, 0, true));
}

template <typename T>
Bytes DdsBytesOf(const T& value) {
    return Written(lumo::serialize::dds::Serializer<T>(value, SerializeConfig{}));
}

template <typename T>
lumo::serialize::someip::Deserializer<T> SomeipReader(const std::vector<unsigned char>& stream,
                                                      const Settings& s) {
    if (s.node != nullptr) {
        return {stream.data(), stream.size(), s.node};
    }
    return {stream.data(), stream.size(), s.config};
}

template <typename T>
void ExpectSomeipRoundTrip(const T& value, const Settings& s, const std::string& label) {
    const Bytes stream = SomeipBytesOf(value, s);
    ASSERT_FALSE(stream.empty()) << label << ": the size pass refused";
    auto reader = SomeipReader<T>(stream, s);
    EXPECT_EQ(reader.GetSize(), stream.size()) << label;
    EXPECT_EQ(reader.GetValue(), value) << label;
}

template <typename T>
class RoundTripTest : public ::testing::Test {};

using Records = ::testing::Types<
    E2EConfigInfo, DDSEventInfo, SomeipEventInfo, EventRegisterInfo, EventInfoWithPubSub,
    MethodRegisterInfo, NodeRegisterInfo, NodeInfo, LatencyAppInfo, AppRegisterInfo,
    QuerySubEventInfoIndex, LatencySwitch, LatencyQueryInfo, LatencyIndex, FieldRegisterInfo,
    ListenerParams, RegisterAppInfoOutput, SwitchLatencyModeOutput, QueryAllDataTypeOutput,
    QueryDataTypeOutput, QueryDataTypeRefListOutput, QueryEventInfoOutput, QueryEventShowOutput,
    QueryLatencyResultOutput, QueryLatencyStatusOutput, QueryMethodInfoOutput,
    QueryMethodTypeOutput, QueryNodeInfoOutput, QuerySubNodeEventInfoOutput>;
// NOLINTNEXTLINE(clang-diagnostic-gnu-zero-variadic-macro-arguments): GoogleTest's own macro
TYPED_TEST_SUITE(RoundTripTest, Records);

TYPED_TEST(RoundTripTest, SomeipConfigurationsAndNodeTrees) {
    const auto value = Filled<TypeParam>(3);
    ASSERT_NE(value, TypeParam{}) << "the sample must differ from the default";

    SerializeConfig little;
    little.byteOrder = ByteOrder::kLittleEndian;
    SerializeConfig raw;
    raw.isStringRaw = true;
    SerializeConfig narrow;  // 2-byte lengths everywhere, structures too
    narrow.stringLengthField = 2;
    narrow.vectorLengthField = 2;
    narrow.structLengthField = 2;
    SerializeConfig wideStruct;
    wideStruct.structLengthField = 4;
    wideStruct.byteOrder = ByteOrder::kLittleEndian;
    const auto tree = [](const NodeStyle& style) { return BuildRootNode<TypeParam>(style); };
    const Settings cases[] = {
        {"default", SerializeConfig{}, nullptr},
        {"little-endian", little, nullptr},
        {"raw", raw, nullptr},
        {"2-byte lengths", narrow, nullptr},
        {"4-byte struct lengths", wideStruct, nullptr},
        {"aligned 4, big-endian",
         {},
         tree(NodeStyle{4, ByteOrder::kBigEndian, false, false, 4, 0, false})},
        {"aligned 8, little-endian, raw",
         {},
         tree(NodeStyle{8, ByteOrder::kLittleEndian, false, false, 4, 0, true})},
        {"aligned 4, 2-byte lengths",
         {},
         tree(NodeStyle{4, ByteOrder::kBigEndian, false, false, 2, 0, false})},
        {"TLV static 4", {}, tree(NodeStyle{0, ByteOrder::kBigEndian, true, false, 4, 0, false})},
        {"TLV static 2, root length field",
         {},
         tree(NodeStyle{0, ByteOrder::kLittleEndian, true, false, 2, 2, false})},
        {"TLV dynamic", {}, tree(NodeStyle{0, ByteOrder::kBigEndian, true, true, 4, 0, false})},
        {"TLV dynamic, aligned elements",
         {},
         tree(NodeStyle{4, ByteOrder::kLittleEndian, true, true, 4, 4, false})},
    };
    for (const auto& c : cases) {
        ExpectSomeipRoundTrip(value, c, c.name);
    }
}

TYPED_TEST(RoundTripTest, Dds) {
    const auto value = Filled<TypeParam>(3);
    const Bytes stream = DdsBytesOf(value);
    ASSERT_FALSE(stream.empty());
    lumo::serialize::dds::Deserializer<TypeParam> reader(stream.data(), stream.size());
    EXPECT_EQ(reader.GetSize(), stream.size());
    EXPECT_EQ(reader.GetValue(), value);
}

// Plain strings are the input of six tools methods. Short ones are copied in overlapping words:
// every length around the word widths lands exactly, and the byte behind the string stays
// untouched.
TEST(RoundTripStringTest, EveryLengthIsWrittenExactlyAndReadBackInBothFamilies) {
    std::vector<String> texts = {String("a\0b", 3), String(300, 'x')};
    for (int length = 0; length <= 40; ++length) {
        texts.emplace_back();
        for (int i = 0; i < length; ++i) {
            texts.back().push_back(static_cast<char>('A' + i));
        }
    }
    for (const String& text : texts) {
        const auto length = static_cast<std::uint32_t>(text.size());
        Bytes buffer(4U + length + 1U, 0xCC);
        lumo::serialize::dds::Serializer<String> writer(text, SerializeConfig{});
        ASSERT_EQ(writer.GetSize(), 4U + length);
        writer.Serialize(buffer.data());
        Bytes expected(buffer.size(), 0xCC);
        std::memcpy(expected.data(), &length, 4);  // host order
        std::copy(text.begin(), text.end(), expected.begin() + 4);
        EXPECT_EQ(buffer, expected) << "length " << length;
        lumo::serialize::dds::Deserializer<String> reader(buffer.data(), 4U + length);
        EXPECT_EQ(reader.GetSize(), 4U + length);
        EXPECT_EQ(reader.GetValue(), text);
        ExpectSomeipRoundTrip(text, Settings{"default", {}, nullptr},
                              "length " + std::to_string(length));
    }
}

// Reading into a value kept from one message to the next: after each stream of a sequence the
// kept value must equal a fresh read of that stream, whatever the value held before.

// Registrations that differ in every way a kept value can: longer and shorter strings, more and
// fewer vector elements, map keys added, dropped and changed.
std::vector<AppRegisterInfo> Registrations() {
    auto fewerKeys = Filled<AppRegisterInfo>(3);
    fewerKeys.eventInfo.eventMap_.erase(DriverType::DDS);
    fewerKeys.fieldInfo.drivers.clear();
    fewerKeys.methodInfo.errorDomains.clear();
    auto otherKeys = Filled<AppRegisterInfo>(1234567);
    otherKeys.eventInfo.eventMap_[DriverType::SOMEIP].dds.properties = {{"another key", "v"}};
    otherKeys.listenerResult.erase(ListenerType::kLatencyTimeout);
    otherKeys.nodeInfo.e2eList.eventE2EInfos.resize(5);
    return {Filled<AppRegisterInfo>(8),
            MakeEventRegistration(),
            fewerKeys,
            otherKeys,
            Filled<AppRegisterInfo>(8),
            AppRegisterInfo{},
            Filled<AppRegisterInfo>(99999)};
}

// Streams in sequence: the registrations, each cut short once (a failing stream after a good
// one), and nothing at all.
template <typename BytesOf>
std::vector<std::vector<unsigned char>> StreamsOf(BytesOf bytesOf) {
    std::vector<std::vector<unsigned char>> streams;
    for (const AppRegisterInfo& value : Registrations()) {
        std::vector<unsigned char> stream = bytesOf(value);
        streams.push_back(stream);
        stream.resize(stream.size() * 2 / 3);
        streams.push_back(stream);
        streams.push_back(bytesOf(value));
    }
    streams.emplace_back();
    streams.push_back(bytesOf(Registrations().front()));
    return streams;
}

TEST(ReadIntoKeptValueTest, DdsEqualsAFreshReadAfterEveryStream) {
    AppRegisterInfo kept;
    for (const auto& stream : StreamsOf([](const AppRegisterInfo& v) { return DdsBytesOf(v); })) {
        lumo::serialize::dds::Deserializer<AppRegisterInfo> fresh(stream.data(), stream.size());
        lumo::serialize::dds::Deserializer<AppRegisterInfo> reader(stream.data(), stream.size());
        const bool whole = reader.GetValue(kept);
        EXPECT_EQ(kept, fresh.GetValue()) << stream.size() << " bytes";
        EXPECT_EQ(whole, fresh.GetSize() <= kSizeMax) << stream.size() << " bytes";
    }
}

TEST(ReadIntoKeptValueTest, SomeipEqualsAFreshReadAfterEveryStream) {
    SerializeConfig little;
    little.byteOrder = ByteOrder::kLittleEndian;
    little.isStringRaw = true;
    SerializeConfig narrow;
    narrow.stringLengthField = 2;
    narrow.vectorLengthField = 2;
    const Settings settings[] = {
        {"default", SerializeConfig{}, nullptr},
        {"little-endian, raw", little, nullptr},
        {"2-byte lengths", narrow, nullptr},
        {"aligned nodes", SerializeConfig{},
         BuildRootNode<AppRegisterInfo>(
             NodeStyle{4, ByteOrder::kBigEndian, false, false, 4, 0, false})},
        {"TLV", SerializeConfig{},
         BuildRootNode<AppRegisterInfo>(
             NodeStyle{0, ByteOrder::kLittleEndian, true, true, 4, 4, false})},
    };
    for (const Settings& s : settings) {
        AppRegisterInfo kept;
        const auto streams =
            StreamsOf([&](const AppRegisterInfo& v) { return SomeipBytesOf(v, s); });
        for (const auto& stream : streams) {
            auto fresh = SomeipReader<AppRegisterInfo>(stream, s);
            auto reader = SomeipReader<AppRegisterInfo>(stream, s);
            const bool whole = reader.GetValue(kept);
            EXPECT_EQ(kept, fresh.GetValue()) << s.name << ", " << stream.size() << " bytes";
            EXPECT_EQ(whole, fresh.GetSize() <= kSizeMax) << s.name;
            EXPECT_EQ(reader.GetSize(), fresh.GetSize()) << s.name;
            EXPECT_EQ(&reader.GetValue(), &kept) << s.name;
        }
    }
    // Called after GetSize(), the value read is copied out.
    const auto stream = SomeipBytesOf(Filled<AppRegisterInfo>(2), settings[0]);
    auto reader = SomeipReader<AppRegisterInfo>(stream, settings[0]);
    ASSERT_EQ(reader.GetSize(), stream.size());
    auto copy = Filled<AppRegisterInfo>(5);
    EXPECT_TRUE(reader.GetValue(copy));
    EXPECT_EQ(copy, Filled<AppRegisterInfo>(2));
}

// The point of reading over a kept value: the same shape again allocates nothing, so strings
// keep their buffers and maps their nodes.
TEST(ReadIntoKeptValueTest, TheSameShapeKeepsStringBuffersAndMapNodes) {
    const auto first = Filled<AppRegisterInfo>(1);
    const auto second = Filled<AppRegisterInfo>(2);
    const Settings plain{"default", SerializeConfig{}, nullptr};
    const auto readDds = [](const AppRegisterInfo& v, AppRegisterInfo& out) {
        const auto stream = DdsBytesOf(v);
        return lumo::serialize::dds::Deserializer<AppRegisterInfo>(stream.data(), stream.size())
            .GetValue(out);
    };
    const auto readSomeip = [&](const AppRegisterInfo& v, AppRegisterInfo& out) {
        const auto stream = SomeipBytesOf(v, plain);
        return SomeipReader<AppRegisterInfo>(stream, plain).GetValue(out);
    };
    for (const auto& read :
         {std::function<bool(const AppRegisterInfo&, AppRegisterInfo&)>(readDds),
          std::function<bool(const AppRegisterInfo&, AppRegisterInfo&)>(readSomeip)}) {
        AppRegisterInfo kept;
        ASSERT_TRUE(read(first, kept));
        const auto& properties =
            kept.eventInfo.eventMap_.at(DriverType::DDS).dds.properties;  // long values
        const char* text = properties.begin()->second.data();
        const auto* node = &*properties.begin();
        ASSERT_TRUE(read(second, kept));
        EXPECT_EQ(kept, second);
        EXPECT_EQ(&*properties.begin(), node);
        EXPECT_EQ(properties.begin()->second.data(), text);
    }
}

// A map read over a kept one: keys in the kept order are read in place, a changed key rebuilds
// the rest, and a repeated key keeps its first value either way.
TEST(ReadIntoKeptValueTest, MapsWithChangedAndRepeatedKeys) {
    using Drivers = std::map<DriverType, String>;
    const auto pair = [](std::uint16_t key, const char* value) {
        std::vector<unsigned char> bytes = {static_cast<unsigned char>(key),
                                            0,
                                            static_cast<unsigned char>(std::strlen(value)),
                                            0,
                                            0,
                                            0};
        bytes.insert(bytes.end(), value, value + std::strlen(value));
        return bytes;
    };
    const auto stream = [](std::uint8_t count,
                           std::initializer_list<std::vector<unsigned char>> pairs) {
        std::vector<unsigned char> bytes = {count, 0, 0, 0};
        for (const auto& p : pairs) {
            bytes.insert(bytes.end(), p.begin(), p.end());
        }
        return bytes;
    };
    const std::vector<unsigned char> streams[] = {
        stream(2, {pair(0, "a long value, beyond the inline buffer"), pair(1, "b")}),
        stream(3, {pair(0, "1"), pair(0, "repeated"), pair(1, "3")}),
        stream(3, {pair(1, "x"), pair(1, "y"), pair(0, "z")}),
        stream(1, {pair(1, "only")}),
        stream(2, {pair(0, "p"), pair(7, "q")}),
        stream(3, {pair(0, "p"), pair(7, "q")}),  // the third pair is missing
        stream(0, {}),
    };
    Drivers kept;
    for (const auto& bytes : streams) {
        lumo::serialize::dds::Deserializer<Drivers> fresh(bytes.data(), bytes.size());
        lumo::serialize::dds::Deserializer<Drivers> reader(bytes.data(), bytes.size());
        EXPECT_EQ(reader.GetValue(kept), fresh.GetSize() <= kSizeMax);
        EXPECT_EQ(kept, fresh.GetValue()) << bytes.size() << " bytes";
    }
}

}  // namespace
}  // namespace wardend::test
