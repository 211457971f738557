// Method threads share one configuration tree. Reading a TLV stream takes the length width it
// finds in the stream; that must not be written into the shared tree.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "tests/unit/serialize/node_builder.h"
#include "tests/unit/serialize/sample_records.h"

namespace wardend::test {
namespace {

using lumo::serialize::kSizeMax;
using lumo::serialize::SerializeConfig;

TEST(SerializeConcurrencyTest, ThreadsReadAndWriteWithOneSharedNodeTree) {
    const auto node = BuildRootNode<AppRegisterInfo>(
        NodeStyle{0, ByteOrder::kLittleEndian, true, true, 4, 4, false});
    const auto value = Filled<AppRegisterInfo>(2);
    lumo::serialize::someip::Serializer<AppRegisterInfo> writer(value, SerializeConfig{}, node, 0,
                                                                true);
    std::vector<unsigned char> stream(writer.GetSize());
    ASSERT_LE(stream.size(), kSizeMax);
    writer.Serialize(stream.data());

    std::atomic<int> mismatches{0};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 50; ++i) {
                lumo::serialize::someip::Deserializer<AppRegisterInfo> reader(stream.data(),
                                                                              stream.size(), node);
                if (reader.GetSize() != stream.size() || reader.GetValue() != value) {
                    ++mismatches;
                }
                lumo::serialize::someip::Serializer<AppRegisterInfo> again(value, SerializeConfig{},
                                                                           node, 0, true);
                if (again.GetSize() != stream.size()) {
                    ++mismatches;
                }
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace wardend::test
