// Known answers computed by hand from the wire rules, and the edge cases of the SOME/IP family.

#include <gtest/gtest.h>

#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "tests/unit/serialize/node_builder.h"
#include "tests/unit/serialize/sample_records.h"
#include "tests/unit/serialize/serialize_test_support.h"

namespace wardend::test {
namespace {

using lumo::serialize::kSizeFailure;
using lumo::serialize::SerializeConfig;
using lumo::serialize::someip::Deserializer;
using lumo::serialize::someip::Serializer;

template <typename T>
Bytes Write(const T& value, const SerializeConfig& config,
            const std::shared_ptr<SerializationNode>& node = nullptr, bool isLast = true) {
    return Written(Serializer<T>(value, config, node, 0, isLast));
}

// Member nodes with ids 1, 2, 3 under a TLV root.
std::shared_ptr<SerializationNode> ListenerTlvNode(bool dynamic, std::uint8_t width = 4) {
    return BuildRootNode<ListenerParams>(
        NodeStyle{0, ByteOrder::kBigEndian, true, dynamic, width, 0, false});
}

class SomeipSerializerTest : public SerializeLogTest {};

TEST_F(SomeipSerializerTest, KnownAnswers) {
    const Bytes index = {
        0x00, 0x00, 0x00, 0x02, 0x00, 0x01,  // drivers: 2 bytes, SOMEIP
        0x12, 0x34,                          // serviceId
        0x00, 0x01,                          // instanceId
        0x00, 0x00, 0x00, 0x06,              // topicName: BOM + 2 chars + terminator
        0xEF, 0xBB, 0xBF, 'a',  'b',  0x00,  //
        0x80, 0x02,                          // eventId
    };
    EXPECT_EQ(Write(SmallIndex(), SerializeConfig{}), index);
    EXPECT_EQ(Write(LatencySwitch{LatencyMode::kOn, SmallIndex()}, SerializeConfig{}),
              Cat({{0x01}, index}));  // mode, then the nested index without a length field

    const Bytes field = {
        0x00, 0x00, 0x00, 0x05, 0xEF, 0xBB, 0xBF, 'a',  0x00,  // appName
        0x00, 0x00, 0x00, 0x04, 0xEF, 0xBB, 0xBF, 0x00,        // fieldType, empty
        0x00, 0x00, 0x00, 0x0B,                                // drivers: 11 bytes of pairs
        0x00, 0x00,                                            //   key DDS
        0x00, 0x00, 0x00, 0x05, 0xEF, 0xBB, 0xBF, 'x',  0x00,  //   value "x"
        0x00, 0x09,                                            // instanceId
        0x01,                                                  // isRegister
        0xFF, 0xFF, 0xFF, 0xFE,                                // pid -2
    };
    EXPECT_EQ(Write(SmallField(), SerializeConfig{}), field);

    SerializeConfig config;
    config.byteOrder = ByteOrder::kLittleEndian;
    config.isStringRaw = true;
    config.stringLengthField = 2;
    config.structLengthField = 1;
    const Bytes littleRaw = {
        0x10,                    // struct length: the 16 bytes behind it
        0x02, 0x00, 0x00, 0x00,  // drivers: 2 bytes
        0x01, 0x00,              // SOMEIP
        0x34, 0x12,              // serviceId
        0x01, 0x00,              // instanceId
        0x02, 0x00, 'a',  'b',   // topicName, raw, 2-byte length
        0x02, 0x80,              // eventId
    };
    EXPECT_EQ(Write(SmallIndex(), config), littleRaw);
}

// Values without a node go through a writer of their own. A node tree that changes nothing
// (no alignment, no tags, the same widths and byte order) sends the same values through the
// general writer: both must give the same bytes.
template <typename T>
void ExpectPlainEqualsGeneral(const T& value, const char* name) {
    const struct {
        const char* name;
        ByteOrder order;
        bool raw;
    } shapes[] = {{"big-endian", ByteOrder::kBigEndian, false},
                  {"little-endian", ByteOrder::kLittleEndian, false},
                  {"raw", ByteOrder::kBigEndian, true}};
    for (const auto& shape : shapes) {
        SerializeConfig config;
        config.byteOrder = shape.order;
        config.isStringRaw = shape.raw;
        const auto neutral =
            BuildRootNode<T>(NodeStyle{0, shape.order, false, false, 4, 0, shape.raw});
        const Bytes plain = Write(value, config);
        ASSERT_FALSE(plain.empty()) << name << ", " << shape.name;
        EXPECT_EQ(plain, Write(value, SerializeConfig{}, neutral)) << name << ", " << shape.name;
    }
}

TEST_F(SomeipSerializerTest, ThePlainWriterGivesTheGeneralWritersBytes) {
    ExpectPlainEqualsGeneral(MakeEventRegistration(), "event registration");
    ExpectPlainEqualsGeneral(Filled<AppRegisterInfo>(3), "method registration");
    ExpectPlainEqualsGeneral(QueryEventInfoOutput{{Filled<EventInfoWithPubSub>(1)}}, "event query");
    ExpectPlainEqualsGeneral(
        QueryLatencyStatusOutput{{{"p", LatencyMode::kOn}, {"q", LatencyMode::kOff}}, {}},
        "latency status");
    ExpectPlainEqualsGeneral(Filled<NodeInfo>(2), "node");
}

// A null buffer is refused before the first copy; nothing is written.
TEST_F(SomeipSerializerTest, ANullBufferIsRefused) {
    const LatencyIndex index = SmallIndex();
    Serializer<LatencyIndex> writer(index, SerializeConfig{});
    ASSERT_NE(writer.GetSize(), kSizeFailure);
    writer.Serialize(nullptr);
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[Someip Serializer] Memory copy return error, Invalid serialization."));
}

TEST_F(SomeipSerializerTest, PaddingIsRelativeToTheMessageAndFollowsTheValue) {
    const auto node = BuildRootNode<ListenerParams>(
        NodeStyle{4, ByteOrder::kBigEndian, false, false, 4, 0, false});
    const ListenerParams value{"ab", 1, 2};
    const Bytes expected = {
        0x00, 0x00, 0x00, 0x06, 0xEF, 0xBB, 0xBF, 'a', 'b', 0x00,  // guid ends at 16 + 10 = 26
        0xCC, 0xCC,                                                // padding to 28, not written
        0x00, 0x00, 0x00, 0x01,                                    // writerPid
        0x00, 0x00, 0x00, 0x02,                                    // readerPid, nothing behind
    };
    EXPECT_EQ(Write(value, SerializeConfig{}, node), expected);

    Deserializer<ListenerParams> reader(expected.data(), expected.size(), node);
    EXPECT_EQ(reader.GetSize(), expected.size());
    EXPECT_EQ(reader.GetValue(), value);

    // Shifted by 2: guid ends at 2 + 16 + 11 = 29 and is padded by 3.
    const ListenerParams longer{"abc", 1, 2};
    Serializer<ListenerParams> shifted(longer, SerializeConfig{}, node, 2, false);
    EXPECT_EQ(shifted.GetSize(), 11U + 3U + 8U);

    // Not last in the stream, a structure is padded as a whole: 16 + 3 bytes -> 1 byte.
    const auto statusNode = BuildRootNode<LatencyStatus>(
        NodeStyle{4, ByteOrder::kBigEndian, false, false, 4, 0, false});
    const LatencyStatus status{LatencyMode::kOn, true, false};
    Serializer<LatencyStatus> notLast(status, SerializeConfig{}, statusNode, 0, false);
    EXPECT_EQ(notLast.GetSize(), 4U);
    EXPECT_EQ(notLast.GetPadding(), 1U);
    EXPECT_EQ(Write(status, SerializeConfig{}, statusNode, true), (Bytes{0x01, 0x01, 0x00}));
}

// Flat and nested, with static and dynamic length widths.
TEST_F(SomeipSerializerTest, TlvKnownAnswers) {
    const ListenerParams value{"ab", 1, 2};
    const Bytes staticWidth = {
        0x40, 0x01, 0x00, 0x00, 0x00, 0x06,  // tag: wire type 4, id 1; 4-byte length
        0xEF, 0xBB, 0xBF, 'a',  'b',  0x00,  // guid
        0x20, 0x02, 0x00, 0x00, 0x00, 0x01,  // tag: wire type 2, id 2; writerPid
        0x20, 0x03, 0x00, 0x00, 0x00, 0x02,  // tag: wire type 2, id 3; readerPid
    };
    EXPECT_EQ(Write(value, SerializeConfig{}, ListenerTlvNode(false)), staticWidth);
    const Bytes dynamicWidth = {
        0x50, 0x01, 0x06, 0xEF, 0xBB, 0xBF, 'a', 'b', 0x00,  // wire type 5: 1-byte length
        0x20, 0x02, 0x00, 0x00, 0x00, 0x01,                  //
        0x20, 0x03, 0x00, 0x00, 0x00, 0x02,                  //
    };
    EXPECT_EQ(Write(value, SerializeConfig{}, ListenerTlvNode(true)), dynamicWidth);

    const LatencySwitch nested{LatencyMode::kOn, SmallIndex()};
    const Bytes nestedStatic = {
        0x00, 0x01, 0x01,                                // mode: wire type 0, id 1
        0x40, 0x02, 0x00, 0x00, 0x00, 0x20,              // index: wire type 4, 32 bytes
        0x40, 0x01, 0x00, 0x00, 0x00, 0x02, 0x00, 0x01,  //   drivers: SOMEIP
        0x10, 0x02, 0x12, 0x34,                          //   serviceId: wire type 1
        0x10, 0x03, 0x00, 0x01,                          //   instanceId
        0x40, 0x04, 0x00, 0x00, 0x00, 0x06,              //   topicName
        0xEF, 0xBB, 0xBF, 'a',  'b',  0x00,              //
        0x10, 0x05, 0x80, 0x02,                          //   eventId
    };
    const auto staticNode =
        BuildRootNode<LatencySwitch>(NodeStyle{0, ByteOrder::kBigEndian, true, false, 4, 0, false});
    EXPECT_EQ(Write(nested, SerializeConfig{}, staticNode), nestedStatic);

    const Bytes nestedDynamic = {
        0x00, 0x01, 0x01,                    // mode
        0x50, 0x02, 0x1A,                    // index: wire type 5, 26 bytes
        0x50, 0x01, 0x02, 0x00, 0x01,        //   drivers
        0x10, 0x02, 0x12, 0x34,              //   serviceId
        0x10, 0x03, 0x00, 0x01,              //   instanceId
        0x50, 0x04, 0x06,                    //   topicName
        0xEF, 0xBB, 0xBF, 'a',  'b',  0x00,  //
        0x10, 0x05, 0x80, 0x02,              //   eventId
    };
    const auto dynamicNode =
        BuildRootNode<LatencySwitch>(NodeStyle{0, ByteOrder::kBigEndian, true, true, 4, 0, false});
    EXPECT_EQ(Write(nested, SerializeConfig{}, dynamicNode), nestedDynamic);
}

// Members in another order, unknown ids and absent members are read; a member over the end of
// the buffer is refused.
TEST_F(SomeipSerializerTest, TlvMembersInAnyOrderAndAMemberOverTheBuffer) {
    const Bytes stream = {
        0x20, 0x03, 0x00, 0x00, 0x00, 0x02,              // readerPid first
        0x70, 0x09, 0x00, 0x00, 0x00, 0x02, 0xAA, 0xBB,  // id 9: unknown, skipped
        0x40, 0x01, 0x00, 0x00, 0x00, 0x06,              // guid last
        0xEF, 0xBB, 0xBF, 'a',  'b',  0x00,              // (writerPid absent)
    };
    Deserializer<ListenerParams> reader(stream.data(), stream.size(), ListenerTlvNode(false));
    EXPECT_TRUE(LogsPeerLine("Deserialization, cannot find dataId",
                             "Deserialization, cannot find dataId[dataId=2]",
                             [&] { EXPECT_EQ(reader.GetSize(), stream.size()); }));
    EXPECT_EQ(reader.GetValue(), (ListenerParams{"ab", 0, 2}));

    const Bytes overBuffer = {0x20, 0x02, 0x00, 0x00, 0x00, 0x01, 0x50, 0x01, 0x10, 0xEF};
    Deserializer<ListenerParams> cut(overBuffer.data(), overBuffer.size(), ListenerTlvNode(false));
    EXPECT_EQ(cut.GetSize(), kSizeFailure);
}

TEST_F(SomeipSerializerTest, StringEdgeCases) {
    SerializeConfig raw;
    raw.isStringRaw = true;
    SerializeConfig oneByte;
    oneByte.stringLengthField = 1;
    EXPECT_EQ(Write(String{}, SerializeConfig{}), (Bytes{0, 0, 0, 4, 0xEF, 0xBB, 0xBF, 0}));
    EXPECT_EQ(Write(String{}, raw), (Bytes{0, 0, 0, 0}));

    // 252 characters + BOM + terminator = 256 > 0xFF.
    const String text252(252, 'x');
    const String text251(251, 'x');
    EXPECT_EQ(Serializer<String>(text252, oneByte).GetSize(), kSizeFailure);
    EXPECT_EQ(Serializer<String>(text251, oneByte).GetSize(), 256U);
    // A member that fails makes the whole record fail.
    NodeInfo node;
    node.methods = {text252};
    EXPECT_EQ(Serializer<NodeInfo>(node, oneByte).GetSize(), kSizeFailure);

    // With a data id and a dynamic length field the width grows to 2 instead.
    auto tagged = std::make_shared<SerializationNode>();
    tagged->dataId = 1;
    tagged->isDynamicLengthField = 1;
    tagged->stringLengthField = 1;
    Serializer<String> dynamic(text252, SerializeConfig{}, tagged);
    EXPECT_EQ(dynamic.GetSize(), 258U);
    EXPECT_EQ(dynamic.GetLengthWidth(), 2U);
    Bytes out(258);
    dynamic.Serialize(out.data());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + 5), (Bytes{0x01, 0x00, 0xEF, 0xBB, 0xBF}));
}

