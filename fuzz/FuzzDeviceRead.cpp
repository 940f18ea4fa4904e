// The device read with the fuzz input as the device's configuration text: the
// result is manual or DHCP, only the five address bits can be set, a field
// changes only together with its bit, and then holds the scanned address.
#include "DscKnxIpConfig.h"
#include "FuzzSupport.h"
#include "PlatformStandIn.h"

#include <memory>

namespace {

const std::uint32_t kUntouched = 0xA5A5A5A5U;

struct Field {
    const char* key;
    std::uint32_t bit;
    std::uint32_t DscKnxIpConfig::IpConfiguration::*member;
};

const Field kFields[] = {
    {"IpAddress", DscKnxIpConfig::ValidIpAddress, &DscKnxIpConfig::IpConfiguration::ipAddress},
    {"SubnetMask", DscKnxIpConfig::ValidSubnetMask, &DscKnxIpConfig::IpConfiguration::subnetMask},
    {"DefaultGateway", DscKnxIpConfig::ValidDefaultGateway,
     &DscKnxIpConfig::IpConfiguration::defaultGateway},
    {"NameServer", DscKnxIpConfig::ValidDnsAddress1, &DscKnxIpConfig::IpConfiguration::dnsAddress1},
    {"NameServer2", DscKnxIpConfig::ValidDnsAddress2,
     &DscKnxIpConfig::IpConfiguration::dnsAddress2},
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static DscKnxIpConfig config;
    const std::string text(reinterpret_cast<const char*>(data), size);
    ThePlatform().deviceConfig = text;
    const std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();

    DscKnxIpConfig::IpConfiguration settings;
    for (const Field& field : kFields) {
        settings.*field.member = kUntouched;
    }
    const int method = config.FetchQuarnIpSettings(settings, client);
    FUZZ_CHECK(method == DscKnxIpConfig::MethodManual || method == DscKnxIpConfig::MethodDhcp);
    FUZZ_CHECK(settings.assignmentMethods == method);
    FUZZ_CHECK((settings.validFields & ~31U) == 0);
    for (const Field& field : kFields) {
        std::string value;
        const bool reported = config.GetValue(text, field.key, value) && !value.empty();
        FUZZ_CHECK(reported == ((settings.validFields & field.bit) != 0));
        FUZZ_CHECK(settings.*field.member ==
                   (reported ? config.IpAddress2DWORD(value.c_str()) : kUntouched));
    }
    return 0;
}
