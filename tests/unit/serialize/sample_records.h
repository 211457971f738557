#ifndef TESTS_UNIT_SERIALIZE_SAMPLE_RECORDS_H
#define TESTS_UNIT_SERIALIZE_SAMPLE_RECORDS_H

// Records filled with non-default values in every field, for round trips, fuzz seeds and the
// benchmark. Each builder takes a seed so that two samples differ. The hand-written builders make
// the realistic records of the benchmark and the seeds; Filled<T> fills any record.

#include <cstdint>
#include <string>
#include <type_traits>

#include "binding/serialize/serialize_traits.h"

#include "records/service_outputs.h"
#include "records/wardend_records.h"

namespace wardend::test {

using namespace vesk::wardend;  // NOLINT(google-build-using-namespace): test data builders

inline String Text(const char* base, int seed) {
    return String(base) + "_" + std::to_string(seed);
}

inline E2EConfigInfo MakeE2EConfig(int seed) {
    E2EConfigInfo e;
    e.profile = E2EProfile::kProfile4;
    e.dataIdList = {0x01020304U + static_cast<std::uint32_t>(seed), 7, 0xFFFFFFFFU};
    e.flagA = true;
    e.flagB = true;
    e.valueA = 0xA1A2A3A4U;
    e.valueB = 17U + static_cast<std::uint32_t>(seed);
    e.valueC = 0xC1C2;
    e.valueD = 4000000000U;
    e.dataIdMode = E2EDataIDMode::kNibble;
    e.stateParam1 = 1;
    e.stateParam2 = 2;
    e.stateParam3 = 3;
    e.stateParam4 = 4;
    e.stateParam5 = 5;
    e.stateParam6 = 6;
    e.stateParam7 = 7;
    e.stateParam8 = 8;
    e.stateParam9 = 0xFF;
    e.stateFlag = true;
    e.valueE = 99;
    return e;
}

inline DDSEventInfo MakeDdsEvent(int seed, int properties = 2) {
    DDSEventInfo d;
    d.serviceId = 0xE002;
    d.instanceId = static_cast<std::uint16_t>(3 + seed);
    d.shortValue = 0x8001;
    d.topicName = Text("/Norvane/AP/Pose/Topic", seed);
    d.text = "pose text";
    d.valueA = 11;
    d.valueB = 0x80000000U;
    d.durability = DurabilityQos::kTransientLocal;
    d.history = HistoryQos::kKeepAll;
    d.transports = {TransportQos::kShm, TransportQos::kUdp};
    d.valueC = 12;
    d.valueD = 13;
    d.instanceShortName = Text("/pose/instance", seed);
    for (int i = 0; i < properties; ++i) {
        d.properties[Text("property.key", i)] = Text("value of the property", i * 7 + seed);
    }
    d.scheduleMode = ScheduleMode::kQueued;
    d.e2eConfig = MakeE2EConfig(seed);
    d.reliability = ReliabilityKind::kReliable;
    d.flag = true;
    return d;
}

inline SomeipEventInfo MakeSomeipEvent(int seed) {
    SomeipEventInfo s;
    s.serviceId = 0x5700;
    s.instanceId = static_cast<std::uint16_t>(1 + seed);
    s.wideValue = 0xDEADBEEFU;
    s.eventId = 0x8001;
    s.eventGroupIds = {1, 0x0102, 0xFFFF};
    s.instanceShortName = Text("/someip/instance", seed);
    s.valueA = 21;
    s.valueB = 22;
    s.valueC = 23;
    s.flag = true;
    s.e2eConfig = MakeE2EConfig(seed + 1);
    s.bytes = {0, 1, 0xFE, 0xFF};
    s.pduConfig.pduName = "PoseFrame";
    s.pduConfig.length = 0x0102030405060708ULL;
    s.pduConfig.flag = true;
    IsignalInfo signal;
    signal.name = "speed";
    signal.typeName = "uint16";
    signal.flag = true;
    signal.valueA = 4;
    signal.valueB = 12;
    signal.text = "Intel";
    s.pduConfig.isignals = {signal, signal};
    s.pduConfig.isignals[1].name = "heading";
    return s;
}

inline SerializeConfig MakeRecordSerializeConfig(int seed) {
    SerializeConfig c;
    c.type = SerializationType::kSomeip;
    c.structPolicy = StructSerializationPolicy::kAligned;
    c.name = Text("config", seed);
    return c;
}

inline EventRegisterInfo MakeEventRegister(int seed, int properties = 2) {
    EventRegisterInfo e;
    e.name = Text("PoseEvent", seed);
    e.appName = Text("navigation", seed);
    EventInfo dds;
    dds.dds = MakeDdsEvent(seed, properties);
    EventInfo someip;
    someip.someip = MakeSomeipEvent(seed);
    e.eventMap_[DriverType::DDS] = dds;
    e.eventMap_[DriverType::SOMEIP] = someip;
    e.text = "/Norvane/AP/Pose";
    e.eventType = Text("PoseEventType", seed);
    e.pid = -12345 - seed;
    e.serializeConfig = MakeRecordSerializeConfig(seed);
    e.serializeText = "someip";
    e.isRegister = true;
    return e;
}

inline LatencyIndex MakeLatencyIndex(int seed) {
    LatencyIndex i;
    i.drivers = {DriverType::SOMEIP, DriverType::DDS};
    i.serviceId = 0x1234;
    i.instanceId = static_cast<std::uint16_t>(seed + 1);
    i.topicName = Text("latency/topic", seed);
    i.eventId = 0x8002;
    return i;
}

// The benchmark's realistic registration: one event on both drivers, E2E, 5 properties.
inline AppRegisterInfo MakeEventRegistration() {
    AppRegisterInfo a;
    a.isPub = true;
    a.infoType = AppRegisterInfoType::EVENT;
    a.eventInfo = MakeEventRegister(1, 5);
    return a;
}

inline QuerySubEventInfoIndex MakeSubEventIndex(int seed) {
    QuerySubEventInfoIndex q;
    q.serviceId = 0x5700;
    q.instanceId = 1;
    q.driver = DriverType::SOMEIP;
    q.eventId = 0x8001;
    q.topicName = Text("sub/topic", seed);
    q.eventType = "PoseEventType";
    q.source = static_cast<DriverType>(2);
    return q;
}

inline LatencySwitch MakeLatencySwitch(int seed) {
    return LatencySwitch{LatencyMode::kOn, MakeLatencyIndex(seed)};
}

inline LatencyQueryInfo MakeLatencyQueryInfo(int seed) {
    return LatencyQueryInfo{static_cast<std::uint16_t>(500 + seed), MakeLatencyIndex(seed)};
}

// Gives every field of a record a value of its own, so that a field lost, moved or misread on
// the wire changes the record: integers with every byte set (negative where signed), strings
// longer than a short-string buffer. Vectors and maps hold a filled element and a default one;
// map keys do not depend on the seed, so that two seeds give records of the same shape.
class Filler {
public:
    explicit Filler(int seed) : next_(static_cast<std::uint32_t>(seed) * 1000U + 1U) {}

