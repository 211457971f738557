#include "tools/wardenctl/views.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace vesk::wardenctl {

namespace {

using namespace vesk::wardend;
using Row = std::vector<std::string>;

constexpr const char* kNone = "-";

bool NeedsEscape(char c, bool keepNewlines = false) {
    const auto byte = static_cast<unsigned char>(c);
    return (byte < 0x20 && !(keepNewlines && c == '\n')) || byte == 0x7F;
}

// Control characters as \xNN; a newline stays when the text is meant to span lines.
std::string Printable(const std::string& text, bool keepNewlines = false) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (NeedsEscape(c, keepNewlines)) {
            char escaped[5];
            std::snprintf(escaped, sizeof(escaped), "\\x%02X", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out;
}

// Columns count characters, not bytes: UTF-8 continuation bytes take no column.
std::size_t Width(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
        return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    }));
}

std::string Hex(std::uint16_t id) {
    char text[7];
    std::snprintf(text, sizeof(text), "0x%04X", static_cast<unsigned>(id));
    return text;
}

std::string OrNone(const std::string& text) {
    return text.empty() ? kNone : text;
}

std::string YesNo(bool value) {
    return value ? "yes" : "no";
}

std::string Join(const std::vector<std::string>& items) {
    std::string out;
    for (const auto& item : items) {
        out += out.empty() ? item : ", " + item;
    }
    return OrNone(out);
}

// A label row, or for a list one row for each item with the label on the first.
void AddRows(Table& table, const std::string& label, const std::vector<std::string>& items) {
    if (items.empty()) {
        table.rows.push_back({label, kNone});
        return;
    }
    for (std::size_t i = 0; i < items.size(); ++i) {
        table.rows.push_back({i == 0 ? label : "", items[i]});
    }
}

void AddRow(Table& table, const std::string& label, const std::string& value) {
    table.rows.push_back({label, OrNone(value)});
}

std::string E2eProfileText(E2EProfile profile) {
    return profile == E2EProfile::kNone ? "none" : std::to_string(static_cast<unsigned>(profile));
}

std::string ModeText(LatencyMode mode) {
    switch (mode) {
        case LatencyMode::kOff:
            return "off";
        case LatencyMode::kOn:
            return "on";
    }
    return std::to_string(static_cast<unsigned>(mode));
}

// A .msg description pretty-printed; text that is not JSON as it stands.
std::string Description(const std::string& text) {
    if (text.empty()) {
        return "(not known to the daemon)\n";
    }
    const auto parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded()) {
        return Printable(text, true) + "\n";
    }
    return parsed.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

// Where an event lives on its record's own driver, the first entry of its map.
struct EventPlace {
    std::string driver{kNone};
    std::string service{kNone};
    std::string instance{kNone};
    std::string event{kNone};  // SOME/IP event id or DDS topic
    std::string shortName{kNone};
    std::string e2eProfile{kNone};
};

EventPlace PlaceOf(const EventRegisterInfo& info) {
    EventPlace place;
    if (info.eventMap_.empty()) {
        return place;
    }
    const auto& [driver, entry] = *info.eventMap_.begin();
    place.driver = DriverName(driver);
    if (driver == DriverType::DDS) {
        place.service = Hex(entry.dds.serviceId);
        place.instance = Hex(entry.dds.instanceId);
        place.event = OrNone(entry.dds.topicName);
        place.shortName = OrNone(entry.dds.instanceShortName);
        place.e2eProfile = E2eProfileText(entry.dds.e2eConfig.profile);
    } else {
        place.service = Hex(entry.someip.serviceId);
        place.instance = Hex(entry.someip.instanceId);
        place.event = Hex(entry.someip.eventId);
        place.shortName = OrNone(entry.someip.instanceShortName);
        place.e2eProfile = E2eProfileText(entry.someip.e2eConfig.profile);
    }
    return place;
}

Table EventBlock(const EventRegisterInfo& info, const std::vector<std::string>& subApps,
                 const std::string& pubApp, bool isOnline) {
    const EventPlace place = PlaceOf(info);
    Table table;
    AddRow(table, "event type", info.eventType);
    AddRow(table, "name", info.name);
    AddRow(table, "data type", info.text);
    AddRow(table, "driver", place.driver);
    AddRow(table, "service", place.service);
    AddRow(table, "instance", place.instance);
    AddRow(table, place.driver == "DDS" ? "topic" : "event id", place.event);
    AddRow(table, "instance name", place.shortName);
    AddRow(table, "publisher", pubApp);
    AddRow(table, "online", YesNo(isOnline));
    AddRow(table, "registered by", info.appName);
    AddRow(table, "pid", std::to_string(info.pid));
    AddRows(table, "subscribers", subApps);
    AddRow(table, "e2e profile", place.e2eProfile);
    return table;
}

