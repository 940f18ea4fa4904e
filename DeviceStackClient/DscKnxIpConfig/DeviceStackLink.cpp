// The IP configuration manager's exchanges with the device's system service:
// connecting a client, reading the device's settings, and sending changes.
#include "DscKnxIpConfig.h"

#include "Log.h"

#include <cstring>
#include <sstream>

#define IPCONFIG_LOG(level, function, message) \
    DSC_LOG(m_logger, level, DscLogFile::IpConfig, function, message)

namespace {

const char* const kConnect =
    "std::unique_ptr<Velbor::IDeviceStackClient> DscKnxIpConfig::Connect(char*)";
const char* const kGetValue =
    "bool DscKnxIpConfig::GetValue(const string&, const string&, std::string&)";
const char* const kFetchQuarnIpSettings =
    "int DscKnxIpConfig::FetchQuarnIpSettings(DscKnxIpConfig::IpConfiguration&, "
    "const std::unique_ptr<Velbor::IDeviceStackClient>&)";
const char* const kCommitConfiguration = "virtual void DscKnxIpConfig::CommitConfiguration()";
const char* const kUpdateIPSettings = "void DscKnxIpConfig::UpdateIPSettings()";

const int kRequestTimeout = 360;
const int kDeviceConfigFlags = 1;

// The five address settings as the device names them, in the order in which
// they are read, compared and sent.
struct AddressSetting {
    const char* key;
    std::uint32_t validBit;
    std::uint32_t DscKnxIpConfig::IpConfiguration::*field;
    const char* sendMessage;
};

const AddressSetting kAddressSettings[] = {
    {"IpAddress", DscKnxIpConfig::ValidIpAddress, &DscKnxIpConfig::IpConfiguration::ipAddress,
     "UpdateIPSettings(): IpAddress = "},
    {"SubnetMask", DscKnxIpConfig::ValidSubnetMask, &DscKnxIpConfig::IpConfiguration::subnetMask,
     "UpdateIPSettings(): SubnetMask = "},
    {"DefaultGateway", DscKnxIpConfig::ValidDefaultGateway,
     &DscKnxIpConfig::IpConfiguration::defaultGateway, "UpdateIPSettings(): DefaultGateway = "},
    {"NameServer", DscKnxIpConfig::ValidDnsAddress1, &DscKnxIpConfig::IpConfiguration::dnsAddress1,
     "UpdateIPSettings(): DnsAddress1 = "},
    {"NameServer2", DscKnxIpConfig::ValidDnsAddress2, &DscKnxIpConfig::IpConfiguration::dnsAddress2,
     "UpdateIPSettings(): DnsAddress2 = "},
};
const std::size_t kAddressCount = sizeof kAddressSettings / sizeof kAddressSettings[0];

} // namespace

// ---------------------------------------------------------------------------
// Connection

std::unique_ptr<Velbor::IDeviceStackClient> DscKnxIpConfig::Connect(char* connection) {
    IPCONFIG_LOG(DEBUG, kConnect, "Connect(): starting...");
    std::unique_ptr<Velbor::IDeviceStackClient> idsc =
        connection != nullptr ? Velbor::CreateDeviceStackClient(std::string(connection))
                              : Velbor::CreateDeviceStackClient();
    if (!idsc) {
        IPCONFIG_LOG(ERROR, kConnect, "Connect(): Create device stack client failed.");
    } else {
        IPCONFIG_LOG(DEBUG, kConnect, "Connect(): calling RegisterApplication DscKnxIpConfig...");
        if (!idsc->RegisterApplication("DscKnxIpConfig", "field", "KNX")) {
            // The refused client is gone before the failure is reported.
            idsc.reset();
            IPCONFIG_LOG(ERROR, kConnect, "Connect(): RegisterApplication failed.");
        }
        IPCONFIG_LOG(DEBUG, kConnect, "Connect(): end RegisterApplication DscKnxIpConfig.");
    }
    IPCONFIG_LOG(DEBUG, kConnect, "Connect(): end.");
    return idsc;
}

// ---------------------------------------------------------------------------
// Reply scanner