    template <typename T>
    void operator()(T& field) {
        Fill(field);
    }

    template <typename T>
    void Fill(T& value) {
        using lumo::serialize::detail::IsMap;
        using lumo::serialize::detail::IsVector;
        const std::uint32_t n = next_++;
        if constexpr (std::is_same_v<T, bool>) {
            value = true;
        } else if constexpr (std::is_enum_v<T>) {
            value = static_cast<T>(1 + n % 2);
        } else if constexpr (std::is_integral_v<T>) {
            value = static_cast<T>((n * 0x9E3779B97F4A7C15ULL) | 1U);
        } else if constexpr (std::is_same_v<T, String>) {
            value = "value of field number " + std::to_string(n);
        } else if constexpr (IsVector<T>::value) {
            value.resize(2);
            Fill(value[0]);
        } else if constexpr (IsMap<T>::value) {
            for (int i = 0; i < 2; ++i) {
                typename T::key_type key{};
                if constexpr (std::is_same_v<typename T::key_type, String>) {
                    key = i == 0 ? "" : "key of a map";
                } else {
                    key = static_cast<typename T::key_type>(i);
                }
                if (i == 0) {
                    Fill(value[key]);
                } else {
                    value[key] = {};
                }
            }
        } else {
            value.enumerate(*this);
        }
    }

private:
    std::uint32_t next_;
};

template <typename T>
T Filled(int seed) {
    T value{};
    Filler(seed).Fill(value);
    return value;
}

}  // namespace wardend::test

#endif
