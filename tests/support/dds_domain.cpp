#include "tests/support/dds_domain.h"

#include <dds/dds.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>

namespace wardend::test {

namespace {
// Domain ids 1 to 230 keep Cyclone's port numbers in range and leave the default domain 0 alone;
// the discovery tag keeps apart two test processes that draw the same id.
constexpr std::uint32_t kDomainSpan = 230;
}  // namespace

DdsTestDomain::DdsTestDomain()
    : id_(1 + static_cast<std::uint32_t>(getpid()) % kDomainSpan),
      config_(
          "<CycloneDDS><Domain id=\"any\"><General><Interfaces>"
          "<NetworkInterface address=\"127.0.0.1\"/></Interfaces>"
          "<AllowMulticast>false</AllowMulticast></General><Discovery>"
          "<ParticipantIndex>auto</ParticipantIndex>"
          "<MaxAutoParticipantIndex>40</MaxAutoParticipantIndex>"
          "<Peers><Peer address=\"127.0.0.1\"/></Peers><Tag>wardend-test-" +
          std::to_string(getpid()) + "</Tag></Discovery></Domain></CycloneDDS>") {
    setenv("CYCLONEDDS_URI", config_.c_str(), 1);
}

std::set<std::string> DdsTestDomain::WaitForTopics(const std::set<std::string>& expected,
                                                   std::chrono::milliseconds timeout) const {
    std::set<std::string> seen;
    const dds_entity_t participant = dds_create_participant(id_, nullptr, nullptr);
    if (participant < 0) {
        return seen;
    }
    const std::array<dds_entity_t, 2> readers{
        dds_create_reader(participant, DDS_BUILTIN_TOPIC_DCPSPUBLICATION, nullptr, nullptr),
        dds_create_reader(participant, DDS_BUILTIN_TOPIC_DCPSSUBSCRIPTION, nullptr, nullptr)};
    WaitUntil(
        [&] {
            for (const dds_entity_t reader : readers) {
                std::array<void*, 64> samples{};
                std::array<dds_sample_info_t, 64> infos{};
                const dds_return_t n =
                    dds_take(reader, samples.data(), infos.data(), samples.size(), samples.size());
                for (dds_return_t i = 0; i < n; ++i) {
                    const auto* endpoint =
                        static_cast<const dds_builtintopic_endpoint_t*>(samples[i]);
                    if (infos[i].valid_data && endpoint->topic_name != nullptr) {
                        seen.insert(endpoint->topic_name);
                    }
                }
                if (n > 0) {
                    dds_return_loan(reader, samples.data(), n);
                }
            }
            return std::includes(seen.begin(), seen.end(), expected.begin(), expected.end());
        },
        timeout);
    dds_delete(participant);
    return seen;
}

}  // namespace wardend::test
