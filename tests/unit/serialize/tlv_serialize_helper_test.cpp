#include "binding/serialize/tlv_serialize_helper.h"

#include <gtest/gtest.h>

#include "tests/unit/serialize/serialize_test_support.h"

namespace wardend::test {
namespace {

using lumo::serialize::ByteOrder;
using lumo::serialize::kSizeFailure;
using tlv::serialize::DataIdParams;
using tlv::serialize::TlvSerializeHelper;

class TlvSerializeHelperTest : public SerializeLogTest {};

TEST_F(TlvSerializeHelperTest, CopyLengthFieldWritesTheLowBytesOfItsWidth) {
    const struct {
        unsigned long width;
        ByteOrder order;
        Bytes expected;
    } cases[] = {
        {0, ByteOrder::kBigEndian, {0xCC, 0xCC, 0xCC, 0xCC, 0xCC}},
        {1, ByteOrder::kBigEndian, {0x04, 0xCC, 0xCC, 0xCC, 0xCC}},
        {2, ByteOrder::kBigEndian, {0x03, 0x04, 0xCC, 0xCC, 0xCC}},
        {2, ByteOrder::kLittleEndian, {0x04, 0x03, 0xCC, 0xCC, 0xCC}},
        {4, ByteOrder::kBigEndian, {0x01, 0x02, 0x03, 0x04, 0xCC}},
        {4, ByteOrder::kLittleEndian, {0x04, 0x03, 0x02, 0x01, 0xCC}},
        {4, static_cast<ByteOrder>(7), {0x01, 0x02, 0x03, 0x04, 0xCC}},  // not 1: big-endian
    };
    for (const auto& c : cases) {
        Bytes buffer(5, 0xCC);
        TlvSerializeHelper::CopyLengthField(buffer.data(), 0x01020304UL, c.width, c.order);
        EXPECT_EQ(buffer, c.expected) << "width " << c.width;
    }
    EXPECT_FALSE(
        Logged(LogLevel::kError, "[Someip Serializer] Memory copy struct static length fail."));
    Bytes buffer(5, 0xCC);
    TlvSerializeHelper::CopyLengthField(buffer.data(), 1, 3, ByteOrder::kBigEndian);
    EXPECT_EQ(buffer, Bytes(5, 0xCC));
    EXPECT_TRUE(
        Logged(LogLevel::kError, "[Someip Serializer] Memory copy struct static length fail."));
}

struct ScanCase {
    const char* name;
    Bytes stream;
    std::uint64_t consumed;
    std::vector<DataIdParams> records;  // expected, by id
    unsigned char staticWidth;
    ByteOrder order{ByteOrder::kBigEndian};
};

TEST_F(TlvSerializeHelperTest, RecordDataIdScansTagsAndLengths) {
    const ScanCase cases[] = {
        {"empty stream", {}, 0, {}, 4},
        {"ends exactly at the last content",
         {0x20, 0x01, 0, 0, 0, 5, 0x10, 0x02, 0xAA, 0xBB},
         10,
         {{1, 2, 4, 0}, {2, 8, 2, 0}},
         4},
        {"content overshoots: consumed behind the stream",
         {0x50, 0x01, 0x10, 0xAA},
         19,
         {{1, 2, 17, 1}},
         4},
        {"duplicate id keeps the first",
         {0x00, 0x01, 0xAA, 0x00, 0x01, 0xBB},
         6,
         {{1, 2, 1, 0}},
         4},
        {"top bit ignored", {0x80, 0x01, 0xAA}, 3, {{1, 2, 1, 0}}, 4},
        {"wire types 3, 6, 7",
         {0x30, 0x07, 1, 2, 3, 4, 5, 6, 7, 8, 0x60, 0x08, 0x00, 0x01, 0xAA, 0x70, 0x09, 0, 0, 0, 0},
         21,
         {{7, 2, 8, 0}, {8, 12, 3, 2}, {9, 17, 4, 4}},
         4},
        {"wire type 4 with static width 1", {0x40, 0x05, 0x02, 0xAA, 0xBB}, 5, {{5, 2, 3, 1}}, 1},
        {"wire type 4 with static width 3: no length read",
         {0x40, 0x01, 1, 2, 3},
         5,
         {{1, 2, 3, 0}},
         3},
        {"little-endian tag 0x4005 and length 3",
         {0x05, 0x40, 0x03, 0x00, 0xAA, 0xBB, 0xCC},
         7,
         {{5, 2, 5, 2}},
         2,
         ByteOrder::kLittleEndian},
    };
    for (const auto& c : cases) {
        const auto result = TlvSerializeHelper::RecordDataId(c.order, c.staticWidth,
                                                             c.stream.data(), c.stream.size());
        EXPECT_EQ(result.consumed, c.consumed) << c.name;
        ASSERT_EQ(result.table.size(), c.records.size()) << c.name;
        for (const auto& expected : c.records) {
            const auto found = result.table.find(expected.dataId);
            ASSERT_NE(found, result.table.end()) << c.name << " id " << expected.dataId;
            EXPECT_EQ(found->second.position, expected.position) << c.name;
            EXPECT_EQ(found->second.length, expected.length) << c.name;
            EXPECT_EQ(found->second.lengthFieldWidth, expected.lengthFieldWidth) << c.name;
        }
    }
}

TEST_F(TlvSerializeHelperTest, BrokenStreamsFailTheScan) {
    const struct {
        const char* name;
        Bytes stream;
        unsigned char staticWidth;
        const char* tag = "";
        const char* line = "";  // empty: no line is asked for
    } cases[] = {
        {"one stray byte behind the last member",
         {0x00, 0x01, 0xAA, 0x00},
         4,
         "[TLV] Lack of enough code stream to get tag",
         "[TLV] Lack of enough code stream to get tag"},
        {"a single byte",
         {0x00},
         4,
         "[TLV] Lack of enough code stream to get tag",
         "[TLV] Lack of enough code stream to get tag"},
        {"2-byte length cut",
         {0x60, 0x03, 0x00},
         4,
         "[TLV] Lack of enough code stream to get pos length",
         "[TLV] Lack of enough code stream to get pos length[dataId3]"},
        {"static width beyond the stream",
         {0x40, 0x02, 0x00},
         4,
         "[TLV] Lack of enough code stream to get pos length",
         "[TLV] Lack of enough code stream to get pos length[dataId2]"},
        // An overshoot that would land exactly on the failure value is a failure, not a table.
        {"overshoot to the failure value",
         {0x80, 0x00, 0xFC, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xF6, 0xFF, 0x00},
         4},
        {"wire type 4 without a static width", {0x00, 0x01, 0xAA, 0x40, 0x02, 0x00, 0x01}, 0},
    };
    for (const auto& c : cases) {
        const bool logged = LogsPeerLine(c.tag, c.line, [&] {
            const auto result = TlvSerializeHelper::RecordDataId(
                ByteOrder::kBigEndian, c.staticWidth, c.stream.data(), c.stream.size());
            EXPECT_EQ(result.consumed, kSizeFailure) << c.name;
            EXPECT_TRUE(result.table.empty()) << c.name;
        });
        EXPECT_TRUE(logged || c.line[0] == '\0') << c.name;
    }
}

}  // namespace
}  // namespace wardend::test
