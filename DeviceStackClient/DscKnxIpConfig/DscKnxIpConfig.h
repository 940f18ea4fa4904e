// The add-on's IP configuration manager: configured (pending) IP settings,
// current values of the selected network interface, and the exchange of
// settings with the device's system service.
#ifndef DSC_KNX_IP_CONFIG_H
#define DSC_KNX_IP_CONFIG_H

#include "KnxIpConnectionInfo.h"
#include "KnxStackAddonInterface.h"
#include "VelborDeviceStackClient.h"

#include <log4cplus/logger.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

class DscKnxIpConfig : public KnxStack::IIpConfigurationManager {
public:
    // IP assignment method bits.
    static const int MethodManual = 1;
    static const int MethodBootP = 2;
    static const int MethodDhcp = 4;
    static const int MethodAutoIp = 8;

    // Bits of IpConfiguration::validFields.
    static const std::uint32_t ValidIpAddress = 1;
    static const std::uint32_t ValidSubnetMask = 2;
    static const std::uint32_t ValidDefaultGateway = 4;
    static const std::uint32_t ValidDnsAddress1 = 8;
    static const std::uint32_t ValidDnsAddress2 = 16;

    // One set of IP settings: the configured ones, or those a device read reported.
    struct IpConfiguration {
        std::uint32_t validFields = 0;
        std::int32_t assignmentMethods = 0;
        std::uint32_t ipAddress = 0;
        std::uint32_t subnetMask = 0;
        std::uint32_t defaultGateway = 0;
        std::uint32_t dnsAddress1 = 0;
        std::uint32_t dnsAddress2 = 0;
        std::uint32_t supportedMethods = MethodManual | MethodDhcp | MethodAutoIp;
    };

    DscKnxIpConfig();
    ~DscKnxIpConfig() override;
    DscKnxIpConfig(const DscKnxIpConfig&) = delete;
    DscKnxIpConfig& operator=(const DscKnxIpConfig&) = delete;

    bool Init(const ConfigPropertyMap& properties) override;
    unsigned long GetCurrentIpAddress() override;
    unsigned long GetCurrentNetmask() override;
    unsigned long GetCurrentGateway() override;
    unsigned long GetConfiguredIpAddress() override;
    unsigned long GetConfiguredNetmask() override;
    unsigned long GetConfiguredGateway() override;
    void SetConfiguredIpAddress(unsigned long value) override;
    void SetConfiguredNetmask(unsigned long value) override;
    void SetConfiguredGateway(unsigned long value) override;
    void GetMacAddress(unsigned char* mac) override;
    int GetIpAssignmentMethods() override;
    void SetIpAssignmentMethods(int value) override;
    unsigned short GetIpCapabilities() const override;
    void CommitConfiguration() override;
    unsigned long GetDNSAddress(unsigned int index) override;
    void SetDNSAddress(unsigned int index, unsigned long value) override;

    // Address texts.
    unsigned long IpAddress2DWORD(const char* text) const;
    const char* DWORD2IpAddress(unsigned long value) const;
    bool PrepareMacAddress(const std::string& text, unsigned char* bytes, unsigned int count) const;

    // Network interface selection.
    bool InitNetwork(KnxStack::Ip::IpConnectionInfo& connection, bool readDeviceSettings);
    void EnsureCorrectAddress();

    // Device-stack link.
    std::unique_ptr<Velbor::IDeviceStackClient> Connect(char* connection);
    bool GetValue(const std::string& text, const std::string& key, std::string& value);
    int FetchQuarnIpSettings(IpConfiguration& settings,
                             const std::unique_ptr<Velbor::IDeviceStackClient>& idsc);
    int GetQuarnIpSettings(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc);
    void UpdateIPSettings();

private:
    // The two halves of UpdateIPSettings: a configuration with DHCP sends only
    // the DHCP flag, any other sends the static addresses when they changed.
    void SendDhcpSetting(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                         bool deviceOnDhcp);
    void SendStaticSettings(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                            const IpConfiguration& deviceSettings, bool deviceOnDhcp);

    bool m_refreshNetwork;
    IpConfiguration m_configured;
    unsigned char m_macAddress[6];
    KnxStack::Ip::IpConnectionInfo m_connectionInfo;
    std::string m_interfaceName;
    std::int32_t m_interfaceIndex;
    bool m_macValid;
    log4cplus::Logger m_logger;
};

// Drops the characters a device configuration text must not carry: control
// characters, double quotes and backslashes.
std::string SanitizeConfigText(const std::string& text);

// Sends one "SetDeviceConfig" command carrying `mapValues`; returns the client's result.
bool SetDeviceConfigAsync(const std::unique_ptr<Velbor::IDeviceStackClient>& idsc,
                          const std::map<std::string, std::string>& mapValues);

#endif
