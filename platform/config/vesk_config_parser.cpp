#include "platform/config/vesk_config_parser.h"

#include <unistd.h>

#include <cstdlib>
#include <limits>
#include <utility>

#include "platform/json/json_parser.h"

namespace ara::tessel::common::veskConfigParser {

namespace {

constexpr const char* kDefaultInstanceId = "1";

std::optional<std::uint8_t> ParseLevel(const nlohmann::json& value) {
    if (value.is_number_unsigned() && value.get<std::uint64_t>() <= 6) {
        return static_cast<std::uint8_t>(value.get<std::uint64_t>());
    }
    if (value.is_string()) {
        static const char* const kNames[] = {"off",  "fatal", "error",  "warn",
                                             "info", "debug", "verbose"};
        for (std::uint8_t i = 0; i < 7; ++i) {
            if (value.get<String>() == kNames[i]) {
                return i;
            }
        }
    }
    return std::nullopt;
}

}  // namespace

VeskConfigParser::VeskConfigParser() : VeskConfigParser(ConfigPath()) {}

VeskConfigParser::VeskConfigParser(String path) : path_(std::move(path)) {
    // Read without a stream, which would build the C++ locale for this one file.
    if (::access(path_.c_str(), R_OK) != 0) {
        return;
    }
    present_ = true;
    root_ = nlohmann::json::parse(jsonParser::Document::ParseFileToString(path_), nullptr, false);
    valid_ = !root_.is_discarded() && root_.is_object();
    if (!valid_) {
        root_ = nlohmann::json::object();
    }
}

String VeskConfigParser::ConfigPath() {
    const char* fromEnv = std::getenv(kPathVariable);
    return (fromEnv != nullptr && fromEnv[0] != '\0') ? String(fromEnv) : String(kDefaultPath);
}

const nlohmann::json* VeskConfigParser::GetSection(const String& name) const {
    if (!valid_) {
        return nullptr;
    }
    const auto it = root_.find(name);
    return it == root_.end() ? nullptr : &*it;
}

std::optional<LogConfig> VeskConfigParser::GetLogConfig() const {
    const nlohmann::json* section = GetSection("Log");
    if (section == nullptr || !section->is_object()) {
        return std::nullopt;
    }
    LogConfig config;
    if (const auto it = section->find("level"); it != section->end()) {
        config.level = ParseLevel(*it);
    }
    if (const auto it = section->find("sinks"); it != section->end() && it->is_array()) {
        std::vector<String> sinks;
        for (const auto& sink : *it) {
            if (sink.is_string()) {
                sinks.push_back(sink.get<String>());
            }
        }
        config.sinks = std::move(sinks);
    }
    if (const auto it = section->find("file"); it != section->end() && it->is_string()) {
        config.filePath = it->get<String>();
    }
    return config;
}

SnapshotConfig VeskConfigParser::GetSnapshotConfig() const {
    SnapshotConfig config;
    const nlohmann::json* section = GetSection("SnapshotConfig");
    if (section == nullptr || !section->is_object()) {
        return config;
    }
    if (const auto it = section->find("threshold");
        it != section->end() && it->is_number_unsigned() &&
        it->get<std::uint64_t>() <= std::numeric_limits<std::uint32_t>::max()) {
        config.threshold = static_cast<std::uint32_t>(it->get<std::uint64_t>());
    }
    const auto readFlag = [section](const char* key, bool& flag) {
        if (const auto it = section->find(key); it != section->end() && it->is_boolean()) {
            flag = it->get<bool>();
        }
    };
    readFlag("enable_sched_trace", config.enable_sched_trace);
    readFlag("time_delay", config.time_delay);
    readFlag("cpu_usage", config.cpu_usage);
    readFlag("net_statistics", config.net_statistics);
    if (const auto it = section->find("path"); it != section->end() && it->is_string()) {
        config.path = it->get<String>();
    }
    return config;
}

String VeskConfigParser::GetWardendInstanceId() const {
    const nlohmann::json* section = GetSection("Wardend");
    if (section == nullptr || !section->is_object()) {
        return kDefaultInstanceId;
    }
    const auto it = section->find("instanceId");
    if (it == section->end()) {
        return kDefaultInstanceId;
    }
    if (it->is_string()) {
        return it->get<String>();
    }
    if (it->is_number_unsigned()) {
        return std::to_string(it->get<std::uint64_t>());
    }
    return kDefaultInstanceId;
}

}  // namespace ara::tessel::common::veskConfigParser

namespace vesk::veskcm::veskwardend {

ara::core::String GetWardendInstanceId::GetInstanceId() {
    return ara::tessel::common::veskConfigParser::VeskConfigParser().GetWardendInstanceId();
}

}  // namespace vesk::veskcm::veskwardend
