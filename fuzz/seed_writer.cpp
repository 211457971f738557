// Writes the seed corpora of the fuzzers from the sample records:
//   wardend_fuzz_seed_writer <fuzz directory>
// Run it after a record changes shape, and commit the files it writes.

#include <cstdio>
#include <fstream>
#include <string>

#include "fuzz/fuzz_inputs.h"
#include "tests/unit/serialize/sample_records.h"

namespace {

using namespace wardend::fuzz;  // NOLINT(google-build-using-namespace)

void WriteFile(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
}

template <typename T>
T Sample(std::uint8_t kind) {
    using namespace wardend::test;  // NOLINT(google-build-using-namespace)
    if constexpr (std::is_same_v<T, AppRegisterInfo>) {
        return kind == 0 ? MakeEventRegistration() : T{};
    } else if constexpr (std::is_same_v<T, String>) {
        return "ALL";
    } else if constexpr (std::is_same_v<T, LatencyQueryInfo>) {
        return MakeLatencyQueryInfo(1);
    } else if constexpr (std::is_same_v<T, LatencyIndex>) {
        return MakeLatencyIndex(1);
    } else if constexpr (std::is_same_v<T, QuerySubEventInfoIndex>) {
        return MakeSubEventIndex(1);
    } else {
        return MakeLatencySwitch(1);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s <fuzz directory>\n", argv[0]);
        return 2;
    }
    const std::string root = argv[1];
    for (std::uint8_t kind = 0; kind < kInputKinds; ++kind) {
        WithInputKind(kind, [&](auto probe) {
            using T = decltype(probe);
            const T value = Sample<T>(kind);
            auto dds = DdsWrite(value);
            dds.insert(dds.begin(), kind);
            WriteFile(root + "/dds_deserialize_fuzzer/corpus/kind" + std::to_string(kind), dds);
            for (std::uint8_t variant = 0; variant < kSomeipVariants; ++variant) {
                const SomeipSettings settings = MakeSomeipSettings<T>(variant);
                auto someip = SomeipWrite(value, settings);
                const std::string name =
                    "kind" + std::to_string(kind) + "_variant" + std::to_string(variant);
                if (variant == 3 && lumo::serialize::detail::IsRecord<T>::value) {
                    auto tlv = someip;  // a TLV root without a length field: tags from the start
                    tlv.insert(tlv.begin(), 4);  // big-endian, static width 4
                    WriteFile(root + "/tlv_record_data_id_fuzzer/corpus/" + name, tlv);
                }
                someip.insert(someip.begin(), {kind, variant});
                WriteFile(root + "/someip_deserialize_fuzzer/corpus/" + name, someip);
            }
        });
    }
    WriteFile(root + "/tlv_record_data_id_fuzzer/corpus/mixed_wire_types",
              {0x82, 0x00, 0x01, 0xAA, 0x10, 0x02, 0xAA, 0xBB, 0x60, 0x03, 0x00, 0x01, 0xCC, 0x40,
               0x04, 0x01, 0xDD});
    return 0;
}
