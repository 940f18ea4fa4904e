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
    StandInClient() { ++ThePlatform().clientsAlive; }
    ~StandInClient() override {
        --ThePlatform().clientsAlive;
        Trace("~DeviceStackClient()");
    }
    StandInClient(const StandInClient&) = delete;
    StandInClient& operator=(const StandInClient&) = delete;

    // A reply that does not arrive empty shows in the trace.
    bool RequestCommand(const std::string& request, std::string& reply, int timeout) override {
        ThePlatform().requests.push_back(request);
        const std::string text = "RequestCommand(" + request + ", " + std::to_string(timeout) +
                                 (reply.empty() ? ")" : ", " + reply + ")");
        reply = R"({"result":"ok"})";
        return ThePlatform().Pass(Call::RequestCommand, text);
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

std::unique_ptr<Velbor::IDeviceStackClient> MakeClient(const std::string& text) {
    if (!ThePlatform().Pass(Call::Create, "CreateDeviceStackClient(" + text + ")")) return nullptr;
    return std::make_unique<StandInClient>();
}

// A value of the selected interface, zero when the read fails or none was found.
template <typename Value>
Value Read(const char* name, Value value) {
    const bool read = ThePlatform().Pass(Call::Read, name);
    return read && ThePlatform().interfaceId != KnxStack::Ip::IpConnectionInfo::NoInterface
               ? value
               : Value{};
}

} // namespace

bool Platform::Pass(Call call, const std::string& text) {
    Trace(text);
    if (faultAt != calls++) return failing.count(call) == 0;
    if (kind == FaultKind::Throw) throw InjectedFault("injected fault in " + text);
    return false;
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
    return ThePlatform().Pass(Call::Select, call) ? ThePlatform().interfaceId : NoInterface;
}

unsigned long IpConnectionInfo::GetCurrentIpAddress() {
    return Read("GetCurrentIpAddress()", ThePlatform().address);
}

unsigned long IpConnectionInfo::GetCurrentNetmask() {
    return Read("GetCurrentNetmask()", ThePlatform().netmask);
}

unsigned long IpConnectionInfo::GetCurrentGateway() {
    return Read("GetCurrentGateway()", ThePlatform().gateway);
}

void IpConnectionInfo::GetMacAddress(unsigned char* mac) const {
    const auto bytes = Read("GetMacAddress()", ThePlatform().mac);
    std::memcpy(mac, bytes.data(), bytes.size());
}

} // namespace KnxStack::Ip

namespace Velbor {

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient() {
    return MakeClient("");
}

std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(const std::string& connection) {
    return MakeClient('"' + connection + '"');
}

} // namespace Velbor
