#include "component/hostside/ComponentLoader.h"

#include "util/Error.h"

#include <cstdio>
#include <dlfcn.h>

namespace quorel::component {
namespace {

constexpr const char* kSource = "ComponentLoader";

std::string HexResult(com::HResult result) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%08X", static_cast<unsigned>(result));
    return text;
}

} // namespace

std::shared_ptr<ComponentLibrary> ComponentLibrary::Open(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = ::dlerror();
        throw Error(error_number::kFileNotFound, kSource,
                    "Cannot load the component " + path + ": " + (why ? why : "unknown error"));
    }
    std::shared_ptr<ComponentLibrary> library(new ComponentLibrary());
    library->m_path = path;
    library->m_handle = handle;
    auto symbol = [&](const char* name) {
        void* address = ::dlsym(handle, name);
        if (address == nullptr) {
            throw Error(error_number::kInvalidArgument, kSource,
                        path + " is not a component: it has no " + name);
        }
        return address;
    };
    library->m_register = reinterpret_cast<Entry>(symbol("DllRegisterServer"));
    library->m_unregister = reinterpret_cast<Entry>(symbol("DllUnregisterServer"));
    library->m_canUnload = reinterpret_cast<Entry>(symbol("DllCanUnloadNow"));
    library->m_getClassObject = reinterpret_cast<GetClassObject>(symbol("DllGetClassObject"));
    return library;
}

ComPtr<com::IUnknown> ComponentLibrary::CreateInstance(const com::Guid& clsid,
                                                       com::HResult* result) const {
    void* factoryPointer = nullptr;
    com::HResult hr = m_getClassObject(&clsid, &com::IID_IClassFactory, &factoryPointer);
    ComPtr<com::IUnknown> object;
    if (com::Succeeded(hr)) {
        auto factory =
            ComPtr<com::IClassFactory>::Adopt(static_cast<com::IClassFactory*>(factoryPointer));
        void* instance = nullptr;
        hr = factory->CreateInstance(nullptr, com::IID_IUnknown, &instance);
        if (com::Succeeded(hr)) {
            object = ComPtr<com::IUnknown>::Adopt(static_cast<com::IUnknown*>(instance));
        }
    }
    if (result != nullptr) {
        *result = hr;
    }
    return object;
}

ComponentLoader::ComponentLoader(std::string registryPath) : m_registry(std::move(registryPath)) {}

bool ComponentLoader::IsRegistered(const std::string& progId) const {
    return m_registry.FindByProgId(progId).has_value();
}

ComPtr<com::IUnknown> ComponentLoader::CreateByProgId(const std::string& progId) {
    const auto entry = m_registry.FindByProgId(progId);
    if (!entry) {
        return {};
    }
    const auto clsid = com::ParseGuid(entry->clsid);
    if (!clsid) {
        throw Error(error_number::kInvalidArgument, kSource,
                    "The class registry holds a bad class id for " + progId);
    }
    auto& library = m_libraries[entry->path];
    if (!library) {
        library = ComponentLibrary::Open(entry->path);
    }
    com::HResult hr = com::kOk;
    auto object = library->CreateInstance(*clsid, &hr);
    if (!object) {
        throw Error(error_number::kHostFailure, kSource,
                    "The component " + entry->path + " could not create " + progId + " (" +
                        HexResult(hr) + ")");
    }
    return object;
}

} // namespace quorel::component