bool DscKnxIpConfig::GetValue(const std::string& text, const std::string& key, std::string& value) {
    IPCONFIG_LOG(DEBUG, kGetValue, "GetValue(): start. Node = " << key);
    value.clear();
    if (text.empty()) {
        return false;
    }

    // A text that starts with '<' is scanned for <key>, any other for "key":.
    const bool tagMode = text[0] == '<';
    const char begin = tagMode ? '<' : '"';
    const char end = tagMode ? '>' : '"';
    std::string pattern;
    pattern.reserve(key.size() + 3);
    pattern.append(1, tagMode ? '<' : '"').append(key).append(tagMode ? ">" : "\":");

    bool found = false;
    const char* data = text.data();
    const auto* match =
        static_cast<const char*>(memmem(data, text.size(), pattern.data(), pattern.size()));
    const std::size_t after = match != nullptr ? (match - data) + pattern.size() : text.size();
    if (after >= text.size()) {
        IPCONFIG_LOG(ERROR, kGetValue, "GetValue(): Missing key. key = " << pattern);
    } else {
        const std::size_t first = text.find(begin, after);
        const std::size_t last =
            first == std::string::npos ? std::string::npos : text.find(end, first + 1);
        if (first == std::string::npos) {
            IPCONFIG_LOG(ERROR, kGetValue, "GetValue(): Missing value begin char.");
        } else if (last == std::string::npos) {
            IPCONFIG_LOG(ERROR, kGetValue, "GetValue(): Missing value end char.");
        } else {
            value.assign(text, first + 1, last - first - 1);
            found = true;
        }
    }
    IPCONFIG_LOG(DEBUG, kGetValue, "GetValue(): end. Value = " << value);
    return found;
}

// ---------------------------------------------------------------------------
// Reading the device's settings

int DscKnxIpConfig::FetchQuarnIpSettings(IpConfiguration& settings,
                                         const std::unique_ptr<Velbor::IDeviceStackClient>& idsc) {
    IPCONFIG_LOG(DEBUG, kFetchQuarnIpSettings, "FetchQuarnIpSettings(): starting...");
    if (!idsc) {
        IPCONFIG_LOG(ERROR, kFetchQuarnIpSettings,
                     "FetchQuarnIpSettings(): No device stack client exists.");
        return 0;
    }
    IPCONFIG_LOG(DEBUG, kFetchQuarnIpSettings,
                 "FetchQuarnIpSettings(): calling GetDeviceConfig...");

    // An unreadable configuration counts as DHCP, as does a missing "Dhcp" key.
    int method = MethodDhcp;
    std::string config;
    if (idsc->GetDeviceConfig(config, kDeviceConfigFlags)) {
        std::string value;
        if (GetValue(config, "Dhcp", value) && value != "true") {
            method = MethodManual;
        }
        settings.assignmentMethods = method;
        for (const AddressSetting& setting : kAddressSettings) {
            if (GetValue(config, setting.key, value) && !value.empty()) {
                settings.validFields |= setting.validBit;
                settings.*setting.field =
                    static_cast<std::uint32_t>(IpAddress2DWORD(value.c_str()));
            }
        }
    }
    IPCONFIG_LOG(DEBUG, kFetchQuarnIpSettings,
                 "FetchQuarnIpSettings(): end GetDeviceConfig. IP assignment methods = " << method);
    return method;
}

int DscKnxIpConfig::GetQuarnIpSettings(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc) {
    IpConfiguration settings;
    const int method = FetchQuarnIpSettings(settings, idsc);
    if ((settings.validFields & ValidIpAddress) != 0) {
        SetConfiguredIpAddress(settings.ipAddress);
    }
    if ((settings.validFields & ValidSubnetMask) != 0) {
        SetConfiguredNetmask(settings.subnetMask);
    }
    if ((settings.validFields & ValidDefaultGateway) != 0) {
        SetConfiguredGateway(settings.defaultGateway);
    }
    if ((settings.validFields & ValidDnsAddress1) != 0) {
        SetDNSAddress(1, settings.dnsAddress1);
    }
    if ((settings.validFields & ValidDnsAddress2) != 0) {
        SetDNSAddress(2, settings.dnsAddress2);
    }
    return method;
}

// ---------------------------------------------------------------------------
// Commit

void DscKnxIpConfig::CommitConfiguration() {
    IPCONFIG_LOG(DEBUG, kCommitConfiguration, "CommitConfiguration(): starting...");
    UpdateIPSettings();
    IPCONFIG_LOG(DEBUG, kCommitConfiguration, "CommitConfiguration(): end.");
}