TEST_F(SomeipSerializerTest, LengthFieldLimitsByWidth) {
    const struct {
        std::uint64_t width;
        std::uint64_t limit;
    } cases[] = {{1, 0xFF},       {2, 0xFFFF},     {3, 0xFFFFFFFF},
                 {4, 0xFFFFFFF0}, {0, 0xFFFFFFFF}, {8, 0xFFFFFFFF}};
    for (const auto& c : cases) {
        EXPECT_EQ(lumo::serialize::LengthFieldLimit(c.width), c.limit) << c.width;
    }
    SerializeConfig twoBytes;
    twoBytes.vectorLengthField = 2;
    const std::vector<std::uint8_t> fits(0xFFFF);
    const std::vector<std::uint8_t> tooLong(0x10000);
    EXPECT_EQ(Serializer<std::vector<std::uint8_t>>(fits, twoBytes).GetSize(), 0xFFFFU + 2U);
    EXPECT_EQ(Serializer<std::vector<std::uint8_t>>(tooLong, twoBytes).GetSize(), kSizeFailure);
}

TEST_F(SomeipSerializerTest, MalformedStringsAreRefused) {
    const Bytes good = {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 0};
    Deserializer<String> reader(good.data(), good.size(), SerializeConfig{});
    EXPECT_EQ(reader.GetSize(), good.size());
    EXPECT_EQ(reader.GetValue(), "ab");

    const struct {
        const char* name;
        Bytes stream;
    } cases[] = {
        {"wrong third BOM byte", {0, 0, 0, 6, 0xEF, 0xBB, 0xBE, 'a', 'b', 0}},
        {"no terminator", {0, 0, 0, 6, 0xEF, 0xBB, 0xBF, 'a', 'b', 'c'}},
        {"length below BOM and terminator", {0, 0, 0, 3, 0xEF, 0xBB, 0xBF, 0}},
        {"length overshoots", {0, 0, 0, 7, 0xEF, 0xBB, 0xBF, 'a', 'b', 0}},
        {"length field cut", {0, 0, 0}},
        {"huge length", {0xFF, 0xFF, 0xFF, 0xFF, 0xEF, 0xBB, 0xBF, 0}},
    };
    for (const auto& c : cases) {
        Deserializer<String> bad(c.stream.data(), c.stream.size(), SerializeConfig{});
        EXPECT_TRUE(LogsPeerLine("Construct deserialization for String failed, insufficient data.",
                                 [&] { EXPECT_EQ(bad.GetSize(), kSizeFailure) << c.name; }))
            << c.name;
        EXPECT_EQ(bad.SetDataLength(), kSizeFailure) << c.name;
    }
}

