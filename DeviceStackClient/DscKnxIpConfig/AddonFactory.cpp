#include "AddonFactory.h"

#include "DscKnxIpConfig.h"
#include "FactoryResetManager.h"
#include "Log.h"

#include <cstring>

#define FACTORY_LOG(level, function, message) \
    DSC_LOG(m_logger, level, DscLogFile::IpConfig, function, message)

#define DSC_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

const char* const kStartup = "void AddonFactory::Startup(KnxStack::IAddonManager&)";
const char* const kShutdown = "void AddonFactory::Shutdown(KnxStack::IAddonManager&)";
const char* const kCreateIpConfig =
    "virtual bool AddonFactory::Create(const char*, KnxStack::IIpConfigurationManager**)";
const char* const kCreateFactoryReset =
    "virtual bool AddonFactory::Create(const char*, KnxStack::IFactoryResetManager**)";

const char* const kIpConfigClass = "DscKnxIpConfig";
const char* const kFactoryResetClass = "FactoryResetManager";
const int kKnxStackApiVersion = 20;

} // namespace

AddonFactory* AddonFactory::_instance = nullptr;

AddonFactory* AddonFactory::Instance() {
    if (_instance == nullptr) {
        _instance = new AddonFactory();
    }
    return _instance;
}

AddonFactory::AddonFactory()
    : m_logger(log4cplus::Logger::getInstance("KnxStack.IpConfigFactory")) {
}

AddonFactory::~AddonFactory() = default;

void AddonFactory::Startup(KnxStack::IAddonManager& manager) {
    FACTORY_LOG(INFO, kStartup, "Startup() ...");
    manager.RegisterIpConfigurationManagerFactory(
        kIpConfigClass,
        static_cast<KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>*>(this));
    manager.RegisterFactoryResetManagerFactory(
        kFactoryResetClass,
        static_cast<KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager>*>(this));
    FACTORY_LOG(DEBUG, kStartup, "Startup() end.");
}

void AddonFactory::Shutdown(KnxStack::IAddonManager& manager) {
    FACTORY_LOG(INFO, kShutdown, "Shutdown() ...");
    manager.UnregisterFactoryResetManagerFactory(kFactoryResetClass);
    manager.UnregisterIpConfigurationManagerFactory(kIpConfigClass);
    FACTORY_LOG(DEBUG, kShutdown, "Shutdown() end.");
}

bool AddonFactory::Create(const char* className, KnxStack::IIpConfigurationManager** object) {
    return CreateObject<DscKnxIpConfig>(className, object, kIpConfigClass, kCreateIpConfig);
}

bool AddonFactory::Create(const char* className, KnxStack::IFactoryResetManager** object) {
    return CreateObject<FactoryResetManager>(className, object, kFactoryResetClass,
                                             kCreateFactoryReset);
}

template <typename Object, typename Interface>
bool AddonFactory::CreateObject(const char* className, Interface** object, const char* expectedName,
                                const char* function) {
    FACTORY_LOG(DEBUG, function, "Create() ...");
    if (object == nullptr) {
        FACTORY_LOG(ERROR, function, "Create(): null pointer as argument.");
        return false;
    }
    const bool matches = std::strcmp(className, expectedName) == 0;
    if (matches) {
        *object = new Object();
    }
    FACTORY_LOG(DEBUG, function, "Create(): end.");
    return matches;
}

DSC_EXPORT int getKnxStackApiVersion() {
    return kKnxStackApiVersion;
}

DSC_EXPORT void addonStartup(KnxStack::IAddonManager& manager) {
    AddonFactory::Instance()->Startup(manager);
}

DSC_EXPORT void addonShutdown(KnxStack::IAddonManager& manager) {
    AddonFactory* factory = AddonFactory::Instance();
    if (factory == nullptr) {
        return;
    }
    factory->Shutdown(manager);
    delete factory;
}
