// The device-stack client library: clients that carry command texts (JSON) to
// the device's system service.
#ifndef VELBOR_DEVICE_STACK_CLIENT_H
#define VELBOR_DEVICE_STACK_CLIENT_H

#include <memory>
#include <string>

#define VELBOR_API __attribute__((visibility("default")))

namespace Velbor {

class IDeviceStackClient {
public:
    virtual ~IDeviceStackClient() {}
    // Sends one command text; `reply` receives the service's answer.
    // `timeout` is handed on to the service exchange.
    virtual bool RequestCommand(const std::string& request, std::string& reply, int timeout) = 0;
    // Registers the calling application; required once before any request.
    virtual bool RegisterApplication(const std::string& name, const std::string& type,
                                     const std::string& protocol) = 0;
    // Fills `config` with the device's configuration as a JSON object text.
    virtual bool GetDeviceConfig(std::string& config, int flags) = 0;
};

// Returns a new client connected to the device's system service, or null.
VELBOR_API std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient();
// The same, with a connection text handed on to the library as it stands.
VELBOR_API std::unique_ptr<IDeviceStackClient> CreateDeviceStackClient(
    const std::string& connection);

} // namespace Velbor

#endif
