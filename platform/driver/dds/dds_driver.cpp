#include "platform/driver/dds/dds_driver.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <thread>

#include "platform/driver/dds/dds_client.h"
#include "platform/driver/dds/dds_envelope.h"
#include "platform/driver/dds/dds_executor.h"
#include "platform/driver/dds/dds_participant.h"
#include "platform/driver/dds/dds_server.h"

namespace lumo::driver::dds {

using ara::core::String;

namespace {

constexpr std::uint32_t kMaxListed = 256;

// Drops the entries of objects that are gone; keeps the list from growing with churn.
template <typename T>
void Prune(std::vector<std::weak_ptr<T>>& list) {
    list.erase(std::remove_if(list.begin(), list.end(),
                              [](const std::weak_ptr<T>& entry) { return entry.expired(); }),
               list.end());
}

template <typename T>
std::vector<std::shared_ptr<T>> Alive(const std::vector<std::weak_ptr<T>>& list) {
    std::vector<std::shared_ptr<T>> alive;
    for (const auto& entry : list) {
        if (auto object = entry.lock()) {
            alive.push_back(std::move(object));
        }
    }
    return alive;
}

bool CheckTopic(const api::types::EntityInfo& info) {
    if (info.dds.topic.empty()) {
        CmLog().LogError() << "DDS driver: entity " << info.GetEntityIdentifier()
                           << " has no DDS topic";
        return false;
    }
    return true;
}

}  // namespace

DdsDriver::DdsDriver(DdsDriverConfig config)
    : config_(std::move(config)), executor_(std::make_shared<DdsExecutor>("wrdn_dds")) {}

DdsDriver::~DdsDriver() {
    std::vector<std::shared_ptr<DdsMethodHandler>> methodHandlers;
    std::vector<std::shared_ptr<DdsEventHandler>> eventHandlers;
    std::vector<std::shared_ptr<DdsMethodClient>> methodClients;
    std::vector<std::shared_ptr<DdsEventClient>> eventClients;
    std::map<std::pair<std::uint32_t, bool>, std::shared_ptr<DdsParticipant>> participants;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        methodHandlers = Alive(methodHandlers_);
        eventHandlers = Alive(eventHandlers_);
        methodClients = Alive(methodClients_);
        eventClients = Alive(eventClients_);
        participants.swap(participants_);
    }
    for (const auto& client : methodClients) {
        client->Close();
    }
    for (const auto& client : eventClients) {
        client->Unsubscribe();
    }
    for (const auto& handler : methodHandlers) {
        handler->Close();
    }
    for (const auto& handler : eventHandlers) {
        handler->Close();
    }
    for (const auto& [key, participant] : participants) {
        participant->Close();
    }
}

std::shared_ptr<DdsParticipant> DdsDriver::ParticipantLocked(std::uint32_t domainId, bool server,
                                                             const String& instance) {
    if (server) {
        auto known = serverInstances_.find(domainId);
        if (known != serverInstances_.end() && known->second != instance) {
            CmLog().LogError() << "DDS driver: serves daemon instance \"" << known->second
                               << "\" on domain " << domainId << " and cannot serve \"" << instance
                               << "\" there too";
            return nullptr;
        }
    }
    auto& slot = participants_[{domainId, server}];
    if (slot == nullptr) {
        slot = DdsParticipant::Create(domainId, config_.cycloneConfig,
                                      server ? ServerParticipantUserData(instance) : String());
        if (slot == nullptr) {
            participants_.erase({domainId, server});
            return nullptr;
        }
        if (server) {
            serverInstances_[domainId] = instance;
        }
    }
    return slot;
}

