#include "platform/driver/dds/dds_participant.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "platform/driver/dds/dds_envelope.h"

namespace lumo::driver::dds {

using ara::core::String;

namespace {

std::mutex bridgeMutex;  // guards bridgeUsers
int bridgeUsers = 0;

void CycloneLogSink(void* /*unused*/, const dds_log_data_t* data) {
    if (data == nullptr || data->message == nullptr) {
        return;
    }
    // The message comes without Cyclone's header (time, domain, thread); our sinks add theirs.
    String text(data->message, data->size);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) {
        text.pop_back();
    }
    const String tag = String("CycloneDDS:") + (data->file != nullptr ? data->file : "") + ":" +
                       std::to_string(data->line);
    const auto& log = CmLog();
    if ((data->priority & (DDS_LC_FATAL | DDS_LC_ERROR)) != 0) {
        log.LogError(tag, kPeerLimit) << "Cyclone DDS: " << text;
    } else if ((data->priority & DDS_LC_WARNING) != 0) {
        log.LogWarn(tag, kPeerLimit) << "Cyclone DDS: " << text;
    } else {
        log.LogInfo(tag, kPeerLimit) << "Cyclone DDS: " << text;
    }
}

String Reason(dds_return_t rc) {
    return String(dds_strretcode(rc)) + " (" + std::to_string(rc) + ")";
}

}  // namespace

CycloneLogBridge::CycloneLogBridge() {
    std::lock_guard<std::mutex> lock(bridgeMutex);
    if (bridgeUsers++ == 0) {
        dds_set_log_sink(&CycloneLogSink, nullptr);
    }
}

CycloneLogBridge::~CycloneLogBridge() {
    std::lock_guard<std::mutex> lock(bridgeMutex);
    if (--bridgeUsers == 0) {
        dds_set_log_sink(nullptr, nullptr);
    }
}

std::shared_ptr<DdsParticipant> DdsParticipant::Create(std::uint32_t domainId,
                                                       const String& cycloneConfig,
                                                       const String& userData) {
    const CycloneLogBridge bridge;  // Cyclone's reasons for a refusal reach our log too
    dds_entity_t domain = 0;
    if (!cycloneConfig.empty()) {
        if (domainId == DDS_DOMAIN_DEFAULT) {
            CmLog().LogError() << "DDS driver: a Cyclone DDS configuration needs an explicit "
                                  "domain id; the default domain was asked for";
            return nullptr;
        }
        String config = cycloneConfig;
        const char* uri = std::getenv("CYCLONEDDS_URI");
        if (uri != nullptr && *uri != '\0') {
            config += String(",") + uri;
        }
        domain = dds_create_domain(domainId, config.c_str());
        if (domain == DDS_RETCODE_PRECONDITION_NOT_MET) {
            CmLog().LogInfo() << "DDS driver: domain " << domainId
                              << " is joined by this process already and keeps its configuration";
            domain = 0;
        } else if (domain < 0) {
            CmLog().LogError() << "DDS driver: cannot create domain " << domainId
                               << " from its configuration: " << Reason(domain);
            return nullptr;
        }
    }
    dds_qos_t* qos = dds_create_qos();
    if (!userData.empty()) {
        dds_qset_userdata(qos, userData.data(), userData.size());
    }
    const dds_entity_t participant = dds_create_participant(domainId, qos, nullptr);
    dds_delete_qos(qos);
    if (participant < 0) {
        CmLog().LogError() << "DDS driver: cannot join domain " << domainId << ": "
                           << Reason(participant);
        if (domain > 0) {
            dds_delete(domain);
        }
        return nullptr;
    }
    return std::shared_ptr<DdsParticipant>(new DdsParticipant(domainId, participant, domain));
}

DdsParticipant::DdsParticipant(std::uint32_t domainId, dds_entity_t participant,
                               dds_entity_t domain)
    : domainId_(domainId),
      participant_(participant),
      domain_(domain),
      created_(std::chrono::steady_clock::now()) {}

DdsParticipant::~DdsParticipant() {
    Close();
}

void DdsParticipant::Close() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        topics_.clear();
        participantReader_ = 0;
    }
    // Deleting the participant deletes its readers and writers and waits for their listeners.
    dds_delete(participant_);
    if (domain_ > 0 && dds_get_children(domain_, nullptr, 0) == 0) {
        dds_delete(domain_);
    }
}

dds_entity_t DdsParticipant::Topic(const String& name) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    auto it = topics_.find(name);
    if (it != topics_.end()) {
        return it->second;
    }
    const dds_entity_t topic =
        dds_create_topic(participant_, &wardend_dds_Envelope_desc, name.c_str(), nullptr, nullptr);
    if (topic < 0) {
        CmLog().LogError() << "DDS driver: cannot create topic \"" << name << "\" on domain "
                           << domainId_ << ": " << Reason(topic);
        return topic;
    }
    topics_.emplace(name, topic);
    return topic;
}

EndpointQos::EndpointQos(std::int32_t depth, const String& userData) : qos_(dds_create_qos()) {
    dds_qset_reliability(qos_, DDS_RELIABILITY_RELIABLE, 0);
    dds_qset_history(qos_, DDS_HISTORY_KEEP_LAST, depth);
    dds_qset_durability(qos_, DDS_DURABILITY_VOLATILE);
    if (!userData.empty()) {
        dds_qset_userdata(qos_, userData.data(), userData.size());
    }
}

EndpointQos::~EndpointQos() {
    dds_delete_qos(qos_);
}

std::vector<MatchedEndpoint> MatchedEndpoints(dds_entity_t entity, bool entityIsWriter) {
    std::vector<dds_instance_handle_t> handles(16);
    for (;;) {
        const dds_return_t n =
            entityIsWriter ? dds_get_matched_subscriptions(entity, handles.data(), handles.size())
                           : dds_get_matched_publications(entity, handles.data(), handles.size());
        if (n < 0) {
            return {};
        }
        if (static_cast<std::size_t>(n) <= handles.size()) {
            handles.resize(static_cast<std::size_t>(n));
            break;
        }
        handles.resize(static_cast<std::size_t>(n));
    }
    std::vector<MatchedEndpoint> result;
    result.reserve(handles.size());
    for (const dds_instance_handle_t handle : handles) {
        dds_builtintopic_endpoint_t* endpoint =
            entityIsWriter ? dds_get_matched_subscription_data(entity, handle)
                           : dds_get_matched_publication_data(entity, handle);
        if (endpoint == nullptr) {
            continue;  // gone since the list was taken
        }
        void* data = nullptr;
        std::size_t size = 0;
        if (endpoint->qos != nullptr && dds_qget_userdata(endpoint->qos, &data, &size) &&
            data != nullptr) {
            result.push_back({handle, String(static_cast<const char*>(data), size)});
            dds_free(data);
        } else {
            result.push_back({handle, String()});
        }
        dds_builtintopic_free_endpoint(endpoint);
    }
    return result;
}

std::vector<String> MatchedUserData(dds_entity_t entity, bool entityIsWriter) {
    std::vector<String> result;
    for (auto& endpoint : MatchedEndpoints(entity, entityIsWriter)) {
        result.push_back(std::move(endpoint.userData));
    }
    return result;
}

dds_entity_t DdsParticipant::ParticipantReader() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (closed_) {
        return DDS_RETCODE_ALREADY_DELETED;
    }
    if (participantReader_ <= 0) {
        participantReader_ =
            dds_create_reader(participant_, DDS_BUILTIN_TOPIC_DCPSPARTICIPANT, nullptr, nullptr);
    }
    return participantReader_;
}

}  // namespace lumo::driver::dds
