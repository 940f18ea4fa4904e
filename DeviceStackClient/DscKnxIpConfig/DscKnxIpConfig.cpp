#include "DscKnxIpConfig.h"

#include "Log.h"

#include <arpa/inet.h>

#include <cstring>
#include <sstream>

#define IPCONFIG_LOG(level, function, message) \
    DSC_LOG(m_logger, level, DscLogFile::IpConfig, function, message)

namespace {

const char* const kInit = "virtual bool DscKnxIpConfig::Init(const ConfigPropertyMap&)";
const char* const kInitNetwork =
    "bool DscKnxIpConfig::InitNetwork(KnxStack::Ip::IpConnectionInfo&, bool)";
const char* const kGetMacAddress = "virtual void DscKnxIpConfig::GetMacAddress(unsigned char*)";
const char* const kGetConfiguredIpAddress =
    "virtual unsigned long DscKnxIpConfig::GetConfiguredIpAddress()";
const char* const kGetConfiguredNetmask =
    "virtual unsigned long DscKnxIpConfig::GetConfiguredNetmask()";
const char* const kGetConfiguredGateway =
    "virtual unsigned long DscKnxIpConfig::GetConfiguredGateway()";
const char* const kGetIpAssignmentMethods = "virtual int DscKnxIpConfig::GetIpAssignmentMethods()";
const char* const kSetConfiguredIpAddress =
    "virtual void DscKnxIpConfig::SetConfiguredIpAddress(unsigned long)";
const char* const kSetConfiguredNetmask =
    "virtual void DscKnxIpConfig::SetConfiguredNetmask(unsigned long)";
const char* const kSetConfiguredGateway =
    "virtual void DscKnxIpConfig::SetConfiguredGateway(unsigned long)";
const char* const kSetIpAssignmentMethods =
    "virtual void DscKnxIpConfig::SetIpAssignmentMethods(int)";
const char* const kGetDNSAddress =
    "virtual unsigned long DscKnxIpConfig::GetDNSAddress(unsigned int)";
const char* const kSetDNSAddress =
    "virtual void DscKnxIpConfig::SetDNSAddress(unsigned int, unsigned long)";

const std::size_t kMacLength = 6;
const std::size_t kMaxMacTextLength = 17;

} // namespace

DscKnxIpConfig::DscKnxIpConfig()
    : m_refreshNetwork(true),
      m_macAddress(),
      m_interfaceIndex(0),
      m_macValid(false),
      m_logger(log4cplus::Logger::getInstance("KnxStack.IpConfig")) {
    m_configured.assignmentMethods = MethodManual | MethodBootP | MethodDhcp | MethodAutoIp;
}

DscKnxIpConfig::~DscKnxIpConfig() = default;

unsigned short DscKnxIpConfig::GetIpCapabilities() const {
    const std::uint32_t methods = MethodBootP | MethodDhcp | MethodAutoIp;
    return static_cast<unsigned short>((m_configured.supportedMethods & methods) >> 1);
}

// ---------------------------------------------------------------------------
// MAC address and address texts

void DscKnxIpConfig::GetMacAddress(unsigned char* mac) {
    if (!m_macValid) {
        m_connectionInfo.GetMacAddress(m_macAddress);
        m_macValid = true;
    }
    // The raw bytes, as characters up to the first zero byte: the log shows the
    // cache exactly as it holds it.
    const char* raw = reinterpret_cast<const char*>(m_macAddress);
    IPCONFIG_LOG(DEBUG, kGetMacAddress,
                 "GetMacAddress(): Value = " << std::string(raw, strnlen(raw, kMacLength)));
    std::memcpy(mac, m_macAddress, kMacLength);
}

unsigned long DscKnxIpConfig::IpAddress2DWORD(const char* text) const {
    if (text == nullptr) {
        return 0;
    }
    return ntohl(inet_addr(text));
}

const char* DscKnxIpConfig::DWORD2IpAddress(unsigned long value) const {
    static char buffer[16];
    std::memset(buffer, 0, sizeof buffer);
    in_addr address{};
    address.s_addr = htonl(static_cast<std::uint32_t>(value));
    const char* text = inet_ntoa(address);
    if (text != nullptr) {
        std::strncpy(buffer, text, sizeof buffer - 1);
    }
    return buffer;
}