std::shared_ptr<DdsParticipant> DdsDriver::ServerParticipant(const api::types::EntityInfo& info) {
    if (!CheckTopic(info)) {
        return nullptr;
    }
    const String& instance = info.dds.targetInstance;
    if (instance.empty() || instance.size() > kMaxInstanceLength) {
        CmLog().LogError() << "DDS driver: entity " << info.GetEntityIdentifier()
                           << " names no daemon instance of 1 to " << kMaxInstanceLength
                           << " characters";
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return ParticipantLocked(info.dds.domainId, true, instance);
}

std::shared_ptr<DdsParticipant> DdsDriver::ClientParticipant(const api::types::EntityInfo& info) {
    if (!CheckTopic(info)) {
        return nullptr;
    }
    if (info.dds.targetInstance.size() > kMaxInstanceLength) {
        CmLog().LogError() << "DDS driver: entity " << info.GetEntityIdentifier()
                           << " targets an instance id longer than " << kMaxInstanceLength;
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(mutex_);
    return ParticipantLocked(info.dds.domainId, false, {});
}

template <typename T>
std::shared_ptr<T> DdsDriver::Remember(std::vector<std::weak_ptr<T>>& list,
                                       std::shared_ptr<T> object) {
    if (object != nullptr) {
        std::lock_guard<std::mutex> lock(mutex_);
        Prune(list);
        list.push_back(object);
    }
    return object;
}

std::shared_ptr<vcc::driver::MethodHandler> DdsDriver::CreateMethodHandler(
    const api::types::MethodInfo& info) {
    auto participant = ServerParticipant(info);
    return participant == nullptr
               ? nullptr
               : Remember(methodHandlers_,
                          DdsMethodHandler::Create(info, info.dds.targetInstance,
                                                   std::move(participant), executor_));
}

std::shared_ptr<vcc::driver::EventHandler> DdsDriver::CreateEventHandler(
    const api::types::EventInfo& info) {
    auto participant = ServerParticipant(info);
    return participant == nullptr
               ? nullptr
               : Remember(eventHandlers_, DdsEventHandler::Create(info, info.dds.targetInstance,
                                                                  std::move(participant)));
}

std::shared_ptr<vcc::driver::MethodClient> DdsDriver::CreateMethodClient(
    const api::types::MethodInfo& info) {
    auto participant = ClientParticipant(info);
    return participant == nullptr
               ? nullptr
               : Remember(methodClients_,
                          DdsMethodClient::Create(info, std::move(participant), executor_));
}

std::shared_ptr<vcc::driver::EventClient> DdsDriver::CreateEventClient(
    const api::types::EventInfo& info) {
    auto participant = ClientParticipant(info);
    return participant == nullptr
               ? nullptr
               : Remember(eventClients_,
                          DdsEventClient::Create(info, std::move(participant), executor_));
}

void DdsDriver::SetOffered(std::uint16_t serviceId, const String& instanceId, bool offered) {
    std::vector<std::shared_ptr<DdsMethodHandler>> methodHandlers;
    std::vector<std::shared_ptr<DdsEventHandler>> eventHandlers;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        methodHandlers = Alive(methodHandlers_);
        eventHandlers = Alive(eventHandlers_);
    }
    for (const auto& handler : methodHandlers) {
        if (handler->ServiceId() == serviceId && handler->ServiceInstance() == instanceId) {
            handler->SetOffered(offered);
        }
    }
    for (const auto& handler : eventHandlers) {
        if (handler->ServiceId() == serviceId && handler->ServiceInstance() == instanceId) {
            handler->SetOffered(offered);
        }
    }
}

bool DdsDriver::OfferService(std::uint16_t serviceId, const String& instanceId) {
    SetOffered(serviceId, instanceId, true);
    return true;
}

void DdsDriver::StopOfferService(std::uint16_t serviceId, const String& instanceId) {
    SetOffered(serviceId, instanceId, false);
}

std::vector<DdsDaemonInfo> DdsDriver::ListDaemons(std::uint32_t domainId,
                                                  std::chrono::milliseconds discoveryTime) {
    std::shared_ptr<DdsParticipant> participant;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        participant = ParticipantLocked(domainId, false, {});
    }
    if (participant == nullptr) {
        return {};
    }
    const dds_entity_t reader = participant->ParticipantReader();
    if (reader < 0) {
        CmLog().LogError() << "DDS driver: cannot read the participants of domain " << domainId
                           << ": " << dds_strretcode(reader);
        return {};
    }
    std::this_thread::sleep_until(participant->Created() + discoveryTime);

    std::array<void*, kMaxListed> samples{};
    std::array<dds_sample_info_t, kMaxListed> infos{};
    const dds_return_t n =
        dds_read_mask(reader, samples.data(), infos.data(), kMaxListed, kMaxListed,
                      DDS_ANY_SAMPLE_STATE | DDS_ANY_VIEW_STATE | DDS_ALIVE_INSTANCE_STATE);
    std::vector<DdsDaemonInfo> daemons;
    for (dds_return_t i = 0; i < n; ++i) {
        if (!infos[i].valid_data) {
            continue;
        }
        const auto* sample = static_cast<const dds_builtintopic_participant_t*>(samples[i]);
        void* data = nullptr;
        std::size_t size = 0;
        if (sample->qos == nullptr || !dds_qget_userdata(sample->qos, &data, &size) ||
            data == nullptr) {
            continue;
        }
        const String userData(static_cast<const char*>(data), size);
        dds_free(data);
        if (userData.rfind("wardend;", 0) != 0) {
            continue;  // not a daemon
        }
        DdsDaemonInfo daemon;
        daemon.instanceId =
            UserDataValue(userData.data(), userData.size(), "instance").value_or("");
        daemon.host = UserDataValue(userData.data(), userData.size(), "host").value_or("");
        const String pid = UserDataValue(userData.data(), userData.size(), "pid").value_or("0");
        daemon.pid = static_cast<std::uint32_t>(std::strtoul(pid.c_str(), nullptr, 10));
        daemons.push_back(std::move(daemon));
    }
    if (n > 0) {
        dds_return_loan(reader, samples.data(), n);
    }
    std::sort(daemons.begin(), daemons.end(), [](const DdsDaemonInfo& a, const DdsDaemonInfo& b) {
        return a.instanceId != b.instanceId ? a.instanceId < b.instanceId : a.pid < b.pid;
    });
    return daemons;
}

}  // namespace lumo::driver::dds
