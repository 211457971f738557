// AppRegisterInfo with a realistic event registration (both drivers, E2E configuration, five
// properties) written and read per second in each family, next to memcpy of the same bytes.
// Reads are measured into a fresh value (which allocates its strings, vectors and map nodes) and
// into one value kept across reads (which allocates nothing once it has grown). Counters:
// allocs_per_op counts heap allocations per operation; writing into a reused buffer must
// allocate nothing.

#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/someip_serializer.h"
#include "tests/unit/serialize/sample_records.h"

namespace {
std::atomic<std::uint64_t> allocations{0};
}  // namespace

// Counting replacements of the global allocation functions.
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size == 0 ? 1 : size)) {  // NOLINT(cppcoreguidelines-no-malloc)
        return p;
    }
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);  // NOLINT(cppcoreguidelines-no-malloc)
}
void operator delete(void* p, std::size_t /*size*/) noexcept {
    std::free(p);  // NOLINT(cppcoreguidelines-no-malloc)
}

namespace {

using lumo::serialize::SerializeConfig;
using vesk::wardend::AppRegisterInfo;

const AppRegisterInfo& Registration() {
    static const AppRegisterInfo value = wardend::test::MakeEventRegistration();
    return value;
}

// Reports bytes per second and heap allocations per operation of the loop just run.
class Meter {
public:
    explicit Meter(benchmark::State& state) : state_(state), start_(allocations.load()) {}
    void Finish(std::uint64_t bytes) {
        const auto ops = static_cast<double>(state_.iterations());
        state_.counters["allocs_per_op"] =
            static_cast<double>(allocations.load() - start_) / (ops > 0 ? ops : 1);
        state_.counters["bytes"] = static_cast<double>(bytes);
        state_.SetBytesProcessed(static_cast<std::int64_t>(state_.iterations() * bytes));
    }

private:
    benchmark::State& state_;
    std::uint64_t start_;
};

// The same shape (five properties) with other seeds: strings of other lengths, the same keys.
const AppRegisterInfo& OtherRegistration() {
    static const AppRegisterInfo value = [] {
        AppRegisterInfo other = wardend::test::MakeEventRegistration();
        other.eventInfo = wardend::test::MakeEventRegister(12, 5);
        return other;
    }();
    return value;
}

std::vector<unsigned char> SomeipBytesOf(const AppRegisterInfo& value) {
    lumo::serialize::someip::Serializer<AppRegisterInfo> writer(value, SerializeConfig{});
    std::vector<unsigned char> out(writer.GetSize());
    writer.Serialize(out.data());
    return out;
}

std::vector<unsigned char> SomeipBytes() {
    return SomeipBytesOf(Registration());
}

std::vector<unsigned char> DdsBytesOf(const AppRegisterInfo& value) {
    lumo::serialize::dds::Serializer<AppRegisterInfo> writer(value, SerializeConfig{});
    std::vector<unsigned char> out(writer.GetSize());
    writer.Serialize(out.data());
    return out;
}

std::vector<unsigned char> DdsBytes() {
    return DdsBytesOf(Registration());
}

void BM_Memcpy(benchmark::State& state, std::vector<unsigned char> (*bytesOf)()) {
    const std::vector<unsigned char> source = bytesOf();
    std::vector<unsigned char> target(source.size());
    Meter meter(state);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), source.size());
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    meter.Finish(source.size());
}

void BM_SomeipSerialize(benchmark::State& state) {
    std::vector<unsigned char> buffer(SomeipBytes().size());
    Meter meter(state);
    for (auto _ : state) {
        lumo::serialize::someip::Serializer<AppRegisterInfo> writer(Registration(),
                                                                    SerializeConfig{});
        benchmark::DoNotOptimize(writer.GetSize());
        writer.Serialize(buffer.data());
        benchmark::ClobberMemory();
    }
    meter.Finish(buffer.size());
}

void BM_SomeipDeserialize(benchmark::State& state) {
    const std::vector<unsigned char> stream = SomeipBytes();
    Meter meter(state);
    for (auto _ : state) {
        lumo::serialize::someip::Deserializer<AppRegisterInfo> reader(stream.data(), stream.size(),
                                                                      SerializeConfig{});
        benchmark::DoNotOptimize(reader.GetSize());
        benchmark::DoNotOptimize(reader.GetValue().eventInfo.pid);
    }
    meter.Finish(stream.size());
}

void BM_DdsSerialize(benchmark::State& state) {
    std::vector<unsigned char> buffer(DdsBytes().size());
    Meter meter(state);
    for (auto _ : state) {
        lumo::serialize::dds::Serializer<AppRegisterInfo> writer(Registration(), SerializeConfig{});
        benchmark::DoNotOptimize(writer.GetSize());
        writer.Serialize(buffer.data());
        benchmark::ClobberMemory();
    }
    meter.Finish(buffer.size());
}

void BM_DdsDeserialize(benchmark::State& state) {
    const std::vector<unsigned char> stream = DdsBytes();
    Meter meter(state);
    for (auto _ : state) {
        lumo::serialize::dds::Deserializer<AppRegisterInfo> reader(stream.data(), stream.size());
        benchmark::DoNotOptimize(reader.GetSize());
        const AppRegisterInfo value = reader.GetValue();
        benchmark::DoNotOptimize(value.eventInfo.pid);
    }
    meter.Finish(stream.size());
}

// Reads into one value kept across the loop, alternating between two registrations whose
// strings differ in length, so that each read overwrites the other's contents. The value is read
// first; GetSize() then answers from that read. readerOf builds the family's reader of a stream.
template <typename Bytes, typename ReaderOf>
void DeserializeReused(benchmark::State& state, Bytes bytesOf, ReaderOf readerOf) {
    const std::vector<unsigned char> streams[] = {bytesOf(Registration()),
                                                  bytesOf(OtherRegistration())};
    AppRegisterInfo value;
    std::size_t next = 0;
    Meter meter(state);
    for (auto _ : state) {
        const std::vector<unsigned char>& stream = streams[next];
        next ^= 1U;
        auto reader = readerOf(stream);
        benchmark::DoNotOptimize(reader.GetValue(value));
        benchmark::DoNotOptimize(reader.GetSize());
        benchmark::DoNotOptimize(value.eventInfo.pid);
    }
    meter.Finish((streams[0].size() + streams[1].size()) / 2);
}

void BM_SomeipDeserializeReused(benchmark::State& state) {
    DeserializeReused(state, SomeipBytesOf, [](const std::vector<unsigned char>& stream) {
        return lumo::serialize::someip::Deserializer<AppRegisterInfo>(stream.data(), stream.size(),
                                                                      SerializeConfig{});
    });
}

void BM_DdsDeserializeReused(benchmark::State& state) {
    DeserializeReused(state, DdsBytesOf, [](const std::vector<unsigned char>& stream) {
        return lumo::serialize::dds::Deserializer<AppRegisterInfo>(stream.data(), stream.size());
    });
}

BENCHMARK_CAPTURE(BM_Memcpy, someip_bytes, SomeipBytes);
BENCHMARK(BM_SomeipSerialize);
BENCHMARK(BM_SomeipDeserialize);
BENCHMARK(BM_SomeipDeserializeReused);
BENCHMARK_CAPTURE(BM_Memcpy, dds_bytes, DdsBytes);
BENCHMARK(BM_DdsSerialize);
BENCHMARK(BM_DdsDeserialize);
BENCHMARK(BM_DdsDeserializeReused);

}  // namespace
