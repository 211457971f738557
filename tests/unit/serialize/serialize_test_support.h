#ifndef TESTS_UNIT_SERIALIZE_SERIALIZE_TEST_SUPPORT_H
#define TESTS_UNIT_SERIALIZE_SERIALIZE_TEST_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/log/log.h"
#include "platform/serialize/serialize_config.h"
#include "records/wardend_records.h"
#include "tests/support/memory_log.h"

namespace wardend::test {

using Bytes = std::vector<unsigned char>;

inline Bytes Cat(std::initializer_list<Bytes> parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline Bytes Chars(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

// What a serializer writes into a buffer of the size it asks for, filled with 0xCC beforehand so
// that padding it skips shows; empty when its size pass refuses.
template <typename Writer>
Bytes Written(Writer&& writer) {
    const std::uint64_t size = writer.GetSize();
    if (size > lumo::serialize::kSizeMax) {
        return {};
    }
    Bytes out(size, 0xCC);
    writer.Serialize(out.data());
    return out;
}

// Small records for known answers written out by hand.
inline vesk::wardend::LatencyIndex SmallIndex() {
    return {{vesk::wardend::DriverType::SOMEIP}, 0x1234, 1, "ab", 0x8002};
}

inline vesk::wardend::FieldRegisterInfo SmallField() {
    vesk::wardend::FieldRegisterInfo field;
    field.appName = "a";
    field.drivers = {{vesk::wardend::DriverType::DDS, "x"}};
    field.instanceId = 9;
    field.isRegister = true;
    field.pid = -2;
    return field;
}

class SerializeLogTest : public MemoryLogTest {
protected:
    // Lines a peer can trigger are limited per text: within a limit period a repeat is counted
    // as suppressed instead of written. Either shows that the line was logged.
    template <typename Act>
    bool LogsPeerLine(const std::string& tag, const std::string& text, Act act) {
        ClearLog();
        const std::uint64_t before = ara::tessel::common::log::Log::SuppressedCount(tag);
        act();
        return Logged(LogLevel::kError, text) ||
               ara::tessel::common::log::Log::SuppressedCount(tag) > before;
    }
    template <typename Act>
    bool LogsPeerLine(const std::string& text, Act act) {
        return LogsPeerLine(text, text, act);
    }
};

}  // namespace wardend::test

#endif
