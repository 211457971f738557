// SOME/IP deserializers of AppRegisterInfo and of each tools-service input, under plain, raw
// little-endian, aligned and TLV settings. Whatever reads must write and read back equal, and
// reading into a kept value, over streams one after the other, must give a fresh read's value.

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
    if (size < 2) {
        return 0;
    }
    WithInputKind(data[0], [&](auto probe) {
        using T = decltype(probe);
        const SomeipSettings settings = MakeSomeipSettings<T>(data[1]);
        T value{};
        if (!SomeipRead(data + 2, size - 2, settings, value)) {
            return;
        }
        const auto written = SomeipWrite(value, settings);
        Require(!written.empty() || value == T{});
        T again{};
        Require(SomeipRead(written.data(), written.size(), settings, again));
        Require(again == value);
    });
    WithInputKind(data[0], [&](auto probe) {
        using T = decltype(probe);
        const SomeipSettings settings = MakeSomeipSettings<T>(data[1]);
        T kept{};
        for (const Stream& stream : KeptValueStreams(data + 2, size - 2)) {
            T fresh{};
            const bool freshWhole = SomeipRead(stream.data, stream.size, settings, fresh);
            Require(SomeipReadInto(stream.data, stream.size, settings, kept) == freshWhole);
            Require(kept == fresh);
        }
    });
    return 0;
}
