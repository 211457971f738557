// DDS deserializers of AppRegisterInfo and of each tools-service input. Whatever the size pass
// accepts must read, write and read back equal, in no more bytes than it announced (a repeated
// map key is read once, so the written stream may be shorter). Reading into a kept value, over
// streams one after the other, must give what a fresh read gives.

#include <cstddef>
#include <cstdint>

#include "fuzz/fuzz_inputs.h"
#include "platform/log/log.h"

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    ara::tessel::common::log::Log::SetLevel(ara::tessel::common::log::LogLevel::kOff);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace wardend::fuzz;  // NOLINT(google-build-using-namespace)
    if (size < 1) {
        return 0;
    }
    WithInputKind(data[0], [&](auto probe) {
        using T = decltype(probe);
        lumo::serialize::dds::Deserializer<T> reader(data + 1, size - 1);
        const std::uint64_t consumed = reader.GetSize();
        const T value = reader.GetValue();  // also on a refused stream: defaults in the tail
        if (consumed > kSizeMax) {
            return;
        }
        Require(consumed <= size - 1);
        const auto written = DdsWrite(value);
        Require(written.size() <= consumed);
        lumo::serialize::dds::Deserializer<T> again(written.data(), written.size());
        Require(again.GetSize() == written.size());
        Require(again.GetValue() == value);
    });
    WithInputKind(data[0], [&](auto probe) {
        using T = decltype(probe);
        T kept{};
        for (const Stream& stream : KeptValueStreams(data + 1, size - 1)) {
            lumo::serialize::dds::Deserializer<T> fresh(stream.data, stream.size);
            lumo::serialize::dds::Deserializer<T> reader(stream.data, stream.size);
            const bool whole = reader.GetValue(kept);
            Require(kept == fresh.GetValue());
            Require(whole == (fresh.GetSize() <= kSizeMax));
        }
    });
    return 0;
}
