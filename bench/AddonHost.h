// A minimal host: loads the built add-on with dlopen, starts it with an add-on
// manager that keeps the IP configuration factory it registers, and creates
// IP configuration managers through that factory.
#ifndef BENCH_ADDON_HOST_H
#define BENCH_ADDON_HOST_H

#include "KnxStackAddonInterface.h"

#include <memory>

class AddonHost : public KnxStack::IAddonManager {
public:
    // Loads and starts the add-on at `path`; throws std::runtime_error when it cannot.
    explicit AddonHost(const char* path);
    // Shuts the add-on down and unloads it.
    ~AddonHost();
    AddonHost(const AddonHost&) = delete;
    AddonHost& operator=(const AddonHost&) = delete;

    // A new "DscKnxIpConfig" object; throws std::runtime_error when none is made.
    std::unique_ptr<KnxStack::IIpConfigurationManager> CreateIpConfig();

    bool RegisterAddon(const char*, int) override { return true; }
    bool UnregisterAddon(const char*) override { return true; }
    bool IsClassRegistered(const char*) override { return false; }
    bool RegisterIpConfigurationManagerFactory(
        const char*,
        KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>* factory) override;
    bool RegisterFactoryResetManagerFactory(
        const char*, KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager>*) override {
        return true;
    }
    bool SetAddonOption(const char*, const char*) override { return false; }
    bool GetAddonOption(const char*, char*, unsigned int) override { return false; }
    bool UnregisterIpConfigurationManagerFactory(const char*) override;
    bool UnregisterFactoryResetManagerFactory(const char*) override { return true; }

private:
    void* m_library;
    KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>* m_ipConfigFactory = nullptr;
};

#endif