// A vector of uneven length is refused, and so is one of raw strings without a length field,
// which take no bytes and must not loop the reader.
TEST_F(SomeipSerializerTest, VectorsThatCannotBeReadAreRefused) {
    const Bytes stream = {0, 0, 0, 3, 0x00, 0x01, 0x02};
    Deserializer<std::vector<std::uint16_t>> reader(stream.data(), stream.size(),
                                                    SerializeConfig{});
    EXPECT_TRUE(LogsPeerLine("Construct deserialization for Vector failed, invalid size parameter!",
                             [&] { EXPECT_EQ(reader.GetSize(), kSizeFailure); }));

    SerializeConfig config;
    config.isStringRaw = true;
    config.stringLengthField = 0;
    const Bytes strings = {0, 0, 0, 2, 'a', 'b'};
    Deserializer<std::vector<String>> zeroWidth(strings.data(), strings.size(), config);
    EXPECT_EQ(zeroWidth.GetSize(), kSizeFailure);
}

TEST_F(SomeipSerializerTest, TooFewConfigurationNodesFailTheSize) {
    auto node = BuildRootNode<ListenerParams>(NodeStyle{});
    node->members->pop_back();
    const ListenerParams value{"g", 1, 2};
    Serializer<ListenerParams> writer(value, SerializeConfig{}, node);
    EXPECT_TRUE(LogsPeerLine(
        "SerializeSizeCounter",
        "[SomeipSerializeSizeCounter][The number of configuration nodes is less than the number "
        "of data members, please check the consistency of the configuration and header files]",
        [&] { EXPECT_EQ(writer.GetSize(), kSizeFailure); }));
}

