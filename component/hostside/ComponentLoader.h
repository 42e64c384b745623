#pragma once

// How a host finds and loads components: the class registry names the library of a ProgID; the
// library is opened with dlopen and asked for a class factory through its entry points.

#include "component/hostside/ComPtr.h"
#include "component/registry/ClassRegistry.h"
#include "quorel/Com.h"

#include <map>
#include <memory>
#include <string>

namespace quorel::component {

// One component library, opened once and kept open: objects it made may outlive any caller.
class ComponentLibrary {
public:
    // Throws quorel::Error when the file cannot be loaded or lacks an entry point.
    static std::shared_ptr<ComponentLibrary> Open(const std::string& path);

    com::HResult RegisterServer() const { return m_register(); }
    com::HResult UnregisterServer() const { return m_unregister(); }
    com::HResult CanUnloadNow() const { return m_canUnload(); }
    // A new object of the class, asked for iid; empty (and the result in *result) on failure.
    ComPtr<com::IUnknown> CreateInstance(const com::Guid& clsid,
                                         com::HResult* result = nullptr) const;

    const std::string& Path() const { return m_path; }

private:
    using Entry = com::HResult (*)();
    using GetClassObject = com::HResult (*)(const com::Guid*, const com::Guid*, void**);

    ComponentLibrary() = default;

    std::string m_path;
    void* m_handle = nullptr;
    Entry m_register = nullptr;
    Entry m_unregister = nullptr;
    Entry m_canUnload = nullptr;
    GetClassObject m_getClassObject = nullptr;
};

class ComponentLoader {
public:
    explicit ComponentLoader(std::string registryPath = ClassRegistry::DefaultPath());

    // Whether the class registry knows the ProgID.
    bool IsRegistered(const std::string& progId) const;
    // A new object of the class registered under progId; empty when the ProgID is not
    // registered. Throws quorel::Error when the library cannot be loaded or refuses.
    ComPtr<com::IUnknown> CreateByProgId(const std::string& progId);

private:
    ClassRegistry m_registry;
    std::map<std::string, std::shared_ptr<ComponentLibrary>> m_libraries;
};

} // namespace quorel::component
