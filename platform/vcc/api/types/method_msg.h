#ifndef PLATFORM_VCC_API_TYPES_METHOD_MSG_H
#define PLATFORM_VCC_API_TYPES_METHOD_MSG_H

#include <cstdint>
#include <memory>

#include "platform/vcc/api/types/driver_type.h"

namespace lumo::vcc::api::types {

// Identifies the sender of a request: on SOME/IP the client and session id, on DDS the
// request's writer and sequence, in-process a process-wide counter.
struct Uuid {
    std::uint64_t high{0};
    std::uint64_t low{0};
};

// One request as a driver delivers it. The driver owns payload until ReturnLoan; the binding
// holds the message through a shared reference until its reply has gone out.
struct MethodMsg {
    const unsigned char* payload{nullptr};  // in-process: the loan key of the request store
    std::uint64_t size{0};
    DriverType driverType{DriverType::kProloc};
    bool isErrorReply{false};
    bool isTrafficControlled{false};
    std::uint8_t serializeType{0};   // SerializeType
    std::uint8_t e2eCheckStatus{0};  // lumo::com::e2exf::ProfileCheckStatus
    std::uint32_t e2eCounter{0};
    Uuid uuid;
    // Driver-defined context to reply through (connection, peer endpoint, request header), so
    // that the reply can go out after the request buffer went back to the driver.
    std::shared_ptr<void> replyRoute;
};

}  // namespace lumo::vcc::api::types

#endif
