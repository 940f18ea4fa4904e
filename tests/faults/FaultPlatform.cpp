#include "FaultPlatform.h"

#include "KnxIpConnectionInfo.h"
#include "VelborDeviceStackClient.h"

#include <memory>

namespace {

class FaultClient : public Velbor::IDeviceStackClient {
public:
    FaultClient() { ++TheBoundary().clientsMade; }
    ~FaultClient() override { ++TheBoundary().clientsDestroyed; }
    FaultClient(const FaultClient&) = delete;
    FaultClient& operator=(const FaultClient&) = delete;

    bool RequestCommand(const std::string& request, std::string& reply, int) override {
        TheBoundary().requests.push_back(request);
        reply = "{\"result\":\"ok\"}";
        return TheBoundary().Pass(Operation::RequestCommand);
    }
    bool RegisterApplication(const std::string&, const std::string&, const std::string&) override {
        return TheBoundary().Pass(Operation::RegisterApplication);
    }
    bool GetDeviceConfig(std::string& config, int) override {
        config = TheBoundary().deviceConfig;
        return TheBoundary().Pass(Operation::GetDeviceConfig);
    }
};

std::unique_ptr<Velbor::IDeviceStackClient> MakeClient() {
    if (!TheBoundary().Pass(Operation::Create)) {
        return nullptr;
    }
    return std::make_unique<FaultClient>();
}

const unsigned long kInterface = 2;
const unsigned long kAddress = 0xC0A8010AUL;
const unsigned char kMac[6] = {0x02, 0x4B, 0x4E, 0x58, 0x00, 0x01};

// Whether a call into the connection library reports the interface's values:
// not when the call fails or there is no interface.
bool Found(Operation operation) {
    return TheBoundary().Pass(operation) && !TheBoundary().noInterface;
}

unsigned long Current(unsigned long value) {
    return Found(Operation::CurrentValue) ? value : 0;
}

} // namespace

const char* Name(Operation operation) {
    switch (operation) {
        case Operation::Create:
            return "CreateDeviceStackClient";
        case Operation::RegisterApplication:
            return "RegisterApplication";
        case Operation::GetDeviceConfig:
            return "GetDeviceConfig";
        case Operation::RequestCommand:
            return "RequestCommand";
        case Operation::SelectInterface:
            return "DetermineNetworkInterface";
        case Operation::CurrentValue:
            return "GetCurrent*";
        case Operation::MacAddress:
            return "GetMacAddress";
    }
    return "?";
}

bool Boundary::Pass(Operation operation) {
    if (faultAt != calls++) {
        return true;
    }
    faulted = operation;
    if (kind == FaultKind::Throw) {
        throw InjectedFault(operation);
    }
    return false;
}

Boundary& TheBoundary() {
    static Boundary boundary;
    return boundary;
}

namespace KnxStack {
namespace Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(new State) {
}

IpConnectionInfo::~IpConnectionInfo() {
    delete m_state;
}

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string&, int, unsigned long,
                                                          bool) {
    return Found(Operation::SelectInterface) ? kInterface : NoInterface;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return Current(kAddress);
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return Current(0xFFFFFF00UL);
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return Current(0xC0A80101UL);
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    const bool found = Found(Operation::MacAddress);
    for (std::size_t i = 0; i < sizeof kMac; ++i) {
        mac[i] = found ? kMac[i] : 0;
    }
}

} // namespace Ip
} // namespace KnxStack

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return MakeClient();
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string&) {
    return MakeClient();
}

} // namespace Velbor
