#include "platform/vcc/service_config.h"

#include <algorithm>
#include <limits>
#include <mutex>

#include "platform/config/vesk_config_parser.h"
#include "platform/vcc/service_interface.h"

namespace lumo::vcc {

namespace {

using api::types::DriverType;
using nlohmann::json;

bool ParseDriver(const json& value, DriverType& type) {
    if (!value.is_string()) {
        return false;
    }
    const auto& name = value.get_ref<const std::string&>();
    if (name == "proloc") {
        type = DriverType::kProloc;
    } else if (name == "dds") {
        type = DriverType::kDds;
    } else if (name == "someip") {
        type = DriverType::kSomeip;
    } else {
        return false;
    }
    return true;
}

template <typename Number>
bool ParseNumber(const json& value, Number& out) {
    if (!value.is_number_unsigned() ||
        value.get<std::uint64_t>() > std::numeric_limits<Number>::max()) {
        return false;
    }
    out = value.get<Number>();
    return true;
}

bool ParseString(const json& value, ara::core::String& out) {
    if (!value.is_string()) {
        return false;
    }
    out = value.get<std::string>();
    return true;
}

bool ParseService(const json& entry, ServiceBinding& binding, ara::core::String& error) {
    if (!entry.is_object()) {
        error = "is not an object";
        return false;
    }
    for (const auto& [key, value] : entry.items()) {
        if (key == "drivers") {
            if (!value.is_array()) {
                error = "\"drivers\" is not a list";
                return false;
            }
            binding.drivers.clear();
            for (const auto& name : value) {
                DriverType type{};
                if (!ParseDriver(name, type)) {
                    error = "unknown driver " + name.dump() + " (proloc, someip or dds)";
                    return false;
                }
                binding.drivers.push_back(type);
            }
        } else if (key == "address") {
            if (!ParseString(value, binding.address)) {
                error = "\"address\" is not a string";
                return false;
            }
        } else if (key == "port") {
            std::uint16_t port = 0;
            if (!ParseNumber(value, port) || port == 0) {
                error = "\"port\" is not a port number";
                return false;
            }
            binding.port = port;
        } else if (key == "udp") {
            if (!value.is_boolean()) {
                error = "\"udp\" is not true or false";
                return false;
            }
            binding.udp = value.get<bool>();
        } else {
            error = "unknown key \"" + key + "\"";
            return false;
        }
    }
    return true;
}

bool ParseSomeip(const json& entry, ServiceConfig& config, ara::core::String& error) {
    if (!entry.is_object()) {
        error = "\"someip\" is not an object";
        return false;
    }
    for (const auto& [key, value] : entry.items()) {
        bool ok = false;
        if (key == "sdAddress") {
            ok = ParseString(value, config.sdAddress);
        } else if (key == "sdPort") {
            ok = ParseNumber(value, config.sdPort) && config.sdPort != 0;
        } else if (key == "sdMulticast") {
            ok = ParseString(value, config.sdMulticast);
        }
        if (!ok) {
            error = R"("someip": bad or unknown key ")" + key + "\"";
            return false;
        }
    }
    return true;
}

bool ParseDds(const json& entry, ServiceConfig& config, ara::core::String& error) {
    if (!entry.is_object()) {
        error = "\"dds\" is not an object";
        return false;
    }
    for (const auto& [key, value] : entry.items()) {
        // Cyclone DDS takes domain ids up to 232.
        const bool ok = key == "domain"
                            ? ParseNumber(value, config.ddsDomain) && config.ddsDomain <= 232
                            : key == "cycloneConfig" && ParseString(value, config.ddsCycloneConfig);
        if (!ok) {
            error = R"("dds": bad or unknown key ")" + key + "\"";
            return false;
        }
    }
    return true;
}

// SOME/IP carries the instance as a number; a text that is not one takes instance 1.
std::uint16_t NumericInstance(const ara::core::String& instance) {
    std::uint32_t value = 0;
    for (char c : instance) {
        if (c < '0' || c > '9' || value > 0xFFFF) {
            return 1;
        }
        value = value * 10 + static_cast<std::uint32_t>(c - '0');
    }
    return instance.empty() || value > 0xFFFF ? 1 : static_cast<std::uint16_t>(value);
}