struct MethodPlace {
    std::string driver{kNone};
    std::string method{kNone};  // SOME/IP method id or DDS "request / reply" topics
    std::string shortName{kNone};
};

MethodPlace PlaceOf(const MethodRegisterInfo& info) {
    MethodPlace place;
    if (info.methodMap_.empty()) {
        return place;
    }
    const auto& [driver, entry] = *info.methodMap_.begin();
    place.driver = DriverName(driver);
    if (driver == DriverType::DDS) {
        place.method = entry.dds.requestTopicName + " / " + entry.dds.replyTopicName;
        place.shortName = OrNone(entry.dds.instanceShortName);
    } else {
        place.method = Hex(entry.someip.methodId);
        place.shortName = OrNone(entry.someip.instanceShortName);
    }
    return place;
}

// Blocks one after the other, a blank line between them.
std::string Blocks(const std::vector<Table>& tables) {
    std::string text;
    for (const auto& table : tables) {
        text += text.empty() ? FormatTable(table) : "\n" + FormatTable(table);
    }
    return text;
}

// A table, or the line that says there is nothing to show.
std::string TableOr(const Table& table, const std::string& empty) {
    return table.rows.empty() ? empty + "\n" : FormatTable(table);
}

template <typename Output>
View ViewOf(const Output& output, std::string text) {
    return View{std::move(text), ExitCodeOf(output)};
}

}  // namespace

std::string FormatTable(const Table& table) {
    // Cells are read where they stand; only one that holds a control character is copied, to
    // escape it. A list of ten thousand events is then not copied cell by cell.
    std::string scratch;
    const auto shown = [&scratch](const std::string& cell) -> const std::string& {
        if (std::none_of(cell.begin(), cell.end(), [](char c) { return NeedsEscape(c); })) {
            return cell;
        }
        scratch = Printable(cell);
        return scratch;
    };
    const auto eachRow = [&table](const auto& visit) {
        if (!table.header.empty()) {
            visit(table.header);
        }
        for (const auto& row : table.rows) {
            visit(row);
        }
    };
    std::vector<std::size_t> widths;
    std::size_t lineBytes = 0;
    eachRow([&](const Row& row) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], Width(shown(row[i])));
        }
    });
    for (const std::size_t width : widths) {
        lineBytes += width + 2;
    }
    std::string text;
    text.reserve(lineBytes * (table.rows.size() + 1));
    eachRow([&](const Row& row) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string& cell = shown(row[i]);
            text += cell;
            if (i + 1 < row.size()) {
                text.append(widths[i] - Width(cell) + 2, ' ');
            }
        }
        text.erase(text.find_last_not_of(' ') + 1);
        text += '\n';
    });
    return text;
}

