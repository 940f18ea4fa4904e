#include "Addon.h"

#include <dlfcn.h>

namespace AddonHost {

namespace {

template <typename Function>
Function EntryFunction(void* library, const char* name) {
    return reinterpret_cast<Function>(dlsym(library, name));
}

std::string LastLoadError() {
    const char* error = dlerror();
    return error != nullptr ? error : "unknown error";
}

} // namespace

Result<std::unique_ptr<Addon>> Addon::Start(const std::string& path, ManagerObserver observer) {
    Library library(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL), dlclose);
    if (!library) {
        return Error{"cannot load add-on: " + LastLoadError()};
    }
    const char* const names[] = {"getKnxStackApiVersion", "addonStartup", "addonShutdown"};
    for (const char* name : names) {
        if (dlsym(library.get(), name) == nullptr) {
            return Error{std::string("add-on has no entry function ") + name};
        }
    }
    const int version = EntryFunction<KnxStackGetApiVersionFn>(library.get(), names[0])();
    if (version != kApiVersion) {
        return Error{"add-on is built for API version " + std::to_string(version) +
                     ", this host needs " + std::to_string(kApiVersion)};
    }
    const auto startup = EntryFunction<KnxStackAddonStartupFn>(library.get(), names[1]);
    const auto shutdown = EntryFunction<KnxStackAddonShutdownFn>(library.get(), names[2]);
    std::unique_ptr<Addon> addon(new Addon(std::move(library), shutdown, std::move(observer)));
    startup(addon->m_manager);
    return addon;
}

Addon::Addon(Library library, KnxStackAddonShutdownFn shutdown, ManagerObserver observer)
    : m_library(std::move(library)), m_shutdown(shutdown), m_manager(std::move(observer)) {
}

Addon::~Addon() {
    m_shutdown(m_manager);
}

template <typename T>
Result<std::unique_ptr<T>> Addon::Create(const char* className,
                                         const ConfigPropertyMap& properties) {
    KnxStack::AddonClassFactory<T>* const factory = m_manager.Factory<T>(className);
    if (factory == nullptr) {
        return Error{std::string("add-on registered no factory for ") + className};
    }
    T* object = nullptr;
    if (!factory->Create(className, &object) || object == nullptr) {
        return Error{std::string("add-on does not create ") + className};
    }
    std::unique_ptr<T> owned(object);
    if (!owned->Init(properties)) {
        return Error{std::string("Init of ") + className + " failed (the add-on's log says why)"};
    }
    return owned;
}

Result<std::unique_ptr<IpConfig>> Addon::CreateIpConfig(const ConfigPropertyMap& properties) {
    return Create<IpConfig>(kIpConfigClass, properties);
}

Result<std::unique_ptr<FactoryReset>> Addon::CreateFactoryReset(
    const ConfigPropertyMap& properties) {
    return Create<FactoryReset>(kFactoryResetClass, properties);
}

} // namespace AddonHost
