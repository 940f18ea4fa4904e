// A KNX stack add-on loaded by path and kept started: dlopen, a check of its
// entry functions and API version, addonStartup; on destruction addonShutdown,
// then dlclose. The service objects it creates must be destroyed before it.
#ifndef ADDON_HOST_ADDON_H
#define ADDON_HOST_ADDON_H

#include "AddonManager.h"
#include "Result.h"

#include <memory>
#include <string>

namespace AddonHost {

// The version of the add-on interface this host is built for.
constexpr int kApiVersion = 20;

constexpr char kIpConfigClass[] = "DscKnxIpConfig";
constexpr char kFactoryResetClass[] = "FactoryResetManager";

class Addon {
public:
    // Loads the add-on at `path` and starts it with a manager that tells `observer`
    // of the add-on's calls into it.
    static Result<std::unique_ptr<Addon>> Start(const std::string& path,
                                                ManagerObserver observer = {});
    ~Addon();
    Addon(const Addon&) = delete;
    Addon& operator=(const Addon&) = delete;

    const AddonManager& manager() const { return m_manager; }

    // A new object of the class, made by its registered factory and initialised
    // with `properties`.
    Result<std::unique_ptr<IpConfig>> CreateIpConfig(const ConfigPropertyMap& properties);
    Result<std::unique_ptr<FactoryReset>> CreateFactoryReset(const ConfigPropertyMap& properties);

private:
    using Library = std::unique_ptr<void, int (*)(void*)>;

    Addon(Library library, KnxStackAddonShutdownFn shutdown, ManagerObserver observer);

    template <typename T>
    Result<std::unique_ptr<T>> Create(const char* className, const ConfigPropertyMap& properties);

    // Released in reverse order: the manager, then the library.
    Library m_library;
    KnxStackAddonShutdownFn m_shutdown;
    AddonManager m_manager;
};

} // namespace AddonHost

#endif
