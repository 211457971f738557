#ifndef PLATFORM_VCC_API_TYPES_ENTITY_INFO_H
#define PLATFORM_VCC_API_TYPES_ENTITY_INFO_H

#include <cstdint>
#include <memory>

#include "platform/core/string.h"
#include "platform/serialize/serialize_config.h"
#include "platform/vcc/api/types/driver_type.h"
#include "platform/vcc/api/types/e2e.h"
#include "platform/vcc/api/types/pdu.h"

namespace lumo::vcc::api::types {

// Where an entity lives on SOME/IP: the wire ids and the endpoints of its service.
struct SomeipEntityConfig {
    std::uint16_t serviceId{0};
    std::uint16_t instanceId{1};
    std::uint16_t memberId{0};      // method id, or event id (0x8000 and above)
    std::uint16_t eventgroupId{0};  // events only
    std::uint8_t majorVersion{1};
    std::uint32_t minorVersion{0};
    ara::core::String address{"127.0.0.1"};  // the service's TCP and UDP endpoint
    std::uint16_t port{0};
    ara::core::String sdAddress{"127.0.0.1"};
    std::uint16_t sdPort{30490};
    ara::core::String sdMulticast;            // empty: unicast only
    bool udp{false};                          // a client calls over UDP instead of TCP
    std::uint32_t maxMessageSize{1U << 20U};  // TCP, header included
    std::uint32_t udpMaxSize{1400};           // one datagram, header included
    // What a client takes in over TCP. Larger: a query over a whole fleet's tables answers with
    // megabytes, while requests stay small and a server reads them from anyone.
    std::uint32_t maxReplySize{32U << 20U};
};

// Where an entity lives on DDS: its topic stem ("wardend/App/RegisterAppInfo") and domain.
struct DdsEntityConfig {
    std::uint32_t domainId{0};
    ara::core::String topic;
    // The daemon instance that a client's requests name; the server's own on the server side.
    ara::core::String targetInstance{"1"};
};

// One entity (method or event) on one driver.
class EntityInfo {
public:
    EntityInfo() = default;
    EntityInfo(const EntityInfo&) = default;
    EntityInfo& operator=(const EntityInfo&) = default;
    virtual ~EntityInfo() = default;

    virtual DriverType GetDriverType() const { return driverType; }

    // serviceId "_" instanceId "_" entityId, in decimal.
    ara::core::String GetEntityIdentifier() const;

    DriverType driverType{DriverType::kProloc};
    std::uint32_t entityId{0};
    std::uint16_t serviceId{0};
    ara::core::String instanceId;
    ara::core::String shortName;
    ara::core::String instanceShortName;             // may be empty
    std::shared_ptr<com::e2exf::E2EProtection> e2e;  // absent: unprotected
    SomeipEntityConfig someip;
    DdsEntityConfig dds;
};

class MethodInfo : public EntityInfo {
public:
    // Request parameters and reply.
    serialize::SerializeConfig requestConfig;
    std::shared_ptr<serialize::SerializationNode> requestNode;
    serialize::SerializeConfig replyConfig;
    std::shared_ptr<serialize::SerializationNode> replyNode;
    // The reply is a structure of one wrapped member: its first member node governs it.
    bool replyIsSingleWrappedMember{false};
    bool isFireForget{false};
};

class EventInfo : public EntityInfo {
public:
    bool isField{false};
    serialize::SerializeConfig config;
    std::shared_ptr<serialize::SerializationNode> rootNode;  // may be absent
    std::shared_ptr<Pdu> pdu;                                // signal-based only
};

}  // namespace lumo::vcc::api::types

#endif
