// Packed records come back field for field; damaged bytes are refused, never read past.

#include "registry/packed_record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records/wardend_records.h"
#include "registry/packed_someip.h"
#include "tests/unit/serialize/sample_records.h"

namespace wardend::test {
namespace {

template <typename T>
std::string Pack(const T& value) {
    vesk::wardend::RecordPacker packer;
    packer.Put(value);
    return packer.Take();
}

template <typename T>
bool Unpack(std::string_view bytes, T& value) {
    vesk::wardend::RecordUnpacker unpacker(bytes);
    unpacker.Get(value);
    return unpacker.Ok() && unpacker.AtEnd();
}

template <typename T>
class PackedRecordTest : public ::testing::Test {};

using Records = ::testing::Types<EventRegisterInfo, EventInfoWithPubSub, MethodRegisterInfo,
                                 AppRegisterInfo, NodeInfo>;
// NOLINTNEXTLINE(clang-diagnostic-gnu-zero-variadic-macro-arguments): GoogleTest's own macro
TYPED_TEST_SUITE(PackedRecordTest, Records);

// Every field set, so that none can be dropped or swapped unseen; a default record packs into
// one byte.
TYPED_TEST(PackedRecordTest, EveryFieldComesBack) {
    for (const auto& sample : {Filled<TypeParam>(7), TypeParam{}}) {
        const std::string bytes = Pack(sample);
        if (sample == TypeParam{}) {
            EXPECT_EQ(bytes.size(), 1U);
        }
        TypeParam read;
        ASSERT_TRUE(Unpack(bytes, read));
        EXPECT_EQ(read, sample);
    }
}

TYPED_TEST(PackedRecordTest, EveryShorterPrefixIsRefused) {
    const std::string bytes = Pack(Filled<TypeParam>(7));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        TypeParam read;
        EXPECT_FALSE(Unpack(std::string_view(bytes).substr(0, size), read)) << size;
    }
}

// The SOME/IP form written from the packed bytes is PlainWriter's of the record, in both byte
// orders and string forms, for records with every field set and at their defaults; a writer
// never writes past its capacity.
template <lumo::serialize::ByteOrder kOrder, typename T>
void ExpectSomeipFromPacked(const T& sample, bool raw) {
    const lumo::serialize::someip::PlainWriter<kOrder> plain(raw);
    std::vector<unsigned char> expected(plain.Size(sample));
    plain.Write(sample, expected.data());

    const std::string bytes = Pack(sample);
    vesk::wardend::PackedSomeipReader sizer(bytes);
    vesk::wardend::SomeipOut<kOrder, false> counted(nullptr, raw);
    sizer.Copy<T>(counted);
    ASSERT_TRUE(sizer.Ok() && sizer.AtEnd());
    ASSERT_EQ(counted.Written(), expected.size());

    std::vector<unsigned char> written(expected.size() + 8, 0xAA);
    vesk::wardend::PackedSomeipReader reader(bytes);
    vesk::wardend::SomeipOut<kOrder, true> out(written.data(), raw, expected.size());
    reader.Copy<T>(out);
    EXPECT_TRUE(reader.Ok() && !out.Overrun());
    EXPECT_EQ(std::vector<unsigned char>(written.begin(), written.begin() + expected.size()),
              expected);

    // One byte short: the writer stops, and the byte behind its room stays.
    std::fill(written.begin(), written.end(), 0xAA);
    vesk::wardend::PackedSomeipReader shortReader(bytes);
    vesk::wardend::SomeipOut<kOrder, true> shortOut(written.data(), raw, expected.size() - 1);
    shortReader.Copy<T>(shortOut);
    EXPECT_TRUE(shortOut.Overrun());
    EXPECT_EQ(written[expected.size() - 1], 0xAA);
}

TYPED_TEST(PackedRecordTest, TheSomeipFormFromThePackedBytesIsTheRecordsOwn) {
    for (const auto& sample : {Filled<TypeParam>(7), TypeParam{}}) {
        for (const bool raw : {false, true}) {
            ExpectSomeipFromPacked<lumo::serialize::ByteOrder::kBigEndian>(sample, raw);
            ExpectSomeipFromPacked<lumo::serialize::ByteOrder::kLittleEndian>(sample, raw);
        }
    }
    const std::string bytes = Pack(Filled<TypeParam>(7));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        vesk::wardend::PackedSomeipReader reader(std::string_view(bytes).substr(0, size));
        vesk::wardend::SomeipOut<lumo::serialize::ByteOrder::kBigEndian, false> out(nullptr, false);
        reader.Copy<TypeParam>(out);
        EXPECT_FALSE(reader.Ok()) << size;
    }
}

TEST(PackedRecordLimitsTest, NumbersAtTheEndsOfTheirRanges) {
    for (const std::int32_t pid : {std::numeric_limits<std::int32_t>::min(), -1, 0, 1,
                                   std::numeric_limits<std::int32_t>::max()}) {
        LatencyAppInfo info;
        info.sampleCount = std::numeric_limits<std::uint64_t>::max();
        info.result.minimum = 0x80;
        NodeRegisterInfo node;
        node.pid = pid;
        LatencyAppInfo readInfo;
        NodeRegisterInfo readNode;
        ASSERT_TRUE(Unpack(Pack(info), readInfo));
        ASSERT_TRUE(Unpack(Pack(node), readNode));
        EXPECT_EQ(readInfo, info);
        EXPECT_EQ(readNode, node) << pid;
    }
}

TEST(PackedRecordLimitsTest, AValueBeyondItsFieldOrALengthBeyondTheBytesIsRefused) {
    // A uint16 field (ServiceIdentifier's width) given 0x10000: 0x80 0x80 0x04.
    std::uint16_t narrow = 0;
    EXPECT_FALSE(Unpack(std::string("\x80\x80\x04", 3), narrow));
    // A string that claims 100 bytes where 2 follow.
    String text;
    EXPECT_FALSE(Unpack(std::string("\x64"
                                    "ab",
                                    3),
                        text));
    // A number that never ends.
    std::uint64_t wide = 0;
    EXPECT_FALSE(Unpack(std::string(11, '\xFF'), wide));
}

// A query keeps a copy of a registration that a new one may replace in the registry meanwhile.
TEST(PackedBytesTest, ACopyKeepsItsBytesWhateverHappensToTheOriginal) {
    using vesk::wardend::PackedBytes;
    auto original = std::make_unique<PackedBytes>("first");
    const PackedBytes copy = *original;
    PackedBytes assigned;
    assigned = copy;
    *original = PackedBytes("second");
    EXPECT_EQ(original->View(), "second");
    original.reset();
    EXPECT_EQ(copy.View(), "first");
    EXPECT_EQ(assigned.View(), "first");
    PackedBytes moved(std::move(assigned));
    EXPECT_EQ(moved.View(), "first");
    EXPECT_TRUE(PackedBytes("").View().empty());
}

}  // namespace
}  // namespace wardend::test
