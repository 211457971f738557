#include "tools/wardenctl/command_line.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <map>
#include <sstream>

namespace vesk::wardenctl {

namespace {

using vesk::wardend::DriverType;

constexpr const char* kDescription =
    "wardenctl asks wardend, the CM maintenance daemon, what is registered: nodes, events, "
    "methods, data types, E2E configuration; and it switches latency measurement of events.";

constexpr const char* kFooter =
    "The options --json, --driver, --instance and --timeout work before or after the "
    "subcommand.\n"
    "Exit status:\n"
    "  0  the daemon answered; an empty answer (nothing registered, unknown name) is an answer\n"
    "  1  the daemon could not be reached or gave no answer within --timeout; one line on\n"
    "     standard error says why\n"
    "  2  the command line is wrong; the usage text goes to standard error\n"
    "  3  the daemon answered that it failed (latency on|off with a non-zero result)\n"
    "With --watch a list command redraws until Ctrl-C (exit 0); a failed call is reported on\n"
    "standard error and retried at the next interval.";

constexpr const char* kGlobalFooter =
    "Global options, before or after the subcommand: --json, --driver someip|dds, "
    "--instance ID, --timeout MS (see wardenctl --help).";

constexpr const char* kKeyFooter =
    "An event is named by its service and instance ids and by its SOME/IP event id or its DDS "
    "topic. Ids are decimal or hexadecimal with 0x (0x1234).";

// A 16-bit id, decimal or 0x-hexadecimal; the text becomes decimal for CLI11's own conversion.
CLI::Validator IdValidator() {
    return CLI::Validator(
        [](std::string& text) -> std::string {
            const bool hex =
                text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
            const std::string digits = hex ? text.substr(2) : text;
            const auto isDigit = [hex](unsigned char c) {
                return hex ? std::isxdigit(c) != 0 : std::isdigit(c) != 0;
            };
            if (digits.empty() || digits.size() > 6 ||
                !std::all_of(digits.begin(), digits.end(), isDigit)) {
                return "not an id (decimal, or hexadecimal with 0x): " + text;
            }
            const unsigned long value = std::strtoul(digits.c_str(), nullptr, hex ? 16 : 10);
            if (value > 0xFFFFUL) {
                return "id out of range 0 to 0xFFFF: " + text;
            }
            text = std::to_string(value);
            return {};
        },
        "ID");
}

// The options that name an event. Both forms of the event part when latency allows both.
void AddEventKey(CLI::App& sub, Command& command, bool bothForms) {
    sub.add_option("--service", command.key.serviceId, "service id of the event")
        ->required()
        ->transform(IdValidator());
    sub.add_option("--instance-id", command.key.instanceId,
                   "instance id of the event (default 1); not the daemon's --instance")
        ->transform(IdValidator())
        ->capture_default_str();
    auto* group = sub.add_option_group(
        "event", bothForms ? "the SOME/IP event, the DDS topic, or both"
                           : "exactly one of the SOME/IP event and the DDS topic");
    group->add_option("--event-id", command.key.eventId, "SOME/IP event id")
        ->transform(IdValidator());
    group->add_option("--topic", command.key.topic, "DDS topic name");
    if (bothForms) {
        group->require_option(1, 2);
    } else {
        group->require_option(1);
    }
    sub.footer(std::string(kKeyFooter) + "\n" + kGlobalFooter);
}

void AddWatch(CLI::App& sub, double& seconds) {
    sub.add_option("--watch", seconds,
                   "redraw every SECONDS (default 2) until Ctrl-C; with --json one document a "
                   "line")
        ->expected(0, 1)
        ->default_str("2")
        ->type_name("[SECONDS]")
        ->check(CLI::Range(0.1, 3600.0));
}

// The subcommand that the parse reached, and the names above it for its usage line.
const CLI::App* Deepest(const CLI::App& app, std::string& parents) {
    const CLI::App* deepest = &app;
    parents.clear();
    for (auto subs = app.get_subcommands(); !subs.empty(); subs = deepest->get_subcommands()) {
        parents += parents.empty() ? deepest->get_name() : " " + deepest->get_name();
        deepest = subs.front();
    }
    return deepest;
}

}  // namespace

ParseOutcome ParseCommandLine(const std::vector<std::string>& args) {
    Command command;
    CLI::App app(kDescription, "wardenctl");
    app.footer(kFooter);
    app.fallthrough();  // subcommands inherit it: the global options work after them too
    app.require_subcommand(1);

    std::string driver = "someip";
    std::uint32_t timeoutMs = 2000;
    double watchSeconds = 0;
    app.add_flag("--json", command.json, "print one JSON document on standard output");
    app.add_option("--driver", driver, "how to reach the daemon: someip (default) or dds")
        ->check(CLI::IsMember({"someip", "dds"}));
    app.add_option("--instance", command.instance,
                   R"(the daemon's instance id, "Wardend"."instanceId" of its vesk.json)")
        ->capture_default_str();
    app.add_option("--timeout", timeoutMs, "how long to wait for the daemon, in milliseconds")
        ->check(CLI::Range(1U, 3600000U))
        ->capture_default_str();

    // Each leaf sets the command's kind when the parse reaches it.
    const auto leaf = [&command](CLI::App& parent, const std::string& name,
                                 const std::string& description, CommandKind kind) {
        CLI::App* sub = parent.add_subcommand(name, description);
        sub->footer(kGlobalFooter);
        sub->parse_complete_callback([&command, kind] { command.kind = kind; });
        return sub;
    };
    // A leaf that takes one name: the node, event type, method or data type asked about.
    const auto named = [&command, &leaf](CLI::App& parent, const std::string& name,
                                         const std::string& description, CommandKind kind,
                                         const std::string& argument, const std::string& help) {
        leaf(parent, name, description, kind)->add_option(argument, command.name, help)->required();
    };
    const auto group = [&app](const std::string& name, const std::string& description) {
        CLI::App* sub = app.add_subcommand(name, description);
        sub->require_subcommand(1);
        sub->footer(kGlobalFooter);
        return sub;
    };

    CLI::App* node = group("node", "nodes: the applications registered with the daemon");
    AddWatch(*leaf(*node, "list", "live nodes and their process ids", CommandKind::kNodeList),
             watchSeconds);
    named(*node, "info",
          "what a node publishes, subscribes to, serves and uses; nothing when it is unknown or "
          "its process has ended",
          CommandKind::kNodeInfo, "NAME", "node name");

    CLI::App* event = group("event", "events: publishers, subscribers and data types");
    AddWatch(*leaf(*event, "list", "every event with a live publisher or subscriber",
                   CommandKind::kEventList),
             watchSeconds);
    named(*event, "info", "the records of one event type, one for each driver",
          CommandKind::kEventInfo, "TYPE", "event type");
    named(*event, "show", "the data type of an event, its publisher and whether it is online",
          CommandKind::kEventShow, "TYPE", "event type");
    CLI::App* sub = leaf(*event, "sub",
                         "an event that has subscribers but no online publisher: its "
                         "subscribers and last publisher; empty while a publisher is online",
                         CommandKind::kEventSub);
    AddEventKey(*sub, command, false);
    sub->add_option("--event-type", command.excludedEventType,
                    "answer only when the event's type differs from TYPE");

    AddEventKey(*leaf(app, "e2e", "the E2E configuration that the subscribers of an event declared",
                      CommandKind::kE2e),
                command, false);

    CLI::App* method = group("method", "methods: servers and data types");
    AddWatch(*leaf(*method, "list", "every method with a live server", CommandKind::kMethodList),
             watchSeconds);
    named(*method, "info", "the records of one method, one for each driver",
          CommandKind::kMethodInfo, "NAME", "method name");
    named(*method, "type", "the request and reply data types of a method", CommandKind::kMethodType,
          "NAME", "method name");

    CLI::App* type = group("type", "data types read from the .msg files");
    AddWatch(*leaf(*type, "list", "every data type the daemon has read", CommandKind::kTypeList),
             watchSeconds);
    named(*type, "show", "the description of a data type, references followed",
          CommandKind::kTypeShow, "NAME", "data type name");
    leaf(*type, "refs", "each root data type and the types it refers to", CommandKind::kTypeRefs);

    CLI::App* latency = group("latency", "latency measurement of an event in its applications");
    AddEventKey(*leaf(*latency, "on", "switch measurement on", CommandKind::kLatencyOn), command,
                true);
    AddEventKey(*leaf(*latency, "off", "switch measurement off", CommandKind::kLatencyOff), command,
                true);
    AddEventKey(*leaf(*latency, "status", "the mode of each publisher and subscriber",
                      CommandKind::kLatencyStatus),
                command, true);
    CLI::App* result = leaf(*latency, "result",
                            "average, maximum and minimum latency of each application over the "
                            "last --period seconds",
                            CommandKind::kLatencyResult);
    AddEventKey(*result, command, true);
    result->add_option("--period", command.period, "seconds to look back")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();

    ParseOutcome outcome;
    std::vector<std::string> reversed(args.rbegin(), args.rend());  // CLI11 takes them reversed
    try {
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::string parents;
        outcome.out = Deepest(app, parents)->help(parents);
        return outcome;
    } catch (const CLI::ParseError& error) {
        std::string parents;
        const CLI::App* deepest = Deepest(app, parents);
        std::ostringstream err;
        err << "wardenctl: " << error.what() << "\n" << deepest->help(parents);
        outcome.exitCode = kExitUsage;
        outcome.err = err.str();
        return outcome;
    }

    command.driver = driver == "dds" ? lumo::vcc::api::types::DriverType::kDds
                                     : lumo::vcc::api::types::DriverType::kSomeip;
    command.timeout = std::chrono::milliseconds(timeoutMs);
    if (watchSeconds > 0) {
        command.watch = std::chrono::milliseconds(static_cast<long>(watchSeconds * 1000));
    }
    outcome.command = command;
    return outcome;
}

vesk::wardend::QuerySubEventInfoIndex SubEventIndex(const Command& command) {
    vesk::wardend::QuerySubEventInfoIndex index;
    index.serviceId = command.key.serviceId;
    index.instanceId = command.key.instanceId;
    index.driver = command.key.topic ? DriverType::DDS : DriverType::SOMEIP;
    index.eventId = command.key.eventId.value_or(0);
    index.topicName = command.key.topic.value_or("");
    index.eventType = command.excludedEventType;
    // The event registry answers source DDS; any other value asks the E2E registry.
    index.source = command.kind == CommandKind::kE2e ? DriverType::SOMEIP : DriverType::DDS;
    return index;
}

vesk::wardend::LatencyIndex LatencyIndexOf(const EventKey& key) {
    vesk::wardend::LatencyIndex index;
    index.serviceId = key.serviceId;
    index.instanceId = key.instanceId;
    if (key.topic) {
        index.drivers.push_back(DriverType::DDS);
        index.topicName = *key.topic;
    }
    if (key.eventId) {
        index.drivers.push_back(DriverType::SOMEIP);
        index.eventId = *key.eventId;
    }
    return index;
}

}  // namespace vesk::wardenctl