std::string RenderJson(const nlohmann::json& document) {
    return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

namespace {

// {"name":[record,record,...]} as the whole document would dump.
template <typename Record>
void WriteList(std::ostream& out, const char* name, const std::vector<Record>& records) {
    out << "{\"" << name << "\":[";
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (i > 0) {
            out << ',';
        }
        out << nlohmann::json(records[i])
                   .dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    out << "]}\n";
}

}  // namespace

void WriteDocument(std::ostream& out, const QueryEventInfoOutput& output) {
    WriteList(out, "eventInfos", output.eventInfos);
}

void WriteDocument(std::ostream& out, const QueryMethodInfoOutput& output) {
    WriteList(out, "methodInfos", output.methodInfos);
}

void WriteDocument(std::ostream& out, const QueryNodeInfoOutput& output) {
    WriteList(out, "nodeInfos", output.nodeInfos);
}

int ExitCodeOf(const SwitchLatencyModeOutput& output) {
    return output.result == 0 ? kExitAnswer : kExitRefused;
}

View NodeListView(const QueryNodeInfoOutput& output) {
    Table table{{"NODE", "PID"}, {}};
    for (const auto& node : output.nodeInfos) {
        table.rows.push_back({node.nodeName, std::to_string(node.pid)});
    }
    return ViewOf(output, TableOr(table, "No live node is registered."));
}

View NodeInfoView(const QueryNodeInfoOutput& output, const std::string& name) {
    std::vector<Table> blocks;
    for (const auto& node : output.nodeInfos) {
        Table table;
        AddRow(table, "node", node.nodeName);
        AddRow(table, "pid", std::to_string(node.pid));
        AddRows(table, "service instances", node.serviceInstances);
        AddRows(table, "publishes", node.pubEvents);
        AddRows(table, "subscribes", node.subEvents);
        AddRows(table, "methods", node.methods);
        AddRows(table, "fields", node.fields);
        blocks.push_back(std::move(table));
    }
    return ViewOf(output, blocks.empty() ? "Node " + Printable(name) +
                                               " is not registered, or its process has ended.\n"
                                         : Blocks(blocks));
}

View EventListView(const QueryEventInfoOutput& output) {
    Table table{{"EVENT TYPE", "DRIVER", "SERVICE", "INSTANCE", "EVENT/TOPIC", "PUBLISHER",
                 "ONLINE", "SUBSCRIBERS"},
                {}};
    for (const auto& event : output.eventInfos) {
        const EventPlace place = PlaceOf(event.registerInfo);
        table.rows.push_back({OrNone(event.registerInfo.eventType), place.driver, place.service,
                              place.instance, place.event, OrNone(event.pubApp),
                              YesNo(event.isOnline), Join(event.subApps)});
    }
    return ViewOf(output, TableOr(table, "No event is registered."));
}

View EventInfoView(const QueryEventInfoOutput& output, const std::string& type) {
    std::vector<Table> blocks;
    for (const auto& event : output.eventInfos) {
        blocks.push_back(
            EventBlock(event.registerInfo, event.subApps, event.pubApp, event.isOnline));
    }
    return ViewOf(output, blocks.empty() ? "Event type " + Printable(type) +
                                               " has no live publisher or subscriber.\n"
                                         : Blocks(blocks));
}

View EventShowView(const QueryEventShowOutput& output, const std::string& type) {
    if (output.pubState.empty()) {
        return ViewOf(output, "Event type " + Printable(type) + " is not registered.\n");
    }
    Table table;
    AddRow(table, "publisher", output.pubApp);
    AddRow(table, "state", output.pubState);
    return ViewOf(output,
                  FormatTable(table) + "data type:\n" + Description(output.dataTypeDescription));
}

View EventSubView(const QuerySubNodeEventInfoOutput& output) {
    if (output.registerInfo.eventMap_.empty()) {
        return ViewOf(output,
                      "No answer: the event is unknown, or a publisher is online, or its type "
                      "is the one excluded.\n");
    }
    return ViewOf(output, FormatTable(EventBlock(output.registerInfo, output.subApps, output.pubApp,
                                                 output.isOnline)));
}

View E2eView(const QuerySubNodeEventInfoOutput& output) {
    const auto& map = output.registerInfo.eventMap_;
    if (map.empty()) {
        return ViewOf(output, "No live subscriber declared an E2E configuration for this event.\n");
    }
    const auto& [driver, entry] = *map.begin();
    const E2EConfigInfo& e2e =
        driver == DriverType::DDS ? entry.dds.e2eConfig : entry.someip.e2eConfig;
    std::vector<std::string> dataIds;
    for (const auto id : e2e.dataIdList) {
        dataIds.push_back(std::to_string(id));
    }
    const auto number = [](auto value) { return std::to_string(static_cast<unsigned>(value)); };
    Table table;
    AddRow(table, "driver", DriverName(driver));
    AddRow(table, "profile", E2eProfileText(e2e.profile));
    AddRow(table, "data ids", Join(dataIds));
    AddRow(table, "data id mode", number(e2e.dataIdMode));
    AddRow(table, "flags", YesNo(e2e.flagA) + " " + YesNo(e2e.flagB));
    AddRow(table, "values",
           number(e2e.valueA) + " " + number(e2e.valueB) + " " + number(e2e.valueC) + " " +
               number(e2e.valueD) + " " + number(e2e.valueE));
    AddRow(table, "state parameters",
           number(e2e.stateParam1) + " " + number(e2e.stateParam2) + " " + number(e2e.stateParam3) +
               " " + number(e2e.stateParam4) + " " + number(e2e.stateParam5) + " " +
               number(e2e.stateParam6) + " " + number(e2e.stateParam7) + " " +
               number(e2e.stateParam8) + " " + number(e2e.stateParam9));
    AddRow(table, "state flag", YesNo(e2e.stateFlag));
    return ViewOf(output, FormatTable(table));
}

View MethodListView(const QueryMethodInfoOutput& output) {
    Table table{{"METHOD", "DRIVER", "SERVICE", "INSTANCE", "METHOD/TOPICS", "SERVER", "PID"}, {}};
    for (const auto& method : output.methodInfos) {
        const MethodPlace place = PlaceOf(method);
        table.rows.push_back({OrNone(method.name), place.driver, Hex(method.serviceId),
                              Hex(method.instanceId), place.method, OrNone(method.appName),
                              std::to_string(method.pid)});
    }
    return ViewOf(output, TableOr(table, "No method with a live server is registered."));
}

View MethodInfoView(const QueryMethodInfoOutput& output, const std::string& name) {
    std::vector<Table> blocks;
    for (const auto& method : output.methodInfos) {
        const MethodPlace place = PlaceOf(method);
        std::vector<std::string> domains;
        for (const auto& domain : method.errorDomains) {
            domains.push_back(std::to_string(domain.id) + " " + domain.name);
        }
        Table table;
        AddRow(table, "method", method.name);
        AddRow(table, "server", method.appName);
        AddRow(table, "pid", std::to_string(method.pid));
        AddRow(table, "driver", place.driver);
        AddRow(table, "service", Hex(method.serviceId));
        AddRow(table, "instance", Hex(method.instanceId));
        AddRow(table, place.driver == "DDS" ? "topics" : "method id", place.method);
        AddRow(table, "instance name", place.shortName);
        AddRows(table, "request types", method.inputDatatypes);
        AddRows(table, "reply types", method.replyDatatypes);
        AddRow(table, "output type", method.methodOutputDatatype);
        AddRows(table, "error domains", domains);
        blocks.push_back(std::move(table));
    }
    return ViewOf(output, blocks.empty() ? "Method " + Printable(name) + " has no live server.\n"
                                         : Blocks(blocks));
}

View MethodTypeView(const QueryMethodTypeOutput& output, const std::string& name) {
    if (output.requestTypes.empty() && output.replyTypes.empty()) {
        return ViewOf(output, "Method " + Printable(name) +
                                  " has no live server, or no request and reply types.\n");
    }
    std::string text;
    const auto section = [&text](const char* title, const std::vector<std::string>& types) {
        text += title;
        text += types.empty() ? " none\n" : "\n";
        for (const auto& type : types) {
            text += Description(type);
        }
    };
    section("request types:", output.requestTypes);
    section("reply types:", output.replyTypes);
    return ViewOf(output, text);
}

View TypeListView(const QueryAllDataTypeOutput& output) {
    Table table{{"DATA TYPE", "KIND"}, {}};
    for (const auto& [name, text] : output.dataTypes) {
        std::string kind = "(no .msg file)";
        if (!text.empty()) {
            const auto parsed = nlohmann::json::parse(text, nullptr, false);
            const bool typed =
                parsed.is_object() && parsed.contains("Type") && parsed["Type"].is_string();
            kind = typed ? parsed["Type"].get<std::string>() : "(not a type description)";
        }
        table.rows.push_back({name, kind});
    }
    return ViewOf(output, TableOr(table, "The daemon has read no data type."));
}

View TypeShowView(const QueryDataTypeOutput& output, const std::string& name) {
    if (output.dataType.empty()) {
        return ViewOf(output, "Data type " + Printable(name) + " is not known to the daemon.\n");
    }
    return ViewOf(output, Description(output.dataType));
}

View TypeRefsView(const QueryDataTypeRefListOutput& output) {
    Table table{{"DATA TYPE", "REFERS TO"}, {}};
    for (const auto& [root, refs] : output.refList) {
        if (refs.empty()) {
            table.rows.push_back({root, kNone});
        }
        for (std::size_t i = 0; i < refs.size(); ++i) {
            table.rows.push_back({i == 0 ? root : "", refs[i]});
        }
    }
    return ViewOf(output, TableOr(table, "The daemon has read no data type."));
}

View LatencySwitchView(const SwitchLatencyModeOutput& output, bool on) {
    if (output.result != 0) {
        return ViewOf(output, "The daemon refused the switch: result " +
                                  std::to_string(output.result) + ".\n");
    }
    return ViewOf(output,
                  std::string("Latency measurement switched ") + (on ? "on" : "off") + ".\n");
}

View LatencyStatusView(const QueryLatencyStatusOutput& output) {
    Table table{{"ROLE", "APPLICATION", "MODE"}, {}};
    for (const auto& [app, mode] : output.pubStatus) {
        table.rows.push_back({"publisher", OrNone(app), ModeText(mode)});
    }
    for (const auto& [app, mode] : output.subStatus) {
        table.rows.push_back({"subscriber", OrNone(app), ModeText(mode)});
    }
    return ViewOf(output, TableOr(table, "No application of this event is known."));
}

View LatencyResultView(const QueryLatencyResultOutput& output, std::uint16_t period) {
    Table table{{"APPLICATION", "AVERAGE", "MAXIMUM", "MINIMUM"}, {}};
    for (const auto& [app, result] : output.results) {
        table.rows.push_back({app, std::to_string(result.average), std::to_string(result.maximum),
                              std::to_string(result.minimum)});
    }
    return ViewOf(output, TableOr(table, "No application reported a result in the last " +
                                             std::to_string(period) + " seconds."));
}

}  // namespace vesk::wardenctl