void FillEntity(api::types::EntityInfo& info, const ara::com::ServiceIdentifierType& service,
                const ara::core::String& instance, std::uint32_t entityId, DriverType driver,
                const ara::core::String& name, const ServiceConfig& config) {
    const auto& interface = *service.interface;
    const auto binding = config.Binding(interface.name);
    info.driverType = driver;
    info.entityId = entityId;
    info.serviceId = service.value;
    info.instanceId = instance;
    info.shortName = name;
    info.instanceShortName = interface.name;
    info.someip.serviceId = interface.someipServiceId;
    info.someip.instanceId = NumericInstance(instance);
    info.someip.majorVersion = interface.majorVersion;
    info.someip.minorVersion = interface.minorVersion;
    info.someip.address = binding.address;
    info.someip.port = binding.port.value_or(interface.defaultPort);
    info.someip.udp = binding.udp;
    info.someip.sdAddress = config.sdAddress;
    info.someip.sdPort = config.sdPort;
    info.someip.sdMulticast = config.sdMulticast;
    info.dds.domainId = config.ddsDomain;
    info.dds.topic = "wardend/" + interface.name + "/" + name;
    info.dds.targetInstance = instance;
}

}  // namespace

std::shared_ptr<api::types::MethodInfo> MakeMethodInfo(
    const ara::com::ServiceIdentifierType& service, const ara::core::String& instance,
    std::uint32_t entityId, DriverType driver, const ServiceConfig& config) {
    const auto* method =
        service.interface == nullptr ? nullptr : service.interface->FindMethod(entityId);
    if (method == nullptr) {
        return nullptr;
    }
    auto info = std::make_shared<api::types::MethodInfo>();
    FillEntity(*info, service, instance, entityId, driver, method->name, config);
    info->someip.memberId = method->someipMethodId;
    return info;
}

std::shared_ptr<api::types::EventInfo> MakeEventInfo(const ara::com::ServiceIdentifierType& service,
                                                     const ara::core::String& instance,
                                                     std::uint32_t entityId, DriverType driver,
                                                     const ServiceConfig& config) {
    const auto* event =
        service.interface == nullptr ? nullptr : service.interface->FindEvent(entityId);
    if (event == nullptr) {
        return nullptr;
    }
    auto info = std::make_shared<api::types::EventInfo>();
    FillEntity(*info, service, instance, entityId, driver, event->name, config);
    info->isField = event->isField;
    info->someip.memberId = event->someipEventId;
    info->someip.eventgroupId = event->someipEventgroupId;
    return info;
}

namespace {

struct DeclaredServices {
    std::mutex mutex;  // guards names
    std::vector<ara::core::String> names;
};

DeclaredServices& Declared() {
    static DeclaredServices declared;
    return declared;
}

}  // namespace

std::vector<DriverType> ServiceConfig::DefaultDrivers() {
    return {DriverType::kProloc, DriverType::kSomeip};
}

ServiceBinding ServiceConfig::Binding(const ara::core::String& serviceName) const {
    auto it = services.find(serviceName);
    if (it != services.end()) {
        return it->second;
    }
    ServiceBinding binding;
    binding.drivers = DefaultDrivers();
    return binding;
}

std::optional<ServiceConfig> ServiceConfig::Parse(const nlohmann::json* section,
                                                  ara::core::String& error,
                                                  const std::vector<ara::core::String>& services) {
    ServiceConfig config;
    if (section == nullptr) {
        return config;
    }
    if (!section->is_object()) {
        error = "\"Services\" is not an object";
        return std::nullopt;
    }
    for (const auto& [key, value] : section->items()) {
        if (key == "someip") {
            if (!ParseSomeip(value, config, error)) {
                return std::nullopt;
            }
            continue;
        }
        if (key == "dds") {
            if (!ParseDds(value, config, error)) {
                return std::nullopt;
            }
            continue;
        }
        if (!services.empty() &&
            std::find(services.begin(), services.end(), key) == services.end()) {
            error = "unknown service \"" + key + "\" (";
            for (std::size_t i = 0; i < services.size(); ++i) {
                error += (i == 0 ? "" : i + 1 == services.size() ? " or " : ", ") + services[i];
            }
            error += ")";
            return std::nullopt;
        }
        ServiceBinding binding;
        binding.drivers = DefaultDrivers();
        ara::core::String detail;
        if (!ParseService(value, binding, detail)) {
            error = "\"";
            error += key;
            error += "\": ";
            error += detail;
            return std::nullopt;
        }
        config.services[key] = binding;
    }
    return config;
}

std::optional<ServiceConfig> ServiceConfig::Load(ara::core::String& error) {
    const ara::tessel::common::veskConfigParser::VeskConfigParser parser;
    if (parser.IsMalformed()) {
        error = "the file is not a valid JSON object";
        return std::nullopt;
    }
    std::vector<ara::core::String> services;
    {
        std::lock_guard<std::mutex> lock(Declared().mutex);
        services = Declared().names;
    }
    return Parse(parser.GetSection("Services"), error, services);
}

void ServiceConfig::DeclareServices(std::vector<ara::core::String> names) {
    std::lock_guard<std::mutex> lock(Declared().mutex);
    Declared().names = std::move(names);
}

}  // namespace lumo::vcc
