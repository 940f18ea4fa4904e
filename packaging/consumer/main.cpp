// Uses all three installed boundary headers: loads an add-on and asks its API
// version, reads the loopback interface's address through the connection
// library and the device's settings through the device-stack client.
// Usage: sdk-consumer ADDON
#include <KnxIpConnectionInfo.h>
#include <KnxStackAddonInterface.h>
#include <VelborDeviceStackClient.h>

#include <dlfcn.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: sdk-consumer ADDON\n", stderr);
        return 2;
    }
    void* addon = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    auto version =
        addon ? reinterpret_cast<KnxStackGetApiVersionFn>(dlsym(addon, "getKnxStackApiVersion"))
              : nullptr;
    std::printf("add-on API version = %d\n", version ? version() : -1);

    KnxStack::Ip::IpConnectionInfo connection;
    connection.DetermineNetworkInterface("lo", 0, 0, true);
    const unsigned long ip = connection.GetCurrentIpAddress();
    std::printf("lo ip = %lu.%lu.%lu.%lu\n", ip >> 24, (ip >> 16) & 0xFF, (ip >> 8) & 0xFF,
                ip & 0xFF);

    std::string config;
    std::unique_ptr<Velbor::IDeviceStackClient> client = Velbor::CreateDeviceStackClient();
    const bool read = client && client->RegisterApplication("sdk-consumer", "field", "KNX") &&
                      client->GetDeviceConfig(config, 0);
    std::printf("device config = %s\n", read ? config.c_str() : "(none)");
    return addon && read ? 0 : 1;
}
