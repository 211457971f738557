#ifndef PLATFORM_DRIVER_DDS_DDS_PARTICIPANT_H
#define PLATFORM_DRIVER_DDS_DDS_PARTICIPANT_H

#include <dds/dds.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/core/string.h"
#include "platform/driver/dds/dds_envelope.h"

namespace lumo::driver::dds {

// While one of these exists, Cyclone DDS writes its own warnings and errors to the log context
// "CM" instead of standard error, each source line of Cyclone under its own rate-limited tag.
class CycloneLogBridge {
public:
    CycloneLogBridge();
    ~CycloneLogBridge();
    CycloneLogBridge(const CycloneLogBridge&) = delete;
    CycloneLogBridge& operator=(const CycloneLogBridge&) = delete;
};

// One Cyclone DDS participant of the driver on one domain, and the topics made on it.
class DdsParticipant {
public:
    // Joins domainId. An empty cycloneConfig leaves the configuration to Cyclone (the
    // CYCLONEDDS_URI environment variable); otherwise it is a list of XML fragments and file
    // URIs, and CYCLONEDDS_URI, when set, is applied after it. A domain that this process has
    // joined already keeps its configuration. Null, with a log line, when the domain cannot be
    // joined.
    static std::shared_ptr<DdsParticipant> Create(std::uint32_t domainId,
                                                  const ara::core::String& cycloneConfig,
                                                  const ara::core::String& userData);

    DdsParticipant(const DdsParticipant&) = delete;
    DdsParticipant& operator=(const DdsParticipant&) = delete;
    // Deletes the participant and every reader, writer and topic made on it.
    ~DdsParticipant();
    // The same, earlier; entities made on it fail from then on. Idempotent.
    void Close();

    dds_entity_t Handle() const { return participant_; }
    std::uint32_t DomainId() const { return domainId_; }
    std::chrono::steady_clock::time_point Created() const { return created_; }
    // The topic of that name, made on first use. Negative, with a log line, when refused.
    dds_entity_t Topic(const ara::core::String& name);
    // A reader of the built-in participant topic, made on first use; negative on failure.
    dds_entity_t ParticipantReader();

private:
    DdsParticipant(std::uint32_t domainId, dds_entity_t participant, dds_entity_t domain);

    CycloneLogBridge logBridge_;
    const std::uint32_t domainId_;
    const dds_entity_t participant_;
    const dds_entity_t domain_;  // 0 unless this participant created the domain
    const std::chrono::steady_clock::time_point created_;
    std::mutex mutex_;  // guards closed_, topics_ and participantReader_
    bool closed_{false};
    std::map<ara::core::String, dds_entity_t> topics_;
    dds_entity_t participantReader_{0};
};

// The QoS of every reader and writer of the driver: reliable, keep-last of depth, volatile, and
// a max blocking time of 0, so that a write that cannot be taken now fails instead of waiting.
class EndpointQos {
public:
    EndpointQos(std::int32_t depth, const ara::core::String& userData);
    ~EndpointQos();
    EndpointQos(const EndpointQos&) = delete;
    EndpointQos& operator=(const EndpointQos&) = delete;
    const dds_qos_t* Get() const { return qos_; }

private:
    dds_qos_t* qos_;
};

// Every endpoint matched with a writer (its readers) or with a reader (its writers): its
// instance handle and user data. Not to be called on a Cyclone listener thread.
struct MatchedEndpoint {
    dds_instance_handle_t handle{0};
    ara::core::String userData;
};
std::vector<MatchedEndpoint> MatchedEndpoints(dds_entity_t entity, bool entityIsWriter);
// The user data of MatchedEndpoints alone.
std::vector<ara::core::String> MatchedUserData(dds_entity_t entity, bool entityIsWriter);

// Takes every sample reader holds, a batch at a time, and calls fn with each envelope that
// carries data; the envelope lives for the call only.
template <typename Fn>
void TakeEnvelopes(dds_entity_t reader, Fn&& fn) {
    constexpr std::uint32_t kBatch = 16;
    std::array<void*, kBatch> samples{};
    std::array<dds_sample_info_t, kBatch> infos{};
    for (;;) {
        samples.fill(nullptr);  // null asks Cyclone to lend its own samples
        const dds_return_t n = dds_take(reader, samples.data(), infos.data(), kBatch, kBatch);
        if (n <= 0) {
            return;
        }
        for (dds_return_t i = 0; i < n; ++i) {
            if (infos[i].valid_data) {
                fn(*static_cast<const Envelope*>(samples[i]));
            }
        }
        dds_return_loan(reader, samples.data(), n);
        if (static_cast<std::uint32_t>(n) < kBatch) {
            return;
        }
    }
}

}  // namespace lumo::driver::dds

#endif