TEST_F(SomeipSerializerTest, ShortIntegerReadsLogAndKeepTheBytesThereAre) {
    const Bytes stream = {0xAB};
    Deserializer<std::uint16_t> reader(stream.data(), stream.size(), SerializeConfig{});
    EXPECT_TRUE(LogsPeerLine(
        "[Deserializer] The length of the actual code stream is less than the required code "
        "stream",
        "[Deserializer] The length of the actual code stream is less than the required code "
        "stream[actualSize=1, requiredSize=2]",
        [&] { EXPECT_EQ(reader.GetSize(), kSizeFailure); }));
    EXPECT_EQ(reader.GetValue(), 0xAB00);
}

TEST_F(SomeipSerializerTest, EveryTruncationOfARecordIsRefused) {
    const auto value = Filled<AppRegisterInfo>(1);
    for (const auto& node :
         {std::shared_ptr<SerializationNode>{},
          // With a root length field; without one, a cut at a tag would be absent members.
          BuildRootNode<AppRegisterInfo>(
              NodeStyle{0, ByteOrder::kBigEndian, true, true, 4, 4, false})}) {
        const Bytes full = Write(value, SerializeConfig{}, node);
        ASSERT_FALSE(full.empty());
        // Every cut inside the record's last bytes, and a spread of cuts before them.
        for (std::size_t cut = 0; cut < full.size(); cut += (cut + 64 < full.size() ? 37 : 1)) {
            if (node != nullptr) {
                Deserializer<AppRegisterInfo> reader(full.data(), cut, node);
                EXPECT_EQ(reader.GetSize(), kSizeFailure) << "TLV cut at " << cut;
            } else {
                Deserializer<AppRegisterInfo> reader(full.data(), cut, SerializeConfig{});
                EXPECT_EQ(reader.GetSize(), kSizeFailure) << "cut at " << cut;
            }
        }
    }
}

