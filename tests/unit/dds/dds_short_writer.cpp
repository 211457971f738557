// Writes one truncated envelope to the topic named on the command line, on the domain named
// there, and exits: 0 when it was written and acknowledged, 1 otherwise.
#include <dds/dds.h>

#include <cstdio>
#include <cstdlib>

#include "tests/unit/dds/short_envelope.h"

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: dds_short_writer DOMAIN TOPIC\n");
        return 2;
    }
    const dds_entity_t participant = dds_create_participant(
        static_cast<dds_domainid_t>(std::strtoul(argv[1], nullptr, 10)), nullptr, nullptr);
    const dds_entity_t topic =
        dds_create_topic(participant, &wardend_dds_Envelope_desc, argv[2], nullptr, nullptr);
    dds_qos_t* qos = dds_create_qos();
    dds_qset_reliability(qos, DDS_RELIABILITY_RELIABLE, DDS_SECS(1));
    const dds_entity_t writer = dds_create_writer(participant, topic, qos, nullptr);
    dds_delete_qos(qos);
    if (writer < 0) {
        return 1;
    }
    // Bounded: 10 s for the reader to be matched.
    dds_publication_matched_status_t status{};
    for (int i = 0; i < 1000 && status.current_count == 0; ++i) {
        dds_get_publication_matched_status(writer, &status);
        dds_sleepfor(DDS_MSECS(10));
    }
    wardend_dds_Envelope sample{};
    sample.serviceId = 0x5700;
    const bool written = status.current_count > 0 && dds_write(writer, &sample) == DDS_RETCODE_OK &&
                         dds_wait_for_acks(writer, DDS_SECS(5)) == DDS_RETCODE_OK;
    dds_delete(participant);
    return written ? 0 : 1;
}
