#include "binding/serialize/s2s_serializer.h"

#include <gtest/gtest.h>

#include "tests/unit/serialize/sample_records.h"
#include "tests/unit/serialize/serialize_test_support.h"

namespace wardend::test {
namespace {

using lumo::serialize::s2s::Serializer;
using lumo::serialize::s2s::SignalEnumerator;
using lumo::vcc::api::types::ISignal;
using lumo::vcc::api::types::Pdu;

constexpr std::uint8_t kMotorola = 0;

std::shared_ptr<const Pdu> OneSignalPdu(std::uint64_t startBit, std::uint64_t bitLength,
                                        std::uint8_t order) {
    return std::make_shared<const Pdu>(
        "Frame", 4,
        std::vector<std::shared_ptr<ISignal>>{
            std::make_shared<ISignal>(ISignal{"sig", startBit, bitLength, order})});
}

class S2SSerializerTest : public SerializeLogTest {};

TEST_F(S2SSerializerTest, BitLayoutsInIntelAndMotorolaOrder) {
    const struct {
        const char* name;
        std::uint64_t startBit;
        std::uint64_t bitLength;
        Bytes expected;
        std::uint16_t value;
        std::uint8_t order;
        unsigned char firstByte{0};  // what the buffer held before
    } cases[] = {
        // High nibble of byte 0 takes the low nibble of the value; byte 1 the rest.
        {"Intel 12 bits at bit 4", 4, 12, {0xC0, 0xAB, 0x00, 0x00}, 0x0ABC, ISignal::kIntel},
        {"Intel 16 bits at bit 8", 8, 16, {0x00, 0x34, 0x12, 0x00}, 0x1234, ISignal::kIntel},
        {"Intel cut to 4 bits", 0, 4, {0x0F, 0x00, 0x00, 0x00}, 0xFFFF, ISignal::kIntel},
        {"Intel 3 bits at bit 6 cross a byte",
         6,
         3,
         {0xC0, 0x01, 0x00, 0x00},
         0x0007,
         ISignal::kIntel},
        // Byte-aligned Motorola: high byte first.
        {"Motorola 16 bits at bit 7", 7, 16, {0x12, 0x34, 0x00, 0x00}, 0x1234, kMotorola},
        {"Motorola 12 bits at bit 7", 7, 12, {0xAB, 0xC0, 0x00, 0x00}, 0x0ABC, kMotorola},
        {"Motorola cut to 8 bits at bit 15", 15, 8, {0x00, 0x5A, 0x00, 0x00}, 0xFF5A, kMotorola},
        {"zero length writes nothing", 0, 0, {0x00, 0x00, 0x00, 0x00}, 0xFFFF, ISignal::kIntel},
        {"bits are ORed in, never cleared",
         0,
         8,
         {0xAF, 0x00, 0x00, 0x00},
         0x00A0,
         ISignal::kIntel,
         0x0F},
    };
    for (const auto& c : cases) {
        Bytes buffer = {c.firstByte, 0, 0, 0};
        const std::uint16_t value = c.value;
        EXPECT_TRUE(
            Serializer<std::uint16_t>(value, OneSignalPdu(c.startBit, c.bitLength, c.order), 0)
                .Serialize(buffer.data(), buffer.size()))
            << c.name;
        EXPECT_EQ(buffer, c.expected) << c.name;
    }
}

TEST_F(S2SSerializerTest, RefusalsLogAndLeaveTheBufferAlone) {
    const std::uint16_t value = 0xFFFF;
    Bytes buffer(2, 0);
    EXPECT_FALSE(Serializer<std::uint16_t>(value, OneSignalPdu(0, 8, ISignal::kIntel), 1)
                     .Serialize(buffer.data(), buffer.size()));
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[S2S Serializer] Out of the pdu range, invalid serialization[pdu=Frame]"));
    EXPECT_FALSE(Serializer<std::uint16_t>(value, OneSignalPdu(0, 17, ISignal::kIntel), 0)
                     .Serialize(buffer.data(), buffer.size()));
    EXPECT_TRUE(Logged(LogLevel::kError,
                       "[S2S Serializer] Invalid iSignal length[pdu=Frame, isignal=sig, "
                       "dataTypeLen=16]"));
    EXPECT_FALSE(Serializer<std::uint16_t>(value, OneSignalPdu(12, 8, ISignal::kIntel), 0)
                     .Serialize(buffer.data(), buffer.size()));  // would reach byte 2
    EXPECT_FALSE(Serializer<std::uint16_t>(value, OneSignalPdu(7, 16, kMotorola), 0)
                     .Serialize(buffer.data(), 1));
    EXPECT_EQ(buffer, Bytes(2, 0));

    const String text = "x";
    EXPECT_FALSE(Serializer<String>(text, OneSignalPdu(0, 8, ISignal::kIntel), 0)
                     .Serialize(buffer.data(), buffer.size()));
    EXPECT_TRUE(Logged(LogLevel::kError, "[S2S Serializer] The type is not supported!"));
    const std::vector<DriverType> drivers = {DriverType::DDS};
    EXPECT_FALSE(
        Serializer<std::vector<DriverType>>(drivers, OneSignalPdu(0, 8, ISignal::kIntel), 0)
            .Serialize(buffer.data(), buffer.size()));
    EXPECT_TRUE(Logged(LogLevel::kError, "[S2S Serializer Vector] The type is not supported!"));
}

TEST_F(S2SSerializerTest, ALatencySwitchFillsItsSixteenBitMembersSignalBySignal) {
    // One iSignal per member: mode, drivers, serviceId, instanceId, topicName, eventId.
    std::vector<std::shared_ptr<ISignal>> signals;
    for (std::uint64_t i = 0; i < 6; ++i) {
        signals.push_back(std::make_shared<ISignal>(ISignal{"s", i * 16, 16, ISignal::kIntel}));
    }
    const auto pdu = std::make_shared<const Pdu>("Latency", 12, signals);
    LatencySwitch value = MakeLatencySwitch(1);
    value.index.serviceId = 0x1122;
    value.index.instanceId = 0x3344;
    value.index.eventId = 0x5566;
    Bytes buffer(12, 0);
    SignalEnumerator writer(pdu, buffer.data(), buffer.size());
    value.enumerate(writer);
    EXPECT_EQ(writer.SignalCount(), 6U);
    EXPECT_EQ(buffer, (Bytes{0, 0, 0, 0, 0x22, 0x11, 0x44, 0x33, 0, 0, 0x66, 0x55}));
    EXPECT_EQ(LogCount(LogLevel::kError, "[S2S Serializer] The type is not supported!"), 2U);
    EXPECT_EQ(LogCount(LogLevel::kError, "[S2S Serializer Vector] The type is not supported!"), 1U);
}

}  // namespace
}  // namespace wardend::test