// A large answer is read into one allocation of its size, in either byte order, also over a
// kept vector too small for it; a vector whose last record is cut is still refused.
TEST_F(SomeipSerializerTest, ARecordVectorIsReadIntoOneAllocationOfItsSize) {
    vesk::wardend::QueryEventInfoOutput answer;
    for (int seed = 0; seed < 300; ++seed) {
        answer.eventInfos.push_back(seed % 3 == 0
                                        ? vesk::wardend::EventInfoWithPubSub{}
                                        : Filled<vesk::wardend::EventInfoWithPubSub>(seed));
    }
    SerializeConfig little;
    little.byteOrder = ByteOrder::kLittleEndian;
    for (const SerializeConfig& config : {SerializeConfig{}, little}) {
        const Bytes full = Write(answer, config);
        for (const std::size_t kept : {0, 7}) {
            vesk::wardend::QueryEventInfoOutput out;
            out.eventInfos.resize(kept);
            ASSERT_TRUE(
                Deserializer<vesk::wardend::QueryEventInfoOutput>(full.data(), full.size(), config)
                    .GetValue(out));
            EXPECT_EQ(out, answer);
            EXPECT_EQ(out.eventInfos.capacity(), answer.eventInfos.size());
        }
        // A vector length one short cuts its last record inside the vector.
        Bytes shorter = full;
        lumo::serialize::detail::StoreUint(
            shorter.data(), lumo::serialize::detail::LoadUint(full.data(), 4, config.byteOrder) - 1,
            4, config.byteOrder);
        Deserializer<vesk::wardend::QueryEventInfoOutput> cut(shorter.data(), shorter.size(),
                                                              config);
        EXPECT_EQ(cut.GetSize(), kSizeFailure);
    }
}

