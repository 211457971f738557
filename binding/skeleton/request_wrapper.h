#ifndef BINDING_SKELETON_REQUEST_WRAPPER_H
#define BINDING_SKELETON_REQUEST_WRAPPER_H

#include <cstdint>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "binding/proloc/proloc_memory_factory.h"
#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/someip_deserializer.h"
#include "binding/serialize/tlv_serialize_helper.h"
#include "platform/core/future.h"
#include "platform/driver/proloc/proloc_entity_index.h"
#include "platform/error/com_error_domain.h"
#include "platform/error/e2e_error_domain.h"
#include "platform/log/log.h"
#include "platform/vcc/vcc.h"

namespace lumo::vcc::detail {

using LogLimit = ara::tessel::common::log::LogLimitConfig;

// E2E check of one request. True when it found an error (and ran the error handler).
bool E2ECheckFails(
    Vcc& vcc, std::uint32_t entityId, const api::types::MethodInfo& info,
    const api::types::MethodMsg& msg,
    const std::map<com::e2exf::ProfileCheckStatus, api::types::E2EErrorCode>& statusMap,
    api::types::E2EErrorCode& code);

// Reads the arguments of a request into `values` by the driver's rules. False when one of them
// is not whole in the stream.
template <typename... Args>
bool ReadArguments(const api::types::MethodMsg& msg, const api::types::MethodInfo& info,
                   std::tuple<Args...>& values) {
    const unsigned char* data = msg.payload;
    const std::uint64_t size = msg.payload == nullptr ? 0 : msg.size;
    std::uint64_t offset = 0;
    bool whole = true;
    std::size_t index = 0;
    const bool someip =
        msg.serializeType == static_cast<std::uint8_t>(api::types::SerializeType::kSomeip);
    if (!someip &&
        msg.serializeType != static_cast<std::uint8_t>(api::types::SerializeType::kDds)) {
        ara::tessel::common::log::Log::GetLog("CM")->LogWarn()
            << "Wrong serialize type, SHM deserialize type used!";
    }
    const auto& node = info.requestNode;
    const bool nodes = node != nullptr && node->members != nullptr && !node->members->empty();
    auto readOne = [&](auto& value) {
        using T = std::decay_t<decltype(value)>;
        if (!whole) {
            return;
        }
        const unsigned char* at = data == nullptr ? nullptr : data + offset;
        const std::uint64_t left = size - offset;
        std::uint64_t used = serialize::kSizeFailure;
        if (someip && nodes && index < node->members->size()) {
            serialize::someip::Deserializer<T> reader(at, left, (*node->members)[index], 0,
                                                      index + 1 == sizeof...(Args));
            whole = reader.GetValue(value);
            used = reader.GetSize();
        } else if (someip) {
            serialize::someip::Deserializer<T> reader(at, left, info.requestConfig);
            whole = reader.GetValue(value);
            used = reader.GetSize();
        } else {
            serialize::dds::Deserializer<T> reader(at, left);
            whole = reader.GetValue(value);
            used = reader.GetSize();
        }
        if (whole && (used > left)) {
            whole = false;
        }
        offset += whole ? used : 0;
        ++index;
    };
    std::apply([&](auto&... value) { (readOne(value), ...); }, values);
    return whole;
}

// The request wrapper of one method: reads the arguments by the rules of the driver that
// delivered the request (in-process: from the request store), checks E2E, and calls the user
// method. The arguments are read into values kept per worker thread, which spares their
// allocations; the user method must copy what it keeps beyond its return.
template <typename Skeleton, typename Output, typename... Args>
ara::core::Future<Output> CallUserMethod(
    Vcc& vcc, std::uint32_t entityId, Skeleton* service,
    ara::core::Future<Output> (Skeleton::*member)(const Args&...), const driver::MethodMsgPtr& msg,
    const MethodInfoMap& protocolData) {
    const api::types::MethodInfo& info = *protocolData.at(msg->driverType);
    if (msg->driverType == api::types::DriverType::kProloc) {
        const auto index = lumo::driver::proloc::ProlocEntityIndex::FromEntityInfo(info);
        if constexpr (sizeof...(Args) == 0) {
            (void)index;
            return (service->*member)();
        } else {
            const auto& store = lumo::driver::proloc::ProlocMemoryFactory::GetMethodRequestInstance<
                std::decay_t<Args>...>();
            const auto values = store->GetRequest(index, msg->payload);
            return std::apply([&](const auto&... value) { return (service->*member)(value...); },
                              *values);
        }
    }
    auto logger = ara::tessel::common::log::Log::GetLog("CM");
    const auto statusMap = vcc.GetE2EStatusMap();
    if (info.e2e != nullptr && info.e2e->config.has_value()) {
        api::types::E2EErrorCode code{};
        if (E2ECheckFails(vcc, entityId, info, *msg, statusMap, code)) {
            return ara::core::Future<Output>::MakeReady(
                ara::core::Result<Output>::FromError(api::types::MakeErrorCode(code, 0)));
        }
    }
    const auto& node = info.requestNode;
    if (node != nullptr && node->members != nullptr && !node->members->empty() && node->isTlv) {
        const auto record = tlv::serialize::TlvSerializeHelper::RecordDataId(
            node->byteOrder, node->tlvLengthField, msg->payload, msg->size);
        if (record.consumed > msg->size) {
            logger->LogError("MethodSkeleton_ReplySerialize", LogLimit{})
                << "[ParamsDeserializer][Method tlv deserialize failed, data stream is over "
                   "buffer size]";
        }
    }
    static thread_local std::tuple<std::decay_t<Args>...> kept;
    if constexpr (sizeof...(Args) > 0) {
        if (!ReadArguments(*msg, info, kept)) {
            logger->LogError("VCC_Methodkeleton_Deserializer", LogLimit{})
                << "[Vcc][Serialize method parameter failed][id=" << entityId << "]";
            return ara::core::Future<Output>::MakeReady(ara::core::Result<Output>::FromError(
                api::types::MakeErrorCode(api::types::ComErrc::kNetworkBindingFailure, 0)));
        }
    }
    if (auto stats = vcc.FindMethodStats(entityId)) {
        ++stats->requestsToUser;
    }
    return std::apply([&](const auto&... value) { return (service->*member)(value...); }, kept);
}

}  // namespace lumo::vcc::detail

#endif