bool DscKnxIpConfig::PrepareMacAddress(const std::string& text, unsigned char* bytes,
                                       unsigned int count) const {
    if (text.empty()) {
        return false;
    }
    if (text.size() > kMaxMacTextLength || count == 0) {
        return true;
    }
    std::string::size_type position = 0;
    for (unsigned int i = 0; i < count; ++i, position += 3) {
        // substr throws std::out_of_range once the position passes the text's end.
        std::istringstream piece(text.substr(position, 2));
        unsigned int number = 0;
        piece >> std::hex >> number;
        bytes[i] = static_cast<unsigned char>(number & 0xFFU);
    }
    return true;
}

// ---------------------------------------------------------------------------
// Configured values

unsigned long DscKnxIpConfig::GetConfiguredIpAddress() {
    IPCONFIG_LOG(DEBUG, kGetConfiguredIpAddress,
                 "GetConfiguredIpAddress(): Value = " << m_configured.ipAddress);
    return m_configured.ipAddress;
}

unsigned long DscKnxIpConfig::GetConfiguredNetmask() {
    IPCONFIG_LOG(DEBUG, kGetConfiguredNetmask,
                 "GetConfiguredNetmask(): Value = " << m_configured.subnetMask);
    return m_configured.subnetMask;
}

unsigned long DscKnxIpConfig::GetConfiguredGateway() {
    IPCONFIG_LOG(DEBUG, kGetConfiguredGateway,
                 "GetConfiguredGateway(): Value = " << m_configured.defaultGateway);
    return m_configured.defaultGateway;
}

int DscKnxIpConfig::GetIpAssignmentMethods() {
    IPCONFIG_LOG(DEBUG, kGetIpAssignmentMethods,
                 "GetIpAssignmentMethods(): Value = " << m_configured.assignmentMethods);
    return m_configured.assignmentMethods;
}

void DscKnxIpConfig::SetConfiguredIpAddress(unsigned long value) {
    IPCONFIG_LOG(DEBUG, kSetConfiguredIpAddress, "SetConfiguredIpAddress(): starting...");
    m_configured.ipAddress = static_cast<std::uint32_t>(value);
    IPCONFIG_LOG(DEBUG, kSetConfiguredIpAddress,
                 "SetConfiguredIpAddress(): end. Value = " << m_configured.ipAddress);
}

void DscKnxIpConfig::SetConfiguredNetmask(unsigned long value) {
    IPCONFIG_LOG(DEBUG, kSetConfiguredNetmask, "SetConfiguredNetmask(): starting...");
    m_configured.subnetMask = static_cast<std::uint32_t>(value);
    IPCONFIG_LOG(DEBUG, kSetConfiguredNetmask,
                 "SetConfiguredNetmask(): end. Value = " << m_configured.subnetMask);
}

void DscKnxIpConfig::SetConfiguredGateway(unsigned long value) {
    IPCONFIG_LOG(DEBUG, kSetConfiguredGateway, "SetConfiguredGateway(): starting...");
    m_configured.defaultGateway = static_cast<std::uint32_t>(value);
    IPCONFIG_LOG(DEBUG, kSetConfiguredGateway,
                 "SetConfiguredGateway(): end. Value = " << m_configured.defaultGateway);
}

void DscKnxIpConfig::SetIpAssignmentMethods(int value) {
    IPCONFIG_LOG(DEBUG, kSetIpAssignmentMethods, "SetIpAssignmentMethods(): starting...");
    m_configured.assignmentMethods = value;
    IPCONFIG_LOG(DEBUG, kSetIpAssignmentMethods,
                 "SetIpAssignmentMethods(): end. Value = " << m_configured.assignmentMethods);
}

