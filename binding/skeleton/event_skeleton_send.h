#ifndef BINDING_SKELETON_EVENT_SKELETON_SEND_H
#define BINDING_SKELETON_EVENT_SKELETON_SEND_H

// The template members of lumo::vcc::EventSkeleton: how one sample leaves on each driver.

#include <memory>

#include "binding/proloc/proloc_memory_factory.h"
#include "binding/serialize/dds_serializer.h"
#include "binding/serialize/s2s_serializer.h"
#include "binding/serialize/serialize_traits.h"
#include "binding/serialize/someip_serializer.h"
#include "platform/driver/proloc/proloc_entity_index.h"
#include "platform/vcc/event_skeleton.h"
#include "platform/vcc/utils/tlog_info.h"
#include "platform/vcc/utils/tlv_helper.h"

namespace lumo::vcc {

namespace detail {

// A sample larger than this is refused: the margin leaves room for the time stamp record.
inline constexpr std::uint64_t kMaxEventSize = 0xFFFFFFEBULL;
inline constexpr std::uint8_t kTlogSendStage = 3;

// Counts the signals a record fills in a PDU. Signals live in the PDU's static part, and only
// members of a fixed width (integers, enumerations) have a static place there; strings and
// vectors are dynamic and get none. So LatencySwitch (mode, drivers, serviceId, instanceId,
// topicName, eventId) fills 4.
struct StaticSignalCounter {
    template <typename M>
    void operator()(const M& member) {
        if constexpr (serialize::detail::IsRecord<M>::value) {
            member.enumerate(*this);
        } else if constexpr (serialize::detail::kIsScalar<M>) {
            ++count;
        }
    }
    std::uint64_t count{0};
};

// The elements of the record's vector members, which take dynamic room behind the static part.
struct DynamicElementCounter {
    template <typename M>
    void operator()(const M& member) {
        if constexpr (serialize::detail::IsRecord<M>::value) {
            member.enumerate(*this);
        } else if constexpr (serialize::detail::IsVector<M>::value) {
            count += member.size();
        }
    }
    std::uint64_t count{0};
};

}  // namespace detail

template <typename T>
bool EventSkeleton::Send(const T& data, api::types::internal::SampleInfoImpl& sampleInfo) {
    GetLatencyTime(sampleInfo);
    if (stats_ != nullptr) {
        stats_->IncFromUserCount();
    }
    if (trafficControlPolicy_ != nullptr &&
        !trafficControlPolicy_->IsPassed(trafficControlPolicy_->GetTime())) {
        if (stats_ != nullptr) {
            stats_->IncTrafficControlledCount();
        }
        return false;
    }
    bool result = true;
    for (const auto& [driver, handler] : eventHandlers_) {
        if (isFirstSend_.exchange(false) && logger_ != nullptr &&
            logger_->CheckLogLevel(ara::tessel::common::log::LogLevel::kDebug)) {
            logger_->LogDebug() << (isField_ ? "Field" : "Event")
                                << " start to send data[instanceId=" << GetInstanceId()
                                << ", shortName=" << GetShortNameByDriver(driver)
                                << ", protocol=" << api::types::DriverTypeName(driver) << "]";
        }
        if (SendOut(handler, data, driver, sampleInfo)) {
            if (stats_ != nullptr && driver == api::types::DriverType::kDds) {
                stats_->IncToDDSCount();
            } else if (stats_ != nullptr && driver == api::types::DriverType::kSomeip) {
                stats_->IncToSomeipCount();
            }
        } else {
            result = false;  // the other drivers are still served
        }
    }
    return result;
}

template <typename T>
bool EventSkeleton::SendOut(const std::shared_ptr<driver::EventHandler>& handler, const T& data,
                            api::types::DriverType driver,
                            api::types::internal::SampleInfoImpl& sampleInfo) {
    if (!CheckBeforeSendOut(handler)) {
        return false;
    }
    auto info = protocolData_.find(driver);
    if (info == protocolData_.end() || info->second == nullptr) {
        return false;
    }
    if (driver == api::types::DriverType::kProloc) {
        lumo::driver::proloc::ProlocMemoryFactory::GetEventInstance<T>()->AddProlocData(
            data, lumo::driver::proloc::ProlocEntityIndex::FromEntityInfo(*info->second), isField_);
        return true;
    }
    switch (static_cast<api::types::SerializeType>(handler->GetSerializeType())) {
        case api::types::SerializeType::kDds: {
            serialize::dds::Serializer<T> serializer(data, info->second->config);
            if (!handler->IsDdsEnabled()) {
                return SendCommonData(handler, serializer, sampleInfo, driver);
            }
            // A copy that keeps the handler alive for the whole send.
            const auto keep = handler;  // NOLINT(performance-unnecessary-copy-initialization)
            const bool sent = SendCommonData(keep, serializer, sampleInfo, driver);
            if (!sent) {
                logger_->LogError("EventSkeleton_SendOut_1",
                                  ara::tessel::common::log::LogLimitConfig{})
                    << "[EventSkeleton][Send event by dds failed]";
            }
            return sent;
        }
        case api::types::SerializeType::kSomeip: {
            const auto& node = info->second->rootNode;
            if (node == nullptr || node->members == nullptr || node->members->empty()) {
                serialize::someip::Serializer<T> serializer(data, info->second->config);
                return SendCommonData(handler, serializer, sampleInfo, driver);
            }
            serialize::someip::Serializer<T> serializer(data, serialize::DefaultSerializeConfig(),
                                                        node->members->front(), 0, true);
            return SendCommonData(handler, serializer, sampleInfo, driver);
        }
        case api::types::SerializeType::kSignal:
            return SendSignal(handler, data, driver, sampleInfo);
        default:
            logger_->LogDebug() << "Wrong serialize type, deserialize error!";
            return false;
    }
}

template <typename Serializer>
bool EventSkeleton::SendCommonData(const std::shared_ptr<driver::EventHandler>& handler,
                                   Serializer& serializer,
                                   api::types::internal::SampleInfoImpl& sampleInfo,
                                   const api::types::DriverType& driver) {
    std::uint64_t size = serializer.GetSize();
    if (size > detail::kMaxEventSize) {
        logger_->LogError("EventSkeleton_SendCommonData",
                          ara::tessel::common::log::LogLimitConfig{})
            << "[EventSkeleton][Serialize failed, maybe length filed is less than actual "
               "size][instanceId="
            << GetInstanceId() << ", shortName=" << GetShortNameByDriver(driver)
            << ", protocol=" << api::types::DriverTypeName(driver) << "]";
        return false;
    }
    unsigned char* buffer = nullptr;
    if (latencyMode_ == 1 && sampleInfo.isLatencySample &&
        CheckTimeIsValid(sampleInfo.latencyTimestamp)) {
        buffer = handler->AllocateBuffer(size + utils::TlvHelper::kTimeStampSize);
        if (buffer != nullptr) {
            utils::TlvHelper::AddTlvTimeStamp(buffer + size, sampleInfo.latencyTimestamp);
            size += utils::TlvHelper::kTimeStampSize;
        }
    } else {
        buffer = handler->AllocateBuffer(size);
    }
    if (!CheckCommonDataBuffer(buffer, sampleInfo, driver)) {
        return false;
    }
    serializer.Serialize(buffer);  // the structure's own length field excludes the time stamp
    if (sampleInfo.tlogInfo != nullptr) {
        sampleInfo.tlogInfo->RecordStage(detail::kTlogSendStage, tlogStageFlags_.at(driver),
                                         driver);
    }
    const bool sent = handler->SendEvent(buffer, size, sampleInfo);
    if (logger_->CheckLogLevel(ara::tessel::common::log::LogLevel::kDebug)) {
        logger_->LogDebug() << "Data size is " << size << " in entity " << entityId_;
    }
    return sent;
}

template <typename T>
bool EventSkeleton::SendSignal(const std::shared_ptr<driver::EventHandler>& handler, const T& data,
                               api::types::DriverType driver,
                               api::types::internal::SampleInfoImpl& sampleInfo) {
    auto info = protocolData_.find(driver);
    const auto pdu =
        info == protocolData_.end() || info->second == nullptr ? nullptr : info->second->pdu;
    const bool errorOn = logger_->CheckLogLevel(ara::tessel::common::log::LogLevel::kError);
    if (pdu == nullptr) {
        if (errorOn) {
            logger_->LogError("EventSkeleton_SendSignal_1",
                              ara::tessel::common::log::LogLimitConfig{})
                << "[EventSkeleton][Send event fail with null pdu]";
        }
        return false;
    }
    if (!eventDataCount_.has_value()) {
        detail::StaticSignalCounter counter;
        data.enumerate(counter);
        eventDataCount_ = counter.count;
    }
    if (*eventDataCount_ != pdu->ISignalCount()) {
        if (errorOn) {
            logger_->LogError("EventSkeleton_SendSignal_2",
                              ara::tessel::common::log::LogLimitConfig{})
                << "[EventSkeleton][Signal-based event data is not matched with the pdu][entityId="
                << entityId_ << ", eventDataCount=" << *eventDataCount_
                << ", pduSignalCount=" << pdu->ISignalCount() << "]";
        }
        return false;
    }
    detail::DynamicElementCounter dynamic;
    data.enumerate(dynamic);
    const std::uint64_t size = pdu->LengthWithoutDynamic() + dynamic.count;
    unsigned char* buffer = handler->AllocateBuffer(size);
    if (!CheckCommonDataBuffer(buffer, sampleInfo, driver)) {
        return false;
    }
    serialize::s2s::SignalEnumerator writer(pdu, buffer, size);
    data.enumerate(writer);
    const bool sent = handler->SendEvent(buffer, size, sampleInfo);
    if (logger_->CheckLogLevel(ara::tessel::common::log::LogLevel::kDebug)) {
        logger_->LogDebug() << "Data size is " << size << " in entity " << entityId_;
    }
    return sent;
}

template <typename T>
void EventSkeleton::UpdateField(const T& data, bool offered) {
    std::unique_lock<std::mutex> lock(notifierLock_);
    hasValue_ = true;
    if (!offered) {
        currentValue_ = std::make_shared<T>(data);
        initialValue_ = std::make_shared<T>(data);
        return;
    }
    if (!notifierEnabled_) {
        currentValue_ = std::make_shared<T>(data);
        return;
    }
    api::types::internal::SampleInfoImpl sampleInfo;
    if (notifyFirst_) {
        notifyFirst_ = false;
        currentValue_ = std::make_shared<T>(data);
        lock.unlock();
        (void)Send(data, sampleInfo);
        return;
    }
    auto current = std::static_pointer_cast<T>(currentValue_);
    lock.unlock();
    // Compared outside the lock: only first notifications are serialized against each other.
    if (current != nullptr && *current == data) {
        logger_->LogVerbose() << "Update the same notifier value";
        return;
    }
    lock.lock();
    currentValue_ = std::make_shared<T>(data);
    lock.unlock();
    (void)Send(data, sampleInfo);
}

}  // namespace lumo::vcc

#endif