void DscKnxIpConfig::UpdateIPSettings() {
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): starting...");
    const std::unique_ptr<Velbor::IDeviceStackClient> idsc = Connect(nullptr);
    if (!idsc) {
        IPCONFIG_LOG(ERROR, kUpdateIPSettings, "UpdateIPSettings(): Connect failed.");
        IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): end.");
        return;
    }

    IpConfiguration deviceSettings;
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): calling FetchQuarnIpSettings...");
    const int deviceMethod = FetchQuarnIpSettings(deviceSettings, idsc);
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): end FetchQuarnIpSettings.");
    if (deviceMethod == 0) {
        IPCONFIG_LOG(ERROR, kUpdateIPSettings, "UpdateIPSettings(): FetchQuarnIpSettings failed.");
        return;
    }
    const bool deviceOnDhcp = (deviceMethod & MethodDhcp) != 0;
    if ((m_configured.assignmentMethods & MethodDhcp) != 0) {
        SendDhcpSetting(idsc, deviceOnDhcp);
    } else {
        SendStaticSettings(idsc, deviceSettings, deviceOnDhcp);
    }
    m_refreshNetwork = true;
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): end.");
}

void DscKnxIpConfig::SendDhcpSetting(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                                     bool deviceOnDhcp) {
    if (deviceOnDhcp) {
        IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): settings unchanged.");
        return;
    }
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings,
                 "UpdateIPSettings(): calling SetDeviceConfig with only DHCP flag...");
    const std::map<std::string, std::string> mapValues{{"Dhcp", "true"}};
    IPCONFIG_LOG(INFO, kUpdateIPSettings,
                 "UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues)...");
    SetDeviceConfigAsync(idsc, mapValues);
    IPCONFIG_LOG(INFO, kUpdateIPSettings,
                 "UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues) returned.");
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings,
                 "UpdateIPSettings(): end SetDeviceConfig with only DHCP flag.");
}

void DscKnxIpConfig::SendStaticSettings(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                                        const IpConfiguration& deviceSettings, bool deviceOnDhcp) {
    std::string texts[kAddressCount];
    for (std::size_t i = 0; i < kAddressCount; ++i) {
        texts[i] = DWORD2IpAddress(m_configured.*kAddressSettings[i].field);
    }

    // A device on DHCP always needs the static settings; otherwise the first
    // value that differs from (or was not reported by) the device decides.
    bool changed = deviceOnDhcp;
    for (std::size_t i = 0; i < kAddressCount && !changed; ++i) {
        const AddressSetting& setting = kAddressSettings[i];
        if ((deviceSettings.validFields & setting.validBit) != 0) {
            changed = m_configured.*setting.field != deviceSettings.*setting.field;
        } else {
            changed = !texts[i].empty();
        }
    }
    if (!changed) {
        IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): settings unchanged.");
        return;
    }

    std::map<std::string, std::string> mapValues;
    for (std::size_t i = 0; i < kAddressCount; ++i) {
        if (!texts[i].empty()) {
            mapValues[kAddressSettings[i].key] = texts[i];
            IPCONFIG_LOG(DEBUG, kUpdateIPSettings, kAddressSettings[i].sendMessage << texts[i]);
        }
    }
    if (mapValues.empty()) {
        IPCONFIG_LOG(ERROR, kUpdateIPSettings,
                     "UpdateIPSettings(): map is empty, so don't change the config.");
        return;
    }
    mapValues["Dhcp"] = "false";
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): calling SetDeviceConfig...");
    IPCONFIG_LOG(INFO, kUpdateIPSettings,
                 "UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues)...");
    SetDeviceConfigAsync(idsc, mapValues);
    IPCONFIG_LOG(DEBUG, kUpdateIPSettings, "UpdateIPSettings(): end SetDeviceConfig.");
    IPCONFIG_LOG(INFO, kUpdateIPSettings,
                 "UpdateIPSettings(): Calling idsc->SetDeviceConfigAsync(mapValues) returned.");
}

// ---------------------------------------------------------------------------
// Request text

std::string SanitizeConfigText(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && c != '"' && c != '\\') {
            result.push_back(c);
        }
    }
    return result;
}

bool SetDeviceConfigAsync(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                          const std::map<std::string, std::string>& mapValues) {
    std::ostringstream request;
    request << "{ \"command\" : \"SetDeviceConfig\", \"ipc\" : \"true\", \"deviceConfig\" : { ";
    const char* separator = "";
    for (const auto& entry : mapValues) {
        request << separator << '"' << SanitizeConfigText(entry.first) << "\" : \""
                << SanitizeConfigText(entry.second) << '"';
        separator = ", ";
    }
    request << " } }";
    std::string reply;
    return idsc->RequestCommand(request.str(), reply, kRequestTimeout);
}