TEST_F(SomeipSerializerTest, StructLengthFieldSkipsMembersThisSideDoesNotKnow) {
    SerializeConfig config;
    config.structLengthField = 2;
    const ListenerParams value{"g", 7, 8};
    Bytes stream = Write(value, config);
    stream[1] = static_cast<unsigned char>(stream[1] + 3);  // a newer sender added 3 bytes
    stream.insert(stream.end(), {0x01, 0x02, 0x03});
    Deserializer<ListenerParams> reader(stream.data(), stream.size(), config);
    EXPECT_EQ(reader.GetSize(), stream.size());
    EXPECT_EQ(reader.GetValue(), value);
}

// Map values are read straight into the map's nodes: a repeated key keeps the first value, and
// a pair that fails leaves no node behind while the pairs before it stay.
TEST_F(SomeipSerializerTest, MapsKeepTheFirstOfARepeatedKeyAndNoHalfReadPair) {
    // A pair in the default configuration: big-endian key, then the string with length field,
    // byte order mark and terminator.
    const auto pair = [](std::uint16_t key, const std::string& text, bool goodMark = true) {
        const auto content = static_cast<unsigned char>(3 + text.size() + 1);
        return Cat({{static_cast<unsigned char>(key >> 8U), static_cast<unsigned char>(key)},
                    {0, 0, 0, content, 0xEF, 0xBB, static_cast<unsigned char>(goodMark ? 0xBF : 0)},
                    Chars(text),
                    {0}});
    };
    const auto map = [](const std::vector<Bytes>& pairs) {
        Bytes content;
        for (const Bytes& p : pairs) {
            content = Cat({content, p});
        }
        return Cat({{0, 0, 0, static_cast<unsigned char>(content.size())}, content});
    };
    using Map = std::map<DriverType, String>;

    const Bytes repeated = map({pair(1, "a"), pair(1, "bc"), pair(0, "z")});
    Deserializer<Map> reader(repeated.data(), repeated.size(), SerializeConfig{});
    EXPECT_EQ(reader.GetSize(), repeated.size());
    EXPECT_EQ(reader.GetValue(), (Map{{DriverType::DDS, "z"}, {DriverType::SOMEIP, "a"}}));

    const Bytes broken = map({pair(1, "a"), pair(0, "bad", false)});
    Deserializer<Map> failing(broken.data(), broken.size(), SerializeConfig{});
    EXPECT_TRUE(LogsPeerLine("Deserialization of pair failed, insufficient second data.",
                             [&] { EXPECT_EQ(failing.GetSize(), kSizeFailure); }));
    EXPECT_EQ(failing.GetValue(), (Map{{DriverType::SOMEIP, "a"}}));
}

}  // namespace
}  // namespace wardend::test
