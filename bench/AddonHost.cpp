#include "AddonHost.h"

#include <dlfcn.h>

#include <stdexcept>
#include <string>

namespace {

template <typename Function>
Function Entry(void* library, const char* name) {
    auto* entry = reinterpret_cast<Function>(dlsym(library, name));
    if (entry == nullptr) {
        throw std::runtime_error(std::string("add-on lacks ") + name);
    }
    return entry;
}

} // namespace

AddonHost::AddonHost(const char* path) : m_library(dlopen(path, RTLD_NOW | RTLD_LOCAL)) {
    if (m_library == nullptr) {
        throw std::runtime_error(dlerror());
    }
    Entry<KnxStackAddonStartupFn>(m_library, "addonStartup")(*this);
}

AddonHost::~AddonHost() {
    Entry<KnxStackAddonShutdownFn>(m_library, "addonShutdown")(*this);
    dlclose(m_library);
}

std::unique_ptr<KnxStack::IIpConfigurationManager> AddonHost::CreateIpConfig() {
    KnxStack::IIpConfigurationManager* object = nullptr;
    if (m_ipConfigFactory == nullptr || !m_ipConfigFactory->Create("DscKnxIpConfig", &object)) {
        throw std::runtime_error("the add-on created no DscKnxIpConfig");
    }
    return std::unique_ptr<KnxStack::IIpConfigurationManager>(object);
}

bool AddonHost::RegisterIpConfigurationManagerFactory(
    const char*, KnxStack::AddonClassFactory<KnxStack::IIpConfigurationManager>* factory) {
    m_ipConfigFactory = factory;
    return true;
}

bool AddonHost::UnregisterIpConfigurationManagerFactory(const char*) {
    m_ipConfigFactory = nullptr;
    return true;
}
