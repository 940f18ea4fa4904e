// The KNX stack host's add-on interface: the class factories an add-on registers
// with the host's add-on manager and the service interfaces it implements.
// The order of the virtual operations is the binary interface the host is built
// against; do not reorder, insert or remove any of them.
#ifndef KNXSTACK_ADDON_INTERFACE_H
#define KNXSTACK_ADDON_INTERFACE_H

#include <map>
#include <string>

// Configuration properties handed to a service object's Init: key -> value.
typedef std::map<std::string, std::string> ConfigPropertyMap;

namespace KnxStack {

// A factory for the service objects of one host interface.
template <typename T>
class AddonClassFactory {
public:
    // Creates an object of the named class and hands it to the caller, who owns it.
    virtual bool Create(const char* className, T** object) = 0;
    virtual ~AddonClassFactory() {}
};

class IIpConfigurationManager {
public:
    virtual ~IIpConfigurationManager() {}
    virtual bool Init(const ConfigPropertyMap& properties) = 0;
    virtual unsigned long GetCurrentIpAddress() = 0;
    virtual unsigned long GetCurrentNetmask() = 0;
    virtual unsigned long GetCurrentGateway() = 0;
    virtual unsigned long GetConfiguredIpAddress() = 0;
    virtual unsigned long GetConfiguredNetmask() = 0;
    virtual unsigned long GetConfiguredGateway() = 0;
    virtual void SetConfiguredIpAddress(unsigned long value) = 0;
    virtual void SetConfiguredNetmask(unsigned long value) = 0;
    virtual void SetConfiguredGateway(unsigned long value) = 0;
    virtual void GetMacAddress(unsigned char* mac) = 0;
    virtual int GetIpAssignmentMethods() = 0;
    virtual void SetIpAssignmentMethods(int value) = 0;
    virtual unsigned short GetIpCapabilities() const = 0;
    virtual void CommitConfiguration() = 0;
    virtual unsigned long GetDNSAddress(unsigned int index) = 0;
    virtual void SetDNSAddress(unsigned int index, unsigned long value) = 0;
};

class IFactoryResetManager {
public:
    virtual ~IFactoryResetManager() {}
    virtual bool Init(const ConfigPropertyMap& properties) = 0;
    virtual unsigned short GetProcessTime() = 0;
    virtual void OnFactoryReset() = 0;
};

// The host's registry of add-on class factories. The host owns it; an add-on
// never destroys it, hence the protected non-virtual destructor.
class IAddonManager {
public:
    virtual bool RegisterAddon(const char* addonName, int apiVersion) = 0;
    virtual bool UnregisterAddon(const char* addonName) = 0;
    virtual bool IsClassRegistered(const char* className) = 0;
    virtual bool RegisterIpConfigurationManagerFactory(
        const char* className, AddonClassFactory<IIpConfigurationManager>* factory) = 0;
    virtual bool RegisterFactoryResetManagerFactory(
        const char* className, AddonClassFactory<IFactoryResetManager>* factory) = 0;
    virtual bool SetAddonOption(const char* key, const char* value) = 0;
    virtual bool GetAddonOption(const char* key, char* value, unsigned int size) = 0;
    virtual bool UnregisterIpConfigurationManagerFactory(const char* className) = 0;
    virtual bool UnregisterFactoryResetManagerFactory(const char* className) = 0;

protected:
    ~IAddonManager() {}
};

} // namespace KnxStack

// Entry functions an add-on exports, looked up by the host by these names.
extern "C" {
typedef int (*KnxStackGetApiVersionFn)();
typedef void (*KnxStackAddonStartupFn)(KnxStack::IAddonManager&);
typedef void (*KnxStackAddonShutdownFn)(KnxStack::IAddonManager&);
}

#endif
