#ifndef PLATFORM_CONFIG_VESK_CONFIG_PARSER_H
#define PLATFORM_CONFIG_VESK_CONFIG_PARSER_H

#include <cstdint>
#include <optional>
#include <vector>

#include <nlohmann/json.hpp>

#include "platform/core/string.h"

namespace ara::tessel::common::veskConfigParser {

using ara::core::String;

// The "Log" section: {"level": 0-6 or "off".."verbose", "sinks": ["console","file","dlt"],
// "file": "/path/to/file"}. Absent keys keep what the program passed.
struct LogConfig {
    std::optional<std::uint8_t> level;
    std::optional<std::vector<String>> sinks;  // the names as listed; the log knows them
    std::optional<String> filePath;
};

// The "SnapshotConfig" section; the fields carry the names of its keys. A key that is absent or
// of the wrong type (a flag that isn't a JSON bool, a threshold that isn't an unsigned number up
// to 2^32-1, a path that isn't a string) keeps its default, so a damaged section stays off.
struct SnapshotConfig {
    std::uint32_t threshold{0};
    bool enable_sched_trace{false};
    bool time_delay{false};
    bool cpu_usage{false};
    bool net_statistics{false};
    String path{"/tmp"};
};

// Reads vesk.json once, at construction: from $VESK_CONFIG when set, otherwise
// /etc/vesk/vesk.json. A missing or malformed file leaves the parser invalid and every getter
// at its default; nothing is thrown.
class VeskConfigParser {
public:
    static constexpr const char* kDefaultPath = "/etc/vesk/vesk.json";
    static constexpr const char* kPathVariable = "VESK_CONFIG";

    VeskConfigParser();
    explicit VeskConfigParser(String path);

    static String ConfigPath();

    bool IsValid() const noexcept { return valid_; }
    // The file exists but is not a JSON object: unlike a missing file, a mistake to report.
    bool IsMalformed() const noexcept { return present_ && !valid_; }
    const String& Path() const noexcept { return path_; }

    std::optional<LogConfig> GetLogConfig() const;
    // The defaults when the file or the section is missing.
    SnapshotConfig GetSnapshotConfig() const;
    // "Wardend"."instanceId", "1" when absent.
    String GetWardendInstanceId() const;
    // A top-level section, or null when absent; for the getters of other subsystems.
    const nlohmann::json* GetSection(const String& name) const;

private:
    String path_;
    bool present_{false};
    bool valid_{false};
    nlohmann::json root_;
};

}  // namespace ara::tessel::common::veskConfigParser

namespace vesk::veskcm::veskwardend {

class GetWardendInstanceId {
public:
    // The daemon's instance id from vesk.json, "1" by default.
    static ara::core::String GetInstanceId();
};

}  // namespace vesk::veskcm::veskwardend

#endif
