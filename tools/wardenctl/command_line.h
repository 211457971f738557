#ifndef TOOLS_WARDENCTL_COMMAND_LINE_H
#define TOOLS_WARDENCTL_COMMAND_LINE_H

// wardenctl's command line: what the user asked for, checked and typed. Parsing runs in-process
// and writes nothing, so that the tests can see every outcome.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/vcc/api/types/driver_type.h"
#include "records/wardend_records.h"

namespace vesk::wardenctl {

// Exit codes of wardenctl.
inline constexpr int kExitAnswer = 0;       // the daemon answered (an empty answer included)
inline constexpr int kExitUnreachable = 1;  // no daemon, or no answer within the timeout
inline constexpr int kExitUsage = 2;        // the command line was wrong
inline constexpr int kExitRefused = 3;      // the daemon answered with a failure result

enum class CommandKind {
    kNodeList,
    kNodeInfo,
    kEventList,
    kEventInfo,
    kEventShow,
    kEventSub,
    kE2e,
    kMethodList,
    kMethodInfo,
    kMethodType,
    kTypeList,
    kTypeShow,
    kTypeRefs,
    kLatencyOn,
    kLatencyOff,
    kLatencyStatus,
    kLatencyResult,
};

// An event as the daemon keys it: service and instance, then the SOME/IP event id, the DDS
// topic, or (for latency) both.
struct EventKey {
    std::uint16_t serviceId{};
    std::uint16_t instanceId{1};
    std::optional<std::uint16_t> eventId;
    std::optional<std::string> topic;
};

struct Command {
    CommandKind kind{CommandKind::kNodeList};
    lumo::vcc::api::types::DriverType driver{lumo::vcc::api::types::DriverType::kSomeip};
    std::string instance{"1"};
    std::chrono::milliseconds timeout{std::chrono::seconds(2)};
    bool json{false};
    std::optional<std::chrono::milliseconds> watch;  // list commands: redraw at this interval
    std::string name;                                // NAME or TYPE of the info commands
    EventKey key;                                    // event sub, e2e, latency
    std::string excludedEventType;                   // event sub --event-type
    std::uint16_t period{10};                        // latency result, in seconds
};

struct ParseOutcome {
    std::optional<Command> command;  // set when there is something to run
    int exitCode{kExitAnswer};       // when there is not
    std::string out;                 // help text
    std::string err;                 // the usage error and the usage text
};

// args without the program name.
ParseOutcome ParseCommandLine(const std::vector<std::string>& args);

// What the event commands send.
vesk::wardend::QuerySubEventInfoIndex SubEventIndex(const Command& command);
vesk::wardend::LatencyIndex LatencyIndexOf(const EventKey& key);

}  // namespace vesk::wardenctl

#endif
