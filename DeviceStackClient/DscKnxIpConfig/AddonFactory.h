// The add-on's class factory: registers the two service classes with the
// host's add-on manager and creates their objects by class name.
#ifndef DSC_ADDON_FACTORY_H
#define DSC_ADDON_FACTORY_H

#include "KnxStackAddonInterface.h"

#include <log4cplus/logger.h>

class AddonFactory : public KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>,
                     public KnxStack::AddonClassFactory<KnxStack::IFactoryResetManager> {
public:
    // The one factory of the loaded add-on, made on first use. The host calls
    // the entry functions from one thread, so there is no lock.
    static AddonFactory* Instance();

    ~AddonFactory() override;
    AddonFactory(const AddonFactory&) = delete;
    AddonFactory& operator=(const AddonFactory&) = delete;

    void Startup(KnxStack::IAddonManager& manager);
    void Shutdown(KnxStack::IAddonManager& manager);

    bool Create(const char* className, KnxStack::IIpConfigurationManager** object) override;
    bool Create(const char* className, KnxStack::IFactoryResetManager** object) override;

private:
    AddonFactory();

    template <typename Object, typename Interface>
    bool CreateObject(const char* className, Interface** object, const char* expectedName,
                      const char* function);

    // Deliberately not reset when the factory is destroyed: one start-up and
    // one shut-down per load of the library.
    static AddonFactory* _instance;
    log4cplus::Logger m_logger;
};

#endif
