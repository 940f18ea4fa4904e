#include "AddonManager.h"

namespace AddonHost {

template <typename T>
bool AddonManager::Register(const char* operation, const char* className,
                            KnxStack::AddonClassFactory<T>* factory) {
    Notify(operation, className);
    return className != nullptr && factory != nullptr &&
           std::get<Factories<T>>(m_factories).emplace(className, factory).second;
}

template <typename T>
bool AddonManager::Unregister(const char* operation, const char* className) {
    Notify(operation, className);
    return className != nullptr && std::get<Factories<T>>(m_factories).erase(className) > 0;
}

void AddonManager::Notify(const char* operation, const char* name) const {
    if (m_observer) {
        m_observer(operation, name != nullptr ? name : "");
    }
}

// Add-ons are loaded by path, not by name, and take no options from this host.
bool AddonManager::RegisterAddon(const char* addonName, int /*apiVersion*/) {
    Notify("RegisterAddon", addonName);
    return false;
}

bool AddonManager::UnregisterAddon(const char* addonName) {
    Notify("UnregisterAddon", addonName);
    return false;
}

bool AddonManager::SetAddonOption(const char* key, const char* /*value*/) {
    Notify("SetAddonOption", key);
    return false;
}

bool AddonManager::GetAddonOption(const char* key, char* /*value*/, unsigned int /*size*/) {
    Notify("GetAddonOption", key);
    return false;
}

bool AddonManager::IsClassRegistered(const char* className) {
    Notify("IsClassRegistered", className);
    return className != nullptr &&
           (Factory<IpConfig>(className) != nullptr || Factory<FactoryReset>(className) != nullptr);
}

bool AddonManager::RegisterIpConfigurationManagerFactory(
    const char* className, KnxStack::AddonClassFactory<IpConfig>* factory) {
    return Register("RegisterIpConfigurationManagerFactory", className, factory);
}

bool AddonManager::RegisterFactoryResetManagerFactory(
    const char* className, KnxStack::AddonClassFactory<FactoryReset>* factory) {
    return Register("RegisterFactoryResetManagerFactory", className, factory);
}

bool AddonManager::UnregisterIpConfigurationManagerFactory(const char* className) {
    return Unregister<IpConfig>("UnregisterIpConfigurationManagerFactory", className);
}

bool AddonManager::UnregisterFactoryResetManagerFactory(const char* className) {
    return Unregister<FactoryReset>("UnregisterFactoryResetManagerFactory", className);
}

} // namespace AddonHost
