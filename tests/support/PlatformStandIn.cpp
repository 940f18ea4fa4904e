#include "PlatformStandIn.h"

#include "KnxIpConnectionInfo.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <cstring>

namespace {

void Trace(const std::string& text) {
    LOG4CPLUS_TRACE(log4cplus::Logger::getInstance("Platform"), text);
}

class StandInClient : public Velbor::IDeviceStackClient {
public:
    StandInClient() { ++ThePlatform().clientsMade; }
    ~StandInClient() override {
        ++ThePlatform().clientsDestroyed;
        Trace("~DeviceStackClient()");
    }
    StandInClient(const StandInClient&) = delete;
    StandInClient& operator=(const StandInClient&) = delete;

    bool RequestCommand(const std::string& request, std::string& reply, int timeout) override {
        ThePlatform().requests.push_back(request);
        reply = R"({"result":"ok"})";
        return ThePlatform().Pass(Call::RequestCommand, "RequestCommand(" + request + ", " +
                                                            std::to_string(timeout) + ")");
    }
    bool RegisterApplication(const std::string& name, const std::string& type,
                             const std::string& protocol) override {
        return ThePlatform().Pass(Call::RegisterApplication, "RegisterApplication(" + name + ", " +
                                                                 type + ", " + protocol + ")");
    }
    bool GetDeviceConfig(std::string& config, int flags) override {
        config = ThePlatform().deviceConfig;
        return ThePlatform().Pass(Call::GetDeviceConfig,
                                  "GetDeviceConfig(" + std::to_string(flags) + ")");
    }
};

std::unique_ptr<Velbor::IDeviceStackClient> MakeClient(const std::string* connection) {
    Platform& platform = ThePlatform();
    if (platform.factory) {
        return platform.factory(connection);
    }
    const std::string text = connection != nullptr ? '"' + *connection + '"' : "";
    if (!platform.Pass(Call::Create, "CreateDeviceStackClient(" + text + ")")) {
        return nullptr;
    }
    return std::make_unique<StandInClient>();
}

unsigned long Current(const char* name, unsigned long value) {
    const bool read = ThePlatform().Pass(Call::CurrentValue, std::string(name) + "()");
    return read && ThePlatform().InterfaceFound() ? value : 0;
}

} // namespace

bool Platform::Pass(Call call, const std::string& text) {
    Trace(text);
    if (faultAt != calls++) {
        return failing.count(call) == 0;
    }
    faulted = call;
    if (kind == FaultKind::Throw) {
        throw InjectedFault("injected fault in " + text);
    }
    return false;
}

bool Platform::InterfaceFound() const {
    return interfaceId != KnxStack::Ip::IpConnectionInfo::NoInterface;
}

Platform& ThePlatform() {
    static Platform platform;
    return platform;
}

namespace KnxStack::Ip {

struct IpConnectionInfo::State {};

IpConnectionInfo::IpConnectionInfo() : m_state(new State) {
}

IpConnectionInfo::~IpConnectionInfo() {
    delete m_state;
}

unsigned long IpConnectionInfo::DetermineNetworkInterface(const std::string& name, int index,
                                                          unsigned long flags, bool specified) {
    const std::string call = "DetermineNetworkInterface(\"" + name + "\", " +
                             std::to_string(index) + ", " + std::to_string(flags) + ", " +
                             (specified ? "true" : "false") + ")";
    return ThePlatform().Pass(Call::SelectInterface, call) ? ThePlatform().interfaceId
                                                           : NoInterface;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return Current("GetCurrentIpAddress", ThePlatform().address);
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return Current("GetCurrentNetmask", ThePlatform().netmask);
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return Current("GetCurrentGateway", ThePlatform().gateway);
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    const bool read = ThePlatform().Pass(Call::MacAddress, "GetMacAddress()");
    std::memset(mac, 0, ThePlatform().mac.size());
    if (read && ThePlatform().InterfaceFound()) {
        std::memcpy(mac, ThePlatform().mac.data(), ThePlatform().mac.size());
    }
}

} // namespace KnxStack::Ip

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return MakeClient(nullptr);
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& connection) {
    return MakeClient(&connection);
}

} // namespace Velbor
