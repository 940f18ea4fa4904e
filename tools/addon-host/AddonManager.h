// The host's add-on manager: keeps the class factories an add-on registers, by
// class name, and tells an observer of every call the add-on makes into it.
#ifndef ADDON_HOST_ADDON_MANAGER_H
#define ADDON_HOST_ADDON_MANAGER_H

#include "KnxStackAddonInterface.h"

#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <utility>

namespace AddonHost {

using IpConfig = KnxStack::IIpConfigurationManager;
using FactoryReset = KnxStack::IFactoryResetManager;

// Called with the name of the manager's operation and its first argument, such
// as ("RegisterIpConfigurationManagerFactory", "DscKnxIpConfig").
using ManagerObserver = std::function<void(const std::string& operation, const std::string& name)>;

class AddonManager final : public KnxStack::IAddonManager {
public:
    explicit AddonManager(ManagerObserver observer = {}) : m_observer(std::move(observer)) {}

    // The factory registered for `className`, or null.
    template <typename T>
    KnxStack::AddonClassFactory<T>* Factory(const std::string& className) const {
        const auto& factories = std::get<Factories<T>>(m_factories);
        const auto found = factories.find(className);
        return found == factories.end() ? nullptr : found->second;
    }

    bool RegisterAddon(const char* addonName, int apiVersion) override;
    bool UnregisterAddon(const char* addonName) override;
    bool IsClassRegistered(const char* className) override;
    bool RegisterIpConfigurationManagerFactory(
        const char* className, KnxStack::AddonClassFactory<IpConfig>* factory) override;
    bool RegisterFactoryResetManagerFactory(
        const char* className, KnxStack::AddonClassFactory<FactoryReset>* factory) override;
    bool SetAddonOption(const char* key, const char* value) override;
    bool GetAddonOption(const char* key, char* value, unsigned int size) override;
    bool UnregisterIpConfigurationManagerFactory(const char* className) override;
    bool UnregisterFactoryResetManagerFactory(const char* className) override;

private:
    template <typename T>
    using Factories = std::map<std::string, KnxStack::AddonClassFactory<T>*>;

    template <typename T>
    bool Register(const char* operation, const char* className,
                  KnxStack::AddonClassFactory<T>* factory);
    template <typename T>
    bool Unregister(const char* operation, const char* className);
    void Notify(const char* operation, const char* name) const;

    std::tuple<Factories<IpConfig>, Factories<FactoryReset>> m_factories;
    ManagerObserver m_observer;
};

} // namespace AddonHost

#endif
