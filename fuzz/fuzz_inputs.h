#ifndef FUZZ_FUZZ_INPUTS_H
#define FUZZ_FUZZ_INPUTS_H

// What the deserializer fuzzers feed and how: the first input byte chooses the record (the
// application service's input and each tools-service input), the second the SOME/IP settings,
// the rest is the stream. A value that reads must write and read back equal, and reading into a
// value kept from earlier streams must give what a fresh read gives.

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "records/wardend_records.h"
#include "tests/unit/serialize/node_builder.h"

namespace wardend::fuzz {

using lumo::serialize::ByteOrder;
using lumo::serialize::kSizeMax;
using lumo::serialize::SerializationNode;
using lumo::serialize::SerializeConfig;
using wardend::test::NodeStyle;

inline constexpr std::size_t kInputKinds = 6;
inline constexpr std::size_t kSomeipVariants = 5;

// Calls f with a default value of the input kind chosen by selector.
template <typename F>
void WithInputKind(std::uint8_t selector, F&& f) {
    switch (selector % kInputKinds) {
        case 0:
            f(vesk::wardend::AppRegisterInfo{});
            break;
        case 1:
            f(ara::core::String{});
            break;
        case 2:
            f(vesk::wardend::LatencyQueryInfo{});
            break;
        case 3:
            f(vesk::wardend::LatencyIndex{});
            break;
        case 4:
            f(vesk::wardend::QuerySubEventInfoIndex{});
            break;
        default:
            f(vesk::wardend::LatencySwitch{});
            break;
    }
}

// The SOME/IP settings of a variant: a configuration, or a node tree (null for plain values).
struct SomeipSettings {
    SerializeConfig config;
    std::shared_ptr<SerializationNode> node;
};

template <typename T>
SomeipSettings MakeSomeipSettings(std::uint8_t variant) {
    SomeipSettings s;
    constexpr bool kRecord = lumo::serialize::detail::IsRecord<T>::value;
    switch (variant % kSomeipVariants) {
        case 0:
            break;
        case 1:
            s.config.byteOrder = ByteOrder::kLittleEndian;
            s.config.isStringRaw = true;
            s.config.stringLengthField = 2;
            s.config.vectorLengthField = 2;
            s.config.structLengthField = 2;
            break;
        case 2:
            if constexpr (kRecord) {
                s.node = test::BuildRootNode<T>(
                    NodeStyle{4, ByteOrder::kBigEndian, false, false, 4, 0, false});
            }
            break;
        case 3:
            if constexpr (kRecord) {
                s.node = test::BuildRootNode<T>(
                    NodeStyle{0, ByteOrder::kBigEndian, true, false, 4, 0, false});
            }
            break;
        default:
            if constexpr (kRecord) {
                s.node = test::BuildRootNode<T>(
                    NodeStyle{0, ByteOrder::kLittleEndian, true, true, 4, 4, false});
            }
            break;
    }
    return s;
}

template <typename T>
bool SomeipRead(const unsigned char* data, std::size_t size, const SomeipSettings& s, T& out) {
    if (s.node != nullptr) {
        lumo::serialize::someip::Deserializer<T> reader(data, size, s.node);
        const bool ok = reader.GetSize() <= kSizeMax;
        out = reader.GetValue();
        return ok;
    }
    lumo::serialize::someip::Deserializer<T> reader(data, size, s.config);
    const bool ok = reader.GetSize() <= kSizeMax;
    out = reader.GetValue();
    return ok;
}

// As SomeipRead, into a value kept from earlier reads.
template <typename T>
bool SomeipReadInto(const unsigned char* data, std::size_t size, const SomeipSettings& s, T& kept) {
    if (s.node != nullptr) {
        lumo::serialize::someip::Deserializer<T> reader(data, size, s.node);
        return reader.GetValue(kept);
    }
    lumo::serialize::someip::Deserializer<T> reader(data, size, s.config);
    return reader.GetValue(kept);
}

template <typename T>
std::vector<unsigned char> SomeipWrite(const T& value, const SomeipSettings& s) {
    lumo::serialize::someip::Serializer<T> writer(value, s.config, s.node, 0, true);
    const std::uint64_t size = writer.GetSize();
    if (size > kSizeMax) {
        return {};
    }
    std::vector<unsigned char> out(size);
    writer.Serialize(out.data());
    return out;
}

template <typename T>
std::vector<unsigned char> DdsWrite(const T& value) {
    lumo::serialize::dds::Serializer<T> writer(value, SerializeConfig{});
    std::vector<unsigned char> out(writer.GetSize());
    writer.Serialize(out.data());
    return out;
}

// Streams read one after the other into one kept value: the input, a view of it from a later
// byte on (another value, mostly refused), its first two thirds (cut short), and the input again.
struct Stream {
    const unsigned char* data;
    std::size_t size;
};

inline std::vector<Stream> KeptValueStreams(const unsigned char* data, std::size_t size) {
    const std::size_t skip = size == 0 ? 0 : 1 + data[size - 1] % size;
    return {{data, size},
            {data + std::min(skip, size), size - std::min(skip, size)},
            {data, size * 2 / 3},
            {data, size}};
}

// A fuzzer's verdict on a property that must hold.
inline void Require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace wardend::fuzz

#endif