unsigned long DscKnxIpConfig::GetDNSAddress(unsigned int index) {
    IPCONFIG_LOG(DEBUG, kGetDNSAddress, "GetDNSAddress(): starting...");
    unsigned long result = 0;
    if (index == 1) {
        result = m_configured.dnsAddress1;
    } else if (index == 2) {
        result = m_configured.dnsAddress2;
    } else {
        IPCONFIG_LOG(ERROR, kGetDNSAddress, "GetDNSAddress(): invalid index = " << index);
    }
    IPCONFIG_LOG(DEBUG, kGetDNSAddress, "GetDNSAddress: Value = " << result);
    IPCONFIG_LOG(DEBUG, kGetDNSAddress, "GetDNSAddress(): end.");
    return result;
}

void DscKnxIpConfig::SetDNSAddress(unsigned int index, unsigned long value) {
    IPCONFIG_LOG(DEBUG, kSetDNSAddress, "SetDNSAddress(): starting... index= " << index);
    if (index == 1) {
        m_configured.dnsAddress1 = static_cast<std::uint32_t>(value);
    } else if (index == 2) {
        m_configured.dnsAddress2 = static_cast<std::uint32_t>(value);
    } else {
        IPCONFIG_LOG(ERROR, kSetDNSAddress, "SetDNSAddress(): invalid index = " << index);
    }
    // Shows the argument, not the stored field: it is written for an invalid index too.
    IPCONFIG_LOG(DEBUG, kSetDNSAddress, "SetDNSAddress(): end. Value = " << value);
}

// ---------------------------------------------------------------------------
// Initialisation, network selection and current values

bool DscKnxIpConfig::Init(const ConfigPropertyMap& properties) {
    IPCONFIG_LOG(INFO, kInit, "Init(): starting...");
    m_interfaceIndex = 0;
    m_interfaceName.clear();

    const ConfigPropertyMap::const_iterator index = properties.find("interfaceIndex");
    if (index != properties.end()) {
        // Stream extraction: no digits give 0, trailing text is ignored, an
        // out-of-range number is clamped.
        std::istringstream(index->second) >> m_interfaceIndex;
    }
    const ConfigPropertyMap::const_iterator name = properties.find("interfaceName");
    if (name != properties.end()) {
        m_interfaceName = name->second;
    }
    m_refreshNetwork = true;
    InitNetwork(m_connectionInfo, true);
    IPCONFIG_LOG(DEBUG, kInit, "Init(): end.");
    return true;
}

bool DscKnxIpConfig::InitNetwork(KnxStack::Ip::IpConnectionInfo& /*connection*/,
                                 bool readDeviceSettings) {
    IPCONFIG_LOG(INFO, kInitNetwork, "InitNetwork(): starting...");
    IPCONFIG_LOG(INFO, kInitNetwork, "DscKnxIpConfig: Selecting the primary network interface...");
    const bool specified = m_interfaceIndex > 0 || !m_interfaceName.empty();
    const unsigned long selected =
        m_connectionInfo.DetermineNetworkInterface(m_interfaceName, m_interfaceIndex, 0, specified);

    m_macValid = false;
    unsigned char mac[kMacLength];
    GetMacAddress(mac);

    if (readDeviceSettings) {
        int method = 0;
        {
            const std::unique_ptr<Velbor::IDeviceStackClient> idsc = Connect(nullptr);
            method = GetQuarnIpSettings(idsc);
        }
        if (method > 0) {
            m_configured.assignmentMethods = method;
        }
    }
    IPCONFIG_LOG(DEBUG, kInitNetwork, "InitNetwork(): end.");
    return selected != KnxStack::Ip::IpConnectionInfo::NoInterface;
}

void DscKnxIpConfig::EnsureCorrectAddress() {
    if (m_refreshNetwork) {
        InitNetwork(m_connectionInfo, false);
        m_refreshNetwork = false;
    }
}

unsigned long DscKnxIpConfig::GetCurrentIpAddress() {
    EnsureCorrectAddress();
    return m_connectionInfo.GetCurrentIpAddress();
}

unsigned long DscKnxIpConfig::GetCurrentNetmask() {
    EnsureCorrectAddress();
    return m_connectionInfo.GetCurrentNetmask();
}

unsigned long DscKnxIpConfig::GetCurrentGateway() {
    EnsureCorrectAddress();
    return m_connectionInfo.GetCurrentGateway();
}
